"""Schema and build-information files as the daemon reads them and writes them back."""
import pytest

DEEP = "[" * 5_000_000 + "]" * 5_000_000


def record(key, value="", text="", options=""):
    return f'{{"key":"{key}","value":"{value}","description":"{text}","options":[{options}]}}'


@pytest.mark.parametrize("text, revision, variables", [
    # Both forms, member order, white space, unknown and repeated members.
    (' \n{ "variables" : [ {"value":"1" ,\t"key":"K"} ] }\r\n', "", record("K", "1")),
    ('[{"options":["1","0","1"],"description":"d"}]', "", record("", "", "d", '"1","0","1"')),
    ('{"x":{"key":[1e3]},"git_revision":"r","variables":[{"key":"K","x":1}]}', "r", record("K")),
    ('[{"key":"K","value":"first","value":"second"}]', "", record("K", "first")),
    ('[{"key":"K","options":["o"],"description":"d"},{"key":"K","value":"2"}]', "", record("K", "2")),
    ('[{"key":"é"},{"key":"a"},{"key":"Z"},{"key":"AB"},{"key":"A"}]', "",
     ",".join(map(record, ["A", "AB", "Z", "a", "é"]))),
    # Escapes, bytes that are no UTF-8, NUL in a string and in the text, nesting.
    (r'[{"key":"\"\\\/\b\f\n\r\t\u001f\u00fc"}]', "", record('\\"\\\\/\\b\\f\\n\\r\\t\\u001Fü')),
    ('[{"key":"\udcff\x7f"}]', "", record("\udcff\x7f")),
    ('[{"key":"K\\u0000x","value":"v\\u0000w"}]\0garbage', "", record("K", "v")),
    ('{"x":' + DEEP + ',"git_revision":"r","variables":[{"key":"K"}]}', "r", record("K")),
    # Not one JSON value, or neither object nor array: an empty document.
    *[(text, "", "") for text in ("", '[{"key":"K"},]', '[{"key":"K"}] x', '//\n[{"key":"K"}]',
                                  '[{"key":"\\ud800"}]', "null", '"K"', "\ufeff[]", DEEP[:-1])],
    # A wrong piece costs that piece only.
    ('{"git_revision":"r"}', "r", ""),
    ('{"git_revision":"r","variables":{"key":"K"}}', "r", ""),
    ('{"git_revision":1,"variables":[{"key":"K"}]}', "", record("K")),
    ('[null,["K"],{"key":1},{"key":null},{"key":"V","value":true},{"key":"K"}]', "", record("K")),
    ('[{"key":"K","options":["a",1,null,["x"],"b"]}]', "", record("K", "", "", '"a","b"')),
    ('[{"key":"K","options":"on","description":{}}]', "", record("K")),
], ids=lambda text: text[:40])
def test_read_and_written_back(daemon, text, revision, variables):
    written = f'{{"git_revision":"{revision}","variables":[{variables}]}}'
    for file in (text, written):
        assert daemon.run(secondary=file).saved == written
    assert daemon.run(build=text).saved == f'{{"git_revision":"{revision}","variables":[]}}'
