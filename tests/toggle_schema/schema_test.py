"""Schema files as the daemon reads them and writes them back."""
import pytest
from conftest import schema

DEEP = "[" * 5_000_000 + "]" * 5_000_000


def record(key, value="", text="", options=""):
    return f'{{"key":"{key}","value":"{value}","description":"{text}","options":[{options}]}}'


@pytest.mark.parametrize("text, revision, variables", [
    # Both forms, member order, white space, unknown and repeated members.
    ('{"variables":[]}', "", ""),
    (' \n{ "variables" : [ {"value":"1" ,\t"key":"B"},{"key":"A"} ] }\r\n', "",
     record("A") + "," + record("B", "1")),
    ('[{"key":"K","value":"v","options":["1","0","1"],"description":"d"}]', "",
     record("K", "v", "d", '"1","0","1"')),
    ('[{"value":"v","options":["o"]}]', "", record("", "v", "", '"o"')),
    ('{"x":{"key":[1e3]},"git_revision":"r","variables":[{"key":"K","x":true}]}', "r", record("K")),
    ('[{"key":"K","value":"first","value":"second"}]', "", record("K", "first")),
    ('[{"key":"K","options":["o"],"description":"d"},{"key":"K","value":"2"}]', "", record("K", "2")),
    ('[{"key":"\u00e9"},{"key":"a"},{"key":"Z"},{"key":"AB"},{"key":"A"}]', "",
     ",".join(map(record, ["A", "AB", "Z", "a", "\u00e9"]))),
    # Escapes, bytes that are no UTF-8, NUL in a string and in the text, nesting.
    (r'[{"key":"K","value":"\"\\\/\b\f\n\r\t\u001f\u007f\u00fc"}]', "",
     record("K", '\\"\\\\/\\b\\f\\n\\r\\t\\u001F\x7f\u00fc')),
    ('[{"key":"\udcff\udcfe"}]', "", record("\udcff\udcfe")),
    (r'[{"key":"K\u0000x","value":"v\u0000w"}]', "", record("K", "v")),
    ('[{"key":"K"}]\0garbage', "", record("K")),
    ('{"x":' + DEEP + ',"git_revision":"r","variables":[{"key":"K"}]}', "r", record("K")),
    # Not one JSON value, or neither object nor array: an empty document.
    *[(text, "", "") for text in ("", '[{"key":"K"},]', '[{"key":"K"}] x', '//\n[{"key":"K"}]', "17",
                                  '[{"key":"\\ud800"}]', "null", '"K"', "\ufeff[]", DEEP[:-1])],
    # A wrong piece costs that piece only.
    ('{"git_revision":"r"}', "r", ""),
    ('{"git_revision":"r","variables":{"key":"K"}}', "r", ""),
    ('{"git_revision":1,"variables":[{"key":"K"}]}', "", record("K")),
    ('[null,1,"K",["K"],{"key":1},{"key":null},{"key":"V","value":true},{"key":"K"}]', "", record("K")),
    ('[{"key":"K","options":"on","description":{}}]', "", record("K")),
    ('[{"key":"K","options":["a",1,null,["x"],"b"]}]', "", record("K", "", "", '"a","b"')),
], ids=lambda text: text[:40])
def test_read_and_written_back(daemon, text, revision, variables):
    written = f'{{"git_revision":"{revision}","variables":[{variables}]}}'
    for content in (text, written):
        daemon.write(secondary=content)
        assert daemon.run().returncode == 0
        assert daemon.read("secondary") == written


@pytest.mark.parametrize("text, revision", [
    ('{"x":1,"git_revision":"1a2b","git_revision":""}', "1a2b"), (r'{"git_revision":"a\u0000b"}', "a"),
    ('{"x":' + DEEP + ',"git_revision":"r"}', "r"), ("{}", ""), ('{"git_revision":7}', ""),
    ('["git_revision"]', ""), ("", ""), ('{"git_revision":"r"},', "")], ids=lambda text: text[:40])
def test_build_revision(daemon, text, revision):
    daemon.write(build=text)
    assert daemon.run().returncode == 0
    assert daemon.read("secondary") == schema(revision)
