"""Runs that do not serve: arguments, environment and files in; output, status and files out."""
import pytest
from conftest import schema

PRIMARY = '{"variables":[{"key":"B","value":"off","options":["off","on"]},{"key":"A","value":"on"}]}'
OLD, NEW = schema("r1", B="on"), schema("r2", B="on")
ALL = {"primary": PRIMARY, "secondary": OLD, "build": '{"git_revision":"r2"}'}
BOTH_ON, DEFAULTS = "export A=on\nexport B=on\n", "export A=on\nexport B=off\n"
ODD = {"a": "$x\t'\n", "Zeta": "ü", "AB": '"=', "A": "two words", "B": "", "": "x", "C D": "x"}


@pytest.mark.parametrize("arguments, variable, files, listing, secondary, script", [
    ("-l", "", {}, "\n", schema(""), ""),
    ("--list", "", ALL, BOTH_ON + "\n", NEW, BOTH_ON),
    ("", "", {"secondary": OLD, "build": '{"git_revision":""}'}, "", OLD, "export B=on\n"),
    ("", "", {"primary": PRIMARY, "secondary": "{broken"}, "", schema(""), DEFAULTS),
    ("", "PRESERVE_CONFIGURATION= -7x", ALL, "", OLD, BOTH_ON),
    ("", "PRESERVE_CONFIGURATION=true", ALL, "", NEW, BOTH_ON),
    ("-x", "PRESERVE_CONFIGURATION=", ALL, "", schema("r2"), DEFAULTS),
    ("-l --reset --entry C 0", "", ALL, DEFAULTS + "export C=0\n\n", schema("r2", C="0"),
     DEFAULTS + "export C=0\n"),
    # No service: an entry, complete or not; no port, no host.
    ("--entry B 1", "HTTP_PORT=1", ALL, "", schema("r2", B="1"), "export A=on\nexport B=1\n"),
    ("--entry B ", "HTTP_PORT=1", ALL, "", NEW, BOTH_ON),
    ("--entry  off", "HTTP_PORT=1", ALL, "", NEW, BOTH_ON),
    ("-p 0", "HTTP_PORT=1", ALL, "", NEW, BOTH_ON),
    ("--port 1 --hostname no\thost", "", ALL, "", NEW, BOTH_ON),
    ("", "HTTP_PORT=abc", ALL, "", NEW, BOTH_ON),
    # Paths: the command line goes before the environment, where they end at a blank. Bad ones.
    ("-r primary -b build -s secondary -o script", "OUTPUT_PATH=x", ALL, "", NEW, BOTH_ON),
    ("", "OUTPUT_PATH=  script x", ALL, "", NEW, BOTH_ON),
    ("-l --secondary_schema_path no/dir --output_path no/dir --primary_schema_path . "
     "--build_info_path .", "", ALL, "\n", OLD, None),
    # An empty text, or one with a space, has no line in the script. All else stands as it is.
    ("", "", {"primary": PRIMARY, "secondary": schema("", **ODD)}, "", schema("", **ODD),
     "export AB=\"=\nexport Zeta=ü\nexport a=$x\t'\n\n"),
])
def test_run(daemon, arguments, variable, files, listing, secondary, script):
    run = daemon.run(*(arguments.split(" ") if arguments else []), variable=variable, **files)
    assert (run.stdout, run.stderr, run.returncode) == (listing, "", 0)
    assert (run.saved, run.script) == (secondary, script)


@pytest.mark.parametrize("arguments, options", [
    ("--entry A", 0), ("--entry A 1 2", 0), ("-p 80x", 0), ("--no", 0), ("-l --help --entry A 1", 10)])
def test_help_and_errors_touch_no_file(daemon, arguments, options):
    run = daemon.run(*arguments.split(" "))
    assert (run.returncode == 0, run.stderr == "", run.saved, run.script, run.stdout.count("\n  -")) == (
        options > 0, options > 0, None, None, options)
