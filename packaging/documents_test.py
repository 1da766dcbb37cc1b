"""The documents agree with the program and with each other."""
import os
import pathlib
import re
import subprocess

import pytest
from daemon import path_with_stand_in

ROOT = pathlib.Path(__file__).parents[1]
MANUAL = (ROOT / "packaging/feature_toggled.8").read_text()
SETTINGS = [  # variable, option, field, and default
    ("BUILD_INFO_PATH", "b", "build_info_path", "/build_info.json"),
    ("PRIMARY_SCHEMA_PATH", "r", "primary_schema_path", "/etc/primary_feature_toggle.conf"),
    ("SECONDARY_SCHEMA_PATH", "s", "secondary_schema_path",
     "/var/rwfs2/secondary_feature_toggle.json"),
    ("OUTPUT_PATH", "o", "output_path", "/var/rwfs2/feature_toggle.sh"),
    ("HTTP_PORT", "p", "port", "-1"),
    ("HOSTNAME", "n", "hostname", "127.0.0.1"),
    ("PRESERVE_CONFIGURATION", None, "preserve_configuration", "0"),
]


@pytest.mark.parametrize("variable, option, field, default", SETTINGS)
def test_setting(variable, option, field, default):
    built_in = (ROOT / "src/app/settings.h").read_text()
    assert f" {field} = {default};" in built_in.replace('"', "")
    settings_file = (ROOT / "packaging/feature_toggled.default").read_text()
    assert f"\n#FEATURE_TOGGLE_{variable}={default}\n" in settings_file
    described = MANUAL.partition(f"\n.It Ev FEATURE_TOGGLE_{variable}\n")[2].partition("\n.It")[0]
    assert f" {default}\n" in described
    assert option is None or f".Fl {option} ;\n" in described


@pytest.mark.parametrize("path", [
    "src/app/settings.cpp", "packaging/feature_toggled.8", "packaging/feature_toggled.default"])
def test_variables(path):
    named = re.findall(r"\bFEATURE_TOGGLE_(\w+)", (ROOT / path).read_text())
    assert set(named) == {row[0] for row in SETTINGS}


DEFAULTS = {field: default for _, _, field, default in SETTINGS}
DIRECTORY = os.path.dirname(DEFAULTS["output_path"])


@pytest.mark.parametrize("path, copy", [
    ("feature_toggled.service", f"\nRequiresMountsFor={DIRECTORY}\n"),
    ("feature_toggled.service", f"\nAssertPathIsDirectory={DIRECTORY}\n"),
    ("feature_toggled.service", f"\nReadWritePaths={DIRECTORY}\n"),
    ("feature_toggled.init", f"SECONDARY_SCHEMA_PATH:-{DIRECTORY}/}}"),
    ("feature_toggled.init", f"OUTPUT_PATH:-{DIRECTORY}/}}"),
    ("with_feature_toggles", f":-{DEFAULTS['output_path']}}}"),
])
def test_copy_of_a_default_path(path, copy):
    assert os.path.dirname(DEFAULTS["secondary_schema_path"]) == DIRECTORY
    assert copy in (ROOT / "packaging" / path).read_text()


def test_options():
    printed = subprocess.run([ROOT / "build/debug/feature_toggled", "--help"], check=True,
                             capture_output=True, text=True).stdout
    options = re.findall(r"^ +(?:-(.), *)?--(\w+)", printed, re.MULTILINE)
    assert set(options) > {row[1:3] for row in SETTINGS if row[1]}
    assert options == re.findall(r"^\.It Fl (?:(.) , Fl )?-(\w+)", MANUAL, re.MULTILINE)


@pytest.mark.parametrize("path, pattern", [
    ("CMakeLists.txt", r"^project\(.* VERSION (\S+)"),
    ("CHANGELOG.md", r"^## (\S+),"),
    ("debian/changelog", r"\((\S+)-1\)"),
    ("debian/changelog", r"Release (\S+):"),
    ("packaging/feature_toggled.8", r"^\.Os feature_toggle (\S+)"),
    ("packaging/with_feature_toggles.1", r"^\.Os feature_toggle (\S+)"),
    ("packaging/buildroot/package/feature-toggled/feature-toggled.mk", r"_VERSION = (\S+)"),
])
def test_version(path, pattern):
    recipe, = ROOT.glob("packaging/yocto/*/*/feature-toggled_*.bb")
    version = re.search(pattern, (ROOT / path).read_text(), re.MULTILINE)[1]
    assert recipe.stem == f"feature-toggled_{version}"


def test_five_minutes(tmp_path):
    """In one shell, each "sh" block of the README prints the "text" block after it, if any."""
    guide = (ROOT / "README.md").read_text().partition("\n## Five minutes")[2].partition("\n## ")[0]
    blocks = re.findall(r"^```sh\n(.*?)^```\n(?:\n```text\n(.*?)^```\n)?", guide,
                        re.DOTALL | re.MULTILINE)
    script = "echo END OF BLOCK\n".join(commands for commands, _ in blocks)
    env = {**os.environ, "PATH": path_with_stand_in(tmp_path), "TMPDIR": str(tmp_path)}
    run = subprocess.run(["bash", "-euo", "pipefail", "-c", script], cwd=ROOT, env=env, check=True,
                         stdout=subprocess.PIPE, text=True)
    printed = run.stdout.split("END OF BLOCK\n")
    compared = [(output, text) for output, (_, text) in zip(printed, blocks, strict=True) if text]
    assert len(compared) == guide.count("```text") >= 3
    for output, text in compared:
        assert output == text
