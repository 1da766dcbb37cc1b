"""Runs that do not serve: arguments, environment and files in; output, status and files out."""
import pytest
from conftest import schema

PRIMARY = '[{"key":"B","value":"off","options":["off","on"]},{"key":"A","value":"on"}]'
OLD = ('{"git_revision":"r1","variables":['
       '{"key":"B","value":"on","description":"d","options":["o"]}]}')
NEW = OLD.replace("r1", "r2")
BOTH_ON, DEFAULTS = "export A=on\nexport B=on\n", "export A=on\nexport B=off\n"
ODD = {"a": "$x\t'\n", "Zeta": "ü", "AB": '"=', "A": "two words", "B": "", "": "x", "C D": "x"}


RUNS = {  # name: what is special about the run
    "--reset and --entry": dict(arguments=["--reset", "--entry", "C", "0"],
                                saved=schema("r2", C="0"), script=DEFAULTS + "export C=0\n"),
    "build without a revision": dict(build="{}", saved=OLD),
    "revision preserved": dict(env={"PRESERVE_CONFIGURATION": " -99999999999x"}, saved=OLD),
    "not preserved by 0x10": dict(env={"PRESERVE_CONFIGURATION": "0x10"}),
    # These do not serve, although most have a port.
    "entry": dict(env={"HTTP_PORT": "65535"}, arguments=["--entry", "B", "off"],
                  saved=NEW.replace('"on"', '"off"'), script=DEFAULTS),
    "entry without a value": dict(env={"HTTP_PORT": "65535"}, arguments=["--entry", "B", ""]),
    "entry without a key": dict(env={"HTTP_PORT": "65535"}, arguments=["--entry", "", "off"]),
    "port 0": dict(env={"HTTP_PORT": "65535"}, arguments=["-p", "0"]),
    "unknown host": dict(arguments=["--port", "65535", "--hostname", "no\thost"]),
    # Paths on the command line override the environment, where a path ends at a blank.
    "options override": dict(env={"OUTPUT_PATH": "x"}, arguments=[
        "-r", "primary", "-b", "build", "-s", "secondary", "-o", "script"]),
    "blanks around a path": dict(env={"OUTPUT_PATH": "  script x"}),
    "no such directories": dict(arguments="-l -s no/dir -o no/dir -r . -b .".split(),
                                listing="\n", saved=OLD, script=None),
    "large file in pieces": dict(primary=" " * 9_000_000 + PRIMARY, arguments=["-r", "/dev/stdin"],
                                 shell='{ head -c 9; sleep 0.1; cat; } <primary | "$@"'),
    "nothing to publish": dict(primary="", secondary="", shell='echo old >script; "$@"',
                               saved=schema("r2"), script=""),
    # Texts that are empty or have a space get no line. Others are written unchanged.
    "odd texts": dict(secondary=schema("r2", **ODD), saved=schema("r2", **ODD),
                      script="export AB=\"=\nexport Zeta=ü\nexport a=$x\t'\n\n"),
}


@pytest.mark.parametrize("row", RUNS.values(), ids=RUNS.keys())
def test_run(daemon, row):
    def check(arguments=(), env={}, shell='"$@"', primary=PRIMARY, secondary=OLD,
              build='{"git_revision":"r2"}', listing="", saved=NEW, script=BOTH_ON):
        daemon.env.update({f"FEATURE_TOGGLE_{name}": value for name, value in env.items()})
        run = daemon.run(*arguments, under=["sh", "-c", shell, "sh"],
                         primary=primary, secondary=secondary, build=build)
        assert (run.stdout, run.stderr, run.returncode) == (listing, "", 0)
        assert (run.saved, run.script) == (saved, script)

    check(**row)


@pytest.mark.parametrize("arguments", ["--entry A", "--entry A 1 2", "-p 8x", "--no", "-h -l"])
def test_errors_and_help_touch_no_file(daemon, arguments):
    run = daemon.run(*arguments.split(" "))
    assert (run.returncode > 0) == ("-h" not in arguments)
    assert (run.saved, run.script) == (None, None)
