"""Runs that do not serve: arguments, environment and files in; output, status and files out."""
import pytest
from conftest import schema

PRIMARY = '[{"key":"B","value":"off","options":["off","on"]},{"key":"A","value":"on"}]'
OLD = '{"git_revision":"r1","variables":[{"key":"B","value":"on","description":"d","options":["o"]}]}'
NEW = OLD.replace("r1", "r2")
BOTH_ON, DEFAULTS = "export A=on\nexport B=on\n", "export A=on\nexport B=off\n"
ODD = {"a": "$x\t'\n", "Zeta": "ü", "AB": '"=', "A": "two words", "B": "", "": "x", "C D": "x"}


def check(daemon, arguments="", variable="", files=None, listing="", saved=NEW, script=BOTH_ON):
    usual_files = {"primary": PRIMARY, "secondary": OLD, "build": '{"git_revision":"r2"}'}
    run = daemon.run(*arguments.split(" ") if arguments else (), **{**usual_files, **(files or {})},
                     under=["env", f"FEATURE_TOGGLE_{variable or '='}"])
    assert (run.stdout, run.stderr, run.returncode) == (listing, "", 0)
    assert (run.saved, run.script) == (saved, script)


@pytest.mark.parametrize("row", [
    dict(arguments="--list", listing=BOTH_ON + "\n"),
    dict(arguments="-l", files=dict(primary="", secondary="", build=""),
         listing="\n", saved=schema(""), script=""),
    dict(files=dict(build='{"git_revision":""}'), saved=OLD),
    dict(variable="PRESERVE_CONFIGURATION= -7x", saved=OLD),
    dict(variable="PRESERVE_CONFIGURATION=true"),
    dict(arguments="-x", saved=schema("r2"), script=DEFAULTS),
    dict(arguments="--reset --entry C 0", saved=schema("r2", C="0"),
         script=DEFAULTS + "export C=0\n"),
    # No service: an entry, complete or not; no port, no host.
    dict(arguments="--entry B off", variable="HTTP_PORT=65535",
         saved=NEW.replace('"on"', '"off"'), script=DEFAULTS),
    dict(arguments="--entry B ", variable="HTTP_PORT=65535"),
    dict(arguments="--entry  off", variable="HTTP_PORT=65535"),
    dict(arguments="-p 0", variable="HTTP_PORT=65535"),
    dict(arguments="--port 65535 --hostname no\thost"),
    dict(arguments="-n no\thost", variable="HTTP_PORT=65535"),
    # Of paths, the command line goes before the environment, where they end at a blank.
    dict(arguments="-r primary -b build -s secondary -o script", variable="OUTPUT_PATH=x"),
    dict(variable="OUTPUT_PATH=  script x"),
    dict(arguments="-l --secondary_schema_path no/dir --output_path no/dir "
         "--primary_schema_path . --build_info_path .", listing="\n", saved=OLD, script=None),
    # An empty text, or one with a space, has no line in the script. All else stands as it is.
    dict(files=dict(secondary=schema("r2", **ODD)), saved=schema("r2", **ODD),
         script="export AB=\"=\nexport Zeta=ü\nexport a=$x\t'\n\n"),
    # Texts end at a NUL.
    dict(files=dict(secondary=r'[{"key":"K\u0000x","value":"v\u0000w"}]'),
         saved=schema("r2", K="v"), script=DEFAULTS + "export K=v\n"),
])
def test_run(daemon, row):
    check(daemon, **row)


@pytest.mark.parametrize("arguments", ["--entry A", "--entry A 1 2", "-p 80x", "--no"])
def test_error(daemon, arguments):
    run = daemon.run(*arguments.split(" "))
    assert (run.returncode != 0, run.stdout, run.stderr != "") == (True, "", True)
    assert (run.saved, run.script) == (None, None)


def test_help(daemon):
    run = daemon.run("--list", "-h", "--entry", "A", "1")
    assert (run.returncode, run.stderr, run.saved, run.script) == (0, "", None, None)
    assert run.stdout.count("\n  -") == 10
