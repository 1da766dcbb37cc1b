"""What stands around the executable, held against what the executable does."""
import json
import pathlib
import subprocess

from jsonschema import Draft202012Validator

ROOT = pathlib.Path(__file__).parents[1]
OK = '{"git_revision":"r","variables":[{"key":"A","value":"1","options":["2"],"description":"d"}]}'
FAULTS = r'''|1 |{} |{"git_revision":"r"} |{"variables":{}} |[1] {"git|{"x":1,"git "r"|1
"r"|"\u0000" "A"|1 "A"|"" "A"|"1A" "A"|"A-B" "A"|"A\n" "key":"A",| "value":"1",| "1"|1 "1"|"$x"
"1"|"1\n" "1"|"\u0020" "1"|"[1]" ["2"]|"2" "2"|2 "2"|"$x" "d"|1 "d"|"\ud800" "d"|"d","x":1'''


def test_schema_and_consumer(daemon):
    schema = Draft202012Validator(json.loads((ROOT / "packaging/toggle_schema.json").read_text()))
    for text in [OK, *(path.read_text() for path in sorted(ROOT.glob("examples/*.conf")))]:
        assert schema.is_valid(json.loads(text)), text
        assert daemon.run(secondary=text).saved.count('"key"') == text.count('"key"'), text
    for part, fault in (row.split("|") for row in FAULTS.split()):
        assert not schema.is_valid(json.loads(OK.replace(part or OK, fault, 1))), (part, fault)
    wrapper = [ROOT / "packaging/with_feature_toggles", "printenv", "DEMO_THEME"]
    assert subprocess.check_output(wrapper, env=daemon.env) == b"light\n"


def test_manual(daemon):
    manual = (ROOT / "packaging/feature_toggled.8").read_text().replace(" , Fl ", ",-")
    options = [item.split()[0] for item in manual.split("\n.It Fl ")[1:]]
    assert options == [item.split()[0] for item in daemon.run("--help").stdout.split("\n  -")[1:]]
