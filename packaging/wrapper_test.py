"""with_feature_toggles, in dash and in BusyBox."""
import os
import pathlib
import subprocess

import pytest

WRAPPER = pathlib.Path(__file__).parent / "with_feature_toggles"
MADE_BY_SHELLS = {b"PWD", b"OLDPWD", b"SHLVL"}
ANY_BYTE = bytes(byte for byte in range(1, 256) if byte != ord("\n"))

# What the export script holds, and the variables that the program gets by it.
SCRIPTS = {
    "empty": (b"", {}),
    "plain": (b"export A=1\nexport B_2=two\n", {b"A": b"1", b"B_2": b"two"}),
    "quotes": (b"export A=it's\nexport B=\"b\n", {b"A": b"it's", b"B": b'"b'}),
    "expansions": (b"export A=$HOME${A}\nexport B=~\nexport C=*\n",
                   {b"A": b"$HOME${A}", b"B": b"~", b"C": b"*"}),
    "commands": (b"export A=$(>ran)\nexport B=`>ran`\nexport C=;>ran\n",
                 {b"A": b"$(>ran)", b"B": b"`>ran`", b"C": b";>ran"}),
    "backslashes": (b"export A=\\\nexport B=\\n\\\\\\\nexport C=1\n",
                    {b"A": b"\\", b"B": b"\\n\\\\\\", b"C": b"1"}),
    "blanks": (b"export A=\ta\t\nexport B=a b  \nexport C= \n",
               {b"A": b"\ta\t", b"B": b"a b  ", b"C": b" "}),
    "equals signs": (b"export A==\nexport B=C=1\n", {b"A": b"=", b"B": b"C=1"}),
    "any byte": (b"export A=%s\n" % ANY_BYTE, {b"A": ANY_BYTE}),
    "keys that are no identifiers": (
        b"export B-C=1\nexport 1A=1\nexport =1\nexport \xc3\x84=1\nexport A\t=1\nexport -n=1\n",
        {}),
    "other lines": (b"A=1\n export A=1\nexport A\n>ran\n# export A=1\n\nexport B=2\n",
                    {b"B": b"2"}),
    "a value of two lines": (b"export A=1\n>ran\n", {b"A": b"1"}),
    "no line break at the end": (b"export A=1\nexport B=2", {b"A": b"1", b"B": b"2"}),
    "the same key again": (b"export A=1\nexport A=2\n", {b"A": b"2"}),
    "what a shell needs or guards": (
        b"export IFS=x\nexport UID=7\nexport PPID=7\nexport OPTIND=x\nexport LC_ALL=x\n",
        {b"IFS": b"x", b"UID": b"7", b"PPID": b"7", b"OPTIND": b"x", b"LC_ALL": b"x"}),
    "many": (b"".join(b"export KEY_%d=%d\n" % (i, i) for i in range(2000)),
             {b"KEY_%d" % i: b"%d" % i for i in range(2000)}),
}


@pytest.fixture(params=["dash", "busybox"])
def wrap(request, tmp_path):
    """Yields a function that runs the wrapper with nothing on its path but one shell's programs."""
    shell = tmp_path / "bin/sh"
    shell.parent.mkdir()
    for name in ["sed", "env"]:
        target = "/bin/busybox" if request.param == "busybox" else f"/usr/bin/{name}"
        (shell.parent / name).symlink_to(target)
    shell.symlink_to(f"/bin/{request.param}")
    (tmp_path / "work").mkdir()

    def run(script, *command, settings=None):
        path = tmp_path / "script"
        if script is not None:
            path.write_bytes(script)
        env = {"PATH": str(shell.parent), "FEATURE_TOGGLE_OUTPUT_PATH": str(path)}
        wrapper = WRAPPER.read_text()
        if settings is not None:
            del env["FEATURE_TOGGLE_OUTPUT_PATH"]
            assert "/etc/default/feature_toggled" in wrapper
            wrapper = wrapper.replace("/etc/default/feature_toggled", str(tmp_path / "settings"))
            (tmp_path / "settings").write_text(settings.replace("SCRIPT", str(path)))
        (tmp_path / "wrapper").write_text(wrapper)
        run = subprocess.run([shell, tmp_path / "wrapper", *command], env=env,
                             cwd=tmp_path / "work", capture_output=True, check=False)
        assert not os.listdir(tmp_path / "work"), "something of the script was run"
        return run, {os.fsencode(name) for name in env}

    return run


