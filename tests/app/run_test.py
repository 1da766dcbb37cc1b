"""Runs that do not serve: arguments, environment and files in; output, status and files out."""
import pytest
from conftest import schema

PRIMARY = '{"variables":[{"key":"B","value":"off","options":["off","on"]},{"key":"A","value":"on"}]}'
OLD, NEW = schema("r1", B="on"), schema("r2", B="on")
ALL = (PRIMARY, OLD, '{"git_revision":"r2"}')
BOTH_ON, DEFAULTS = "export A=on\nexport B=on\n", "export A=on\nexport B=off\n"
ODD = {"a": "$x\t'\n", "Zeta": "ü", "AB": '"=', "A": "two words", "B": "", "": "x", "C D": "x"}


@pytest.mark.parametrize("arguments, environment, files, listing, secondary, script", [
    ("-l", "", (None, None, None), "\n", schema(""), ""),
    ("", "", ALL, "", NEW, BOTH_ON),
    ("--list", "", ALL, BOTH_ON + "\n", NEW, BOTH_ON),
    ("", "", (None, OLD, '{"git_revision":""}'), "", OLD, "export B=on\n"),
    ("", "", (PRIMARY, "{broken", None), "", schema(""), DEFAULTS),
    ("", "PRESERVE_CONFIGURATION= -7x", ALL, "", OLD, BOTH_ON),
    ("", "PRESERVE_CONFIGURATION=true", ALL, "", NEW, BOTH_ON),
    ("", "PRESERVE_CONFIGURATION=", ALL, "", NEW, BOTH_ON),
    ("-x", "", ALL, "", schema("r2"), DEFAULTS),
    ("--entry C 0", "HTTP_PORT=1", ALL, "", schema("r2", B="on", C="0"), BOTH_ON + "export C=0\n"),
    ("-lx --entry B 1", "", ALL, "export A=on\nexport B=1\n\n", schema("r2", B="1"),
     "export A=on\nexport B=1\n"),
    ("--entry B ", "HTTP_PORT=1", ALL, "", NEW, BOTH_ON),
    ("--entry  off", "HTTP_PORT=1", ALL, "", NEW, BOTH_ON),
    # No service: no such port, host or number.
    ("-p 0", "HTTP_PORT=1", ALL, "", NEW, BOTH_ON),
    ("--port 1 --hostname no\thost", "", ALL, "", NEW, BOTH_ON),
    ("", "HTTP_PORT=abc", ALL, "", NEW, BOTH_ON),
    # Paths: the command line goes before the environment, where they end at a blank. Bad ones.
    ("-r primary -b build -s secondary -o script", "OUTPUT_PATH=x", ALL, "", NEW, BOTH_ON),
    ("", "OUTPUT_PATH=  script x", ALL, "", NEW, BOTH_ON),
    ("-l --secondary_schema_path no/dir --output_path no/dir --primary_schema_path . "
     "--build_info_path .", "", ALL, "\n", OLD, None),
    # An empty text, or one with a space, has no line in the script. All else stands as it is.
    ("", "", (PRIMARY, schema("", **ODD), None), "", schema("", **ODD),
     "export AB=\"=\nexport Zeta=ü\nexport a=$x\t'\n\n"),
])
def test_run(daemon, arguments, environment, files, listing, secondary, script):
    daemon.write(primary=files[0], secondary=files[1], build=files[2])
    run = daemon.run(*(arguments.split(" ") if arguments else []), environment=environment)
    assert (run.stdout, run.stderr, run.returncode) == (listing, "", 0)
    assert (daemon.read("secondary"), daemon.read("script")) == (secondary, script)


def test_help_and_errors_touch_no_file(daemon):
    for arguments in (["--entry", "A"], ["--entry", "A", "1", "2"], ["-p", "80x"], ["--nonsense"]):
        run = daemon.run(*arguments)
        assert run.returncode != 0 and run.stderr and not run.stdout
    run = daemon.run("-l", "--help", "--entry", "A", "1")
    assert (run.returncode, run.stderr, run.stdout.count("\n  -")) == (0, "", 10)
    assert (daemon.read("secondary"), daemon.read("script")) == (None, None)
