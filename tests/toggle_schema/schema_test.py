"""Schema and build-information files as the daemon reads them and writes them back."""
import pytest

DEEP = "[" * 300_000 + "]" * 300_000


def toggle(key, value="", description="", options=""):
    return (f'{{"key":"{key}","value":"{value}","description":"{description}",'
            f'"options":[{options}]}}')


@pytest.mark.parametrize("text, revision, toggles", [
    (' \n{ "variables" : [ {"value":"1" ,\t"key":"K"} ] }\r\n', "", toggle("K", "1")),
    ('{"x":{"key":[1e3]},"git_revision":"r","variables":[{"key":"K","x":1}]}', "r", toggle("K")),
    ('[{"options":["1","1",""],"description":"d"}]', "", toggle("", "", "d", '"1","1",""')),
    ('[{"key":"K","value":"first","value":"second"}]', "", toggle("K", "first")),
    ('[{"key":"K","options":["o"],"description":"d"},{"key":"K"}]', "", toggle("K")),
    # Escapes, bytes that are not UTF-8, NUL in a string and in the text, nesting.
    (r'[{"key":"\"\\\/\b\f\n\r\t\u001f\u00fc"}]', "", toggle(r'\"\\/\b\f\n\r\t\u001Fü')),
    ('[{"key":"\udcff\x7f"}]', "", toggle("\udcff\x7f")),
    ('[{"key":"K\\u0000x","value":"1"},{"key":"K"}]\0garbage', "", toggle("K")),
    ('{"x":' + DEEP + ',"git_revision":"r","variables":[{"key":"K"}]}', "r", toggle("K")),
    # Text that is not a single JSON value, object or array gives an empty document.
    *[(text, "", "") for text in (
        "", '[{"key":"K"},]', '[{"key":"K"},NaN]', '[{"key":"K"}] x', '//\n[{"key":"K"}]',
        r'[{"key":"\ud800"}]', "null", '"K"', '\ufeff[{"key":"K"}]', DEEP[:-1])],
    # A wrong piece costs that piece only.
    ('{"git_revision":"r"}', "r", ""),
    ('{"git_revision":"r","variables":{"key":"K"}}', "r", ""),
    ('{"git_revision":1,"variables":[{"key":"K"}]}', "", toggle("K")),
    ('[null,["K"],{"key":null},{"key":"V","value":1},{"key":"K"}]', "", toggle("K")),
    ('[{"key":"K","options":["a",1,"b"],"description":{}}]', "", toggle("K", options='"a","b"')),
    ('[{"key":"K","options":"on"}]', "", toggle("K")),
], ids=lambda text: text[:40])
def test_read_and_written_back(daemon, text, revision, toggles):
    written = f'{{"git_revision":"{revision}","variables":[{toggles}]}}'
    assert daemon.run(secondary=text).saved == written
    assert daemon.run().saved == written
    assert daemon.run("-x", build=text).saved == f'{{"git_revision":"{revision}","variables":[]}}'