@pytest.mark.parametrize("name", SCRIPTS)
def test_variables(wrap, name):
    script, expected = SCRIPTS[name]
    run, callers = wrap(script, "/usr/bin/env", "-0")
    assert run.stderr == b""
    variables = dict(entry.split(b"=", 1) for entry in run.stdout.split(b"\0")[:-1])
    published = variables.keys() - MADE_BY_SHELLS - callers
    assert {name: variables[name] for name in published} == expected


# What the service's settings hold, and which export script is read, SCRIPT being one that is there.
DEFAULT = "/var/rwfs2/feature_toggle.sh"
SETTINGS = {
    "not set": ("#FEATURE_TOGGLE_OUTPUT_PATH=SCRIPT\n", DEFAULT),
    "empty": ("FEATURE_TOGGLE_OUTPUT_PATH=\n", DEFAULT),
    "set": ("A=1\n FEATURE_TOGGLE_OUTPUT_PATH=SCRIPT\nB=2\n", "SCRIPT"),
    "set twice": ("FEATURE_TOGGLE_OUTPUT_PATH=/1\nFEATURE_TOGGLE_OUTPUT_PATH=SCRIPT\n", "SCRIPT"),
    "quotes": ('FEATURE_TOGGLE_OUTPUT_PATH="SCRIPT"\n', "SCRIPT"),
    "a blank": ("FEATURE_TOGGLE_OUTPUT_PATH='SCRIPT b'", "SCRIPT"),
    "a command": (">ran\nFEATURE_TOGGLE_OUTPUT_PATH=/$(>ran)\n", "/$(>ran)"),
}


@pytest.mark.parametrize("name", SETTINGS)
def test_settings(wrap, name):
    settings, path = SETTINGS[name]
    run, _ = wrap(b"export A=1\n", "/bin/sh", "-c", "echo $A", settings=settings)
    if path == "SCRIPT":
        assert (run.stdout, run.stderr) == (b"1\n", b"")
    else:
        assert (run.stdout, path in run.stderr.decode()) == (b"", True), run.stderr


# What the export script holds, what is run, and how that ends.
RUNS = {
    "ends as the program does": (b"", ["/bin/sh", "-c", 'exit "$2"', "sh", "a b", "3"], 3, b""),
    "no such program": (b"export PATH=/nowhere\n", ["nothing"], 127,
                        b"with_feature_toggles: nothing: not found\n"),
    "on the path that a toggle sets": (b"export PATH=/bin\n", ["ls"], 0, b""),
    "no program but a directory": (b"", ["/"], 126, b"denied"),
    "no export script": (
        None, ["/bin/true"], 66, b"with_feature_toggles: the export script cannot be read\n"),
    "no program": (b"", [], 64, b"Usage: "),
    "asked for help": (None, ["--help"], 0, b"Usage: "),
    "asked for help briefly": (None, ["-h"], 0, b"Usage: "),
    "env would take it for a variable": (b"", ["A=1"], 64, b"Usage: "),
    "env would take it for an option": (b"", ["-i"], 127, b"-i: not found"),
}


@pytest.mark.parametrize("name", RUNS)
def test_status(wrap, name):
    script, command, status, message = RUNS[name]
    run, _ = wrap(script, *command)
    said = run.stderr if status else run.stdout
    assert (run.returncode, message in said) == (status, True), said
