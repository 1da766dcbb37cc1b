"""toggle_schema.json, which tells authors of schema files what the daemon would skip or cut."""
import json
import pathlib

import jsonschema
import pytest

ROOT = pathlib.Path(__file__).parents[1]
SCHEMA = json.loads((ROOT / "packaging/toggle_schema.json").read_text())
TOGGLE = {"key": "A", "value": "1", "options": ["2"], "description": "d"}

# Each stands for the member of that name, in a toggle that is right otherwise.
FAULTS = {
    "key": [1, "", "1A", "A-B", "A\n"],
    "value": [1, "$x", "1\n", " ", "[1]"],
    "options": ["2", [2], ["$x"]],
    "description": [1, "\ud800"],
    "x": [1],
}


def is_valid(document):
    return jsonschema.Draft202012Validator(SCHEMA).is_valid(document)


@pytest.mark.parametrize("path", [*ROOT.glob("examples/*.conf")], ids=lambda path: path.name)
def test_examples(path):
    assert is_valid(json.loads(path.read_text()))


def test_both_forms():
    assert is_valid([TOGGLE])
    assert is_valid({"git_revision": "r", "variables": [TOGGLE]})


@pytest.mark.parametrize("name, value", [
    (name, value) for name, values in FAULTS.items() for value in values])
def test_faults(name, value):
    assert not is_valid([{**TOGGLE, name: value}])


@pytest.mark.parametrize("missing", ["key", "value"])
def test_what_a_toggle_needs(missing):
    assert not is_valid([{name: TOGGLE[name] for name in TOGGLE if name != missing}])


@pytest.mark.parametrize("document", [
    1, {}, [1], {"git_revision": "r"}, {"variables": {}}, {"variables": [], "x": 1},
    {"variables": [], "git_revision": 1}, {"variables": [], "git_revision": "\0"}])
def test_other_documents(document):
    assert not is_valid(document)
