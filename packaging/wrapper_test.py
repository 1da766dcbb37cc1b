"""with_feature_toggles, run by dash and by BusyBox."""
import os
import pathlib
import subprocess

import pytest

WRAPPER = (pathlib.Path(__file__).parent / "with_feature_toggles").read_text()
SETTINGS_FILE = "/etc/default/feature_toggled"
NOT_OF_THE_SCRIPT = [b"PATH", b"PWD", b"OLDPWD", b"SHLVL"]
ANY_BYTE = bytes(byte for byte in range(1, 256) if byte != ord("\n"))


@pytest.fixture(params=["dash", "busybox"])
def wrap(request, tmp_path):
    """A function that runs the wrapper with only a shell, sed and env on its path."""
    programs = tmp_path / "bin"
    programs.mkdir()
    for name in ["sed", "env"]:
        target = "/bin/busybox" if request.param == "busybox" else f"/usr/bin/{name}"
        (programs / name).symlink_to(target)
    (programs / "sh").symlink_to(f"/bin/{request.param}")
    (tmp_path / "work").mkdir()

    def run(script, *command, settings="FEATURE_TOGGLE_OUTPUT_PATH=SCRIPT\n", **env):
        if script is not None:
            (tmp_path / "script").write_bytes(script)
        (tmp_path / "settings").write_text(settings.replace("SCRIPT", f"{tmp_path}/script"))
        assert SETTINGS_FILE in WRAPPER and "/var/rwfs2/" in WRAPPER
        wrapper = WRAPPER.replace(SETTINGS_FILE, f"{tmp_path}/settings")
        wrapper = wrapper.replace("/var/rwfs2/", "/nowhere/")  # which this machine may have
        run = subprocess.run([programs / "sh", "-c", wrapper, "wrapper", *command],
                             env={"PATH": str(programs), **env}, cwd=tmp_path / "work",
                             capture_output=True, check=False)
        assert not os.listdir(tmp_path / "work"), "a command of the script was run"
        return run

    return run


@pytest.mark.parametrize("script, expected", [
    (b"", {}),
    (b"export A=1\nexport B_2=2\nexport A=no line break", dict(A=b"no line break", B_2=b"2")),
    (b"export A=$HOME${A}\nexport B=~\nexport C=*\n", dict(A=b"$HOME${A}", B=b"~", C=b"*")),
    (b"export A=$(>ran)\nexport B=`>ran`\nexport C=;>ran\n",
     dict(A=b"$(>ran)", B=b"`>ran`", C=b";>ran")),
    (b"export A=it's\nexport B=\"\nexport C=\\\nexport D=\\n\\\\\n",
     dict(A=b"it's", B=b'"', C=b"\\", D=b"\\n\\\\")),
    (b"export A=\ta\t\nexport B=a b  \nexport C= \nexport D==\n",
     dict(A=b"\ta\t", B=b"a b  ", C=b" ", D=b"=")),
    (b"export A=%s\n" % ANY_BYTE, dict(A=ANY_BYTE)),
    (b"export B-C=1\nexport 1A=1\nexport =1\nexport \xc3\x84=1\nexport A\t=1\nexport -n=1\n", {}),
    (b"A=1\n export A=1\nexport A\n>ran\n# export A=1\n\nexport B=2\n", dict(B=b"2")),
    (b"export IFS=x\nexport UID=7\nexport PPID=7\nexport OPTIND=x\nexport LC_ALL=x\n",
     dict(IFS=b"x", UID=b"7", PPID=b"7", OPTIND=b"x", LC_ALL=b"x")),
])
def test_variables(wrap, script, expected):
    run = wrap(script, "/usr/bin/env", "-0")
    assert run.stderr == b""
    variables = dict(entry.split(b"=", 1) for entry in run.stdout.split(b"\0")[:-1])
    for name in NOT_OF_THE_SCRIPT:
        variables.pop(name, None)
    assert variables == {name.encode(): value for name, value in expected.items()}


# The content of the settings file, and the export script that is read; only SCRIPT exists.
@pytest.mark.parametrize("settings, script", [
    ("#FEATURE_TOGGLE_OUTPUT_PATH=SCRIPT\n", "/nowhere/feature_toggle.sh"),
    ("FEATURE_TOGGLE_OUTPUT_PATH=\n", "/nowhere/feature_toggle.sh"),
    ("A=1\n FEATURE_TOGGLE_OUTPUT_PATH=SCRIPT\nB=2\n", "SCRIPT"),
    ("FEATURE_TOGGLE_OUTPUT_PATH=/1\nFEATURE_TOGGLE_OUTPUT_PATH=SCRIPT\n", "SCRIPT"),
    ('FEATURE_TOGGLE_OUTPUT_PATH="SCRIPT"\n', "SCRIPT"),
    ("FEATURE_TOGGLE_OUTPUT_PATH='SCRIPT b'", "SCRIPT"),
    (">ran\nFEATURE_TOGGLE_OUTPUT_PATH=/$(>ran)\n", "/$(>ran)"),
])
def test_settings(wrap, settings, script):
    run = wrap(b"export A=1\n", "/bin/sh", "-c", "echo $A", settings=settings)
    assert run.stdout == (b"1\n" if script == "SCRIPT" else b"")
    assert (script in run.stderr.decode()) == (script != "SCRIPT")


def test_environment_goes_before_settings(wrap, tmp_path):
    (tmp_path / "other").write_text("export A=2\n")
    run = wrap(b"export A=1\n", "/bin/sh", "-c", "echo $A",
               FEATURE_TOGGLE_OUTPUT_PATH=f"{tmp_path}/other")
    assert run.stdout == b"2\n"


# The export script, the command, its exit status, and a part of its message.
@pytest.mark.parametrize("script, command, status, message", [
    (b"", ["/bin/sh", "-c", 'exit "$2"', "sh", "a b", "3"], 3, b""),
    (b"export PATH=/bin\n", ["ls"], 0, b""),
    (b"export PATH=/nowhere\n", ["none"], 127, b"with_feature_toggles: none: not found\n"),
    (None, ["/bin/true"], 66, b"with_feature_toggles: the export script cannot be read\n"),
    (b"", ["-i"], 127, b"-i: not found"),  # env would take it for an option
    (b"", ["A=1"], 64, b"Usage: "),        # or for a variable
    (b"", [], 64, b"Usage: "),
    (None, ["--help"], 0, b"Usage: "),
])
def test_status(wrap, script, command, status, message):
    run = wrap(script, *command)
    assert run.returncode == status
    assert message in (run.stderr if status else run.stdout)
