"""toggle_schema.json accepts files of the daemon, and finds members that it skips or truncates."""
import json
import pathlib

import jsonschema
import pytest
from daemon import Daemon

ROOT = pathlib.Path(__file__).parents[1]
SCHEMA = json.loads((ROOT / "packaging/toggle_schema.json").read_text())
TOGGLE = {"key": "A", "value": "1", "options": ["2"], "description": "d"}


def faults(document):
    """The place and the message of each fault, as jsonschema(1) finds it."""
    validator = jsonschema.Draft202012Validator(SCHEMA)
    return [f"{error.json_path}: {error.message}" for error in validator.iter_errors(document)]


@pytest.mark.parametrize("path", [*ROOT.glob("examples/*_toggle.conf")], ids=lambda path: path.name)
def test_examples(path):
    assert faults(json.loads(path.read_text())) == []


def test_what_the_daemon_writes(tmp_path):
    daemon = Daemon([ROOT / "build/debug/feature_toggled"], tmp_path)
    odd = {"A": "it's", "B-C": "ü", "D E": "a b", "<&>": "\"\\\n😀"}
    for key, value in odd.items():
        saved = json.loads(daemon.run("--entry", key, value).saved)
        assert faults(saved) == []
    assert {toggle["key"]: toggle["value"] for toggle in saved["variables"]} == odd
    assert faults(json.loads(daemon.run("--reset").saved)) == []


@pytest.mark.parametrize("name, value", [
    ("key", 1), ("key", "A\0"), ("value", None), ("value", ["1"]), ("value", "\ud800"),
    ("options", "2"), ("options", [2]), ("options", ["\0"]), ("description", 1),
    ("colour", "red")])
def test_fault_is_named(name, value):
    toggle = {**TOGGLE, name: value}
    for document in [toggle], {"variables": [toggle]}:
        fault, = faults(document)
        assert name in fault


@pytest.mark.parametrize("name", ["key", "value"])
def test_missing_member_is_named(name):
    fault, = faults([{other: TOGGLE[other] for other in TOGGLE if other != name}])
    assert f"'{name}' is a required property" in fault


@pytest.mark.parametrize("document", [
    1, {}, [1], {"variables": {}}, {"variables": [], "colour": 1},
    {"variables": [], "git_revision": "\0"}])
def test_other_documents(document):
    assert len(faults(document)) == 1
