"""Schema and build-information files as the daemon reads them and writes them back."""
import pytest

DEEP = "[" * 1_000_000 + "]" * 1_000_000


def toggle(key, value="", description="", options=""):
    return (f'{{"key":"{key}","value":"{value}","description":"{description}",'
            f'"options":[{options}]}}')


@pytest.mark.parametrize("text, revision, toggles", [
    # Both forms, member order, white space, unknown and repeated members.
    (' \n{ "variables" : [ {"value":"1" ,\t"key":"K"} ] }\r\n', "", [toggle("K", "1")]),
    ('[{"options":["1","1","0","1"],"description":"d"}]', "",
     [toggle("", description="d", options='"1","1","0","1"')]),
    ('{"x":{"key":[1e3]},"git_revision":"r","variables":[{"key":"K","x":1}]}', "r", [toggle("K")]),
    ('[{"key":"K","value":"first","value":"second"}]', "", [toggle("K", "first")]),
    ('[{"key":"K","options":["o"],"description":"d"},{"key":"K","value":"2"}]', "",
     [toggle("K", "2")]),
    ('[{"key":"é"},{"key":"a"},{"key":"Z"},{"key":"AB"},{"key":"A"}]', "",
     [toggle("A"), toggle("AB"), toggle("Z"), toggle("a"), toggle("é")]),
    # Escapes, bytes that are no UTF-8, NUL in strings and in the text, nesting.
    (r'[{"key":"\"\\\/\b\f\n\r\t\u001f\u00fc"}]', "", [toggle(r'\"\\/\b\f\n\r\t\u001Fü')]),
    ('[{"key":"\udcff\x7f"}]', "", [toggle("\udcff\x7f")]),
    (r'[{"key":"K\u0000x","value":"v\u0000w"},{"key":"K"}]' '\0garbage', "", [toggle("K")]),
    ('{"x":' + DEEP + ',"git_revision":"r","variables":[{"key":"K"}]}', "r", [toggle("K")]),
    # Not one JSON value, or neither object nor array: an empty document.
    *[(text, "", []) for text in (
        "", '[{"key":"K"},]', '[{"key":"K"},NaN]', '[{"key":"K"}] x', '//\n[{"key":"K"}]',
        r'[{"key":"\ud800"}]', "null", '"K"', "\ufeff[]", DEEP[:-1])],
    # A wrong piece costs that piece only.
    ('{"git_revision":"r"}', "r", []),
    ('{"git_revision":"r","variables":{"key":"K"}}', "r", []),
    ('{"git_revision":1,"variables":[{"key":"K"}]}', "", [toggle("K")]),
    ('[null,["K"],{"key":1},{"key":null},{"key":"V","value":true},{"key":"K"}]', "", [toggle("K")]),
    ('[{"key":"K","options":["a",1,null,["x"],"b"]}]', "", [toggle("K", options='"a","b"')]),
    ('[{"key":"K","options":"on","description":{}}]', "", [toggle("K")]),
], ids=lambda value: str(value)[:40])
def test_read_and_written_back(daemon, text, revision, toggles):
    written = f'{{"git_revision":"{revision}","variables":[{",".join(toggles)}]}}'
    for file in (text, written):
        assert daemon.run(secondary=file).saved == written
    assert daemon.run("--reset", build=text).saved == f'{{"git_revision":"{revision}","variables":[]}}'
