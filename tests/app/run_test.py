"""Runs that do not serve: arguments, environment and files in; output, status and files out."""
import pytest
from conftest import schema

PRIMARY = '[{"key":"B","value":"off","options":["off","on"]},{"key":"A","value":"on"}]'
OLD = ('{"git_revision":"r1","variables":['
       '{"key":"B","value":"on","description":"d","options":["o"]}]}')
NEW = OLD.replace("r1", "r2")
BOTH_ON, DEFAULTS = "export A=on\nexport B=on\n", "export A=on\nexport B=off\n"
ODD = {"a": "$x\t'\n", "Zeta": "ü", "AB": '"=', "A": "two words", "B": "", "": "x", "C D": "x"}


@pytest.mark.parametrize("row", [
    dict(arguments="--list", listing=BOTH_ON + "\n"),
    dict(arguments="--reset --entry C 0", saved=schema("r2", C="0"),
         script=DEFAULTS + "export C=0\n"),
    dict(build="{}", saved=OLD),
    dict(variable="PRESERVE_CONFIGURATION= -7x", saved=OLD),
    dict(variable="PRESERVE_CONFIGURATION=true"),
    # No service: an entry, complete or not; no port, no host.
    dict(variable="HTTP_PORT=65535", arguments="--entry B off", script=DEFAULTS,
         saved=NEW.replace('"on"', '"off"')),
    dict(variable="HTTP_PORT=65535", arguments="--entry B "),
    dict(variable="HTTP_PORT=65535", arguments="--entry  off"),
    dict(variable="HTTP_PORT=65535", arguments="-p 0"),
    dict(arguments="--port 65535 --hostname no\thost"),
    # Of paths, the command line goes before the environment, where they end at a blank.
    dict(variable="OUTPUT_PATH=x", arguments="-r primary -b build -s secondary -o script"),
    dict(variable="OUTPUT_PATH=  script x"),
    dict(arguments="-l --secondary_schema_path no/dir --output_path no/dir "
         "--primary_schema_path . --build_info_path .", listing="\n", saved=OLD, script=None),
    # A primary schema that comes in pieces, and is large; an empty script.
    dict(primary=" " * 9_000_000 + PRIMARY, arguments="-r /dev/stdin",
         shell='{ head -c 9; sleep 0.1; cat; } <primary | "$@"'),
    dict(primary="", secondary="", shell='echo old >script; "$@"', saved=schema("r2"), script=""),
    # An empty text, or one with a space, has no line in the script. All else stands as it is.
    dict(secondary=schema("r2", **ODD), saved=schema("r2", **ODD),
         script="export AB=\"=\nexport Zeta=ü\nexport a=$x\t'\n\n"),
])
def test_run(daemon, row):
    def check(variable="=", arguments=None, secondary=OLD, build='{"git_revision":"r2"}',
              primary=PRIMARY, shell='"$@"', listing="", saved=NEW, script=BOTH_ON):
        run = daemon.run(*arguments.split(" ") if arguments else (),
                         under=["env", "FEATURE_TOGGLE_" + variable, "sh", "-c", shell, "sh"],
                         primary=primary, secondary=secondary, build=build)
        assert (run.stdout, run.stderr, run.returncode) == (listing, "", 0)
        assert (run.saved, run.script) == (saved, script)

    check(**row)


@pytest.mark.parametrize("arguments", ["--entry A", "--entry A 1 2", "-p 8x", "--no", "-h -l"])
def test_errors_and_help_touch_no_file(daemon, arguments):
    run = daemon.run(*arguments.split(" "))
    assert (run.returncode > 0) == ("-h" not in arguments)
    assert (run.saved, run.script) == (None, None)
