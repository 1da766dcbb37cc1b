"""What a save leaves behind: on all kinds of targets, and after each fault."""
import dataclasses
import os
import subprocess

import pytest
from conftest import schema

OLD = "what the target held before, longer than what it will hold\n"
NEW = "export A=1\n"
LONGEST = "f" * 255  # as long as a name can be
OLD_SCHEMA = schema("", A="1")
NEW_SCHEMA = schema("", A="2")


@dataclasses.dataclass
class Save:
    """A save to the file `script`. By default it makes a new file, owned by who runs the test."""

    setup: str = ":"  # shell commands that make the target, from a file `old`, which holds OLD
    shell: str = '"$@"'  # starts the daemon, whose command line is "$@"
    file: str = "script"  # the file to look at afterwards: what it holds,
    holds: str = NEW
    replaced: bool = True  # whether it is another file than before,
    status: str = "regular file 644 0:0 1"  # its type, mode, owner and number of links


@pytest.mark.skipif(os.geteuid() != 0, reason="owners, nodes and attributes need root")
@pytest.mark.parametrize("save", [
    Save(shell='umask 002; "$@"', status="regular file 664 0:0 1"),
    Save(setup="ln -s made script", file="made", status="regular file 640 0:0 1"),
    Save(setup="mkdir d; chattr +a d; ln -s d/made script", shell='"$@"; chattr -a d',
         file="d/made", status="regular file 640 0:0 1"),
    # Replaced, with its owner and mode.
    Save(setup="cp old script; chown 12:34 script; chmod 4604 script",
         status="regular file 4604 12:34 1"),
    Save(setup=f"cp old {LONGEST}; ln -s {LONGEST} script", file=LONGEST),
    Save(setup="mkdir d; cp old d/f; ln -s f d/hop; ln -s $PWD/d/hop script", file="d/f"),
    Save(setup="cp old script", shell='"$@" <&-'),  # the first descriptor is 0
    # Written in place: what a new file would not be.
    Save(setup="ln old script", file="old", replaced=False, status="regular file 644 0:0 2"),
    Save(shell='"$@" -o /proc/self/fd/5 5<>old', file="old", replaced=False),
    Save(setup="cp old script; setfacl -m u:12:r script", replaced=False),
    Save(setup="mkdir d; cp old d/f; setfacl -d -m u:12:r d; ln -s d/f script", file="d/f",
         replaced=False),
    Save(setup="mkdir d; cp old d/f; ln -s d/f script; chattr +a d", shell='"$@"; chattr -a d',
         file="d/f", replaced=False),
    Save(setup="mknod script c 1 7", holds=None, replaced=False,
         status="character special file 644 0:0 1"),
], ids=lambda save: save.setup)
def test_target(daemon, save):
    path = daemon.dir / save.file
    daemon.run(primary='[{"key":"A","value":"1"}]', old=OLD)
    (daemon.dir / "script").unlink()
    subprocess.run(["sh", "-ec", save.setup], cwd=daemon.dir, check=True, umask=0o022)
    before = path.stat().st_ino if path.exists() else None
    run = daemon.run(under=["sh", "-c", save.shell, "sh"])
    assert (run.returncode, run.stdout, run.stderr) == (0, "", "")
    assert daemon.read(save.file) == save.holds
    assert (path.stat().st_ino != before) == save.replaced
    stat = ["stat", "--format", "%F %a %u:%g %h", path]
    assert subprocess.check_output(stat, text=True).strip() == save.status
    assert not list(daemon.dir.rglob(".feature_toggled*"))


# A shortage and a failing disk end a save; what a rule of the place forbids is done another way.
SHORTAGES = "EDQUOT EFBIG EIO ENOMEM ENOSPC".split()
RULES = ("EACCES EBUSY EINTR EINVAL EMFILE ENAMETOOLONG ENOSYS EOPNOTSUPP EPERM EROFS "
         "EXDEV").split()
UNCHECKED = ["gettid", "readlinkat", "statx", "sync_file_range"]
# Leaks cannot be looked for in a process that is traced.
STRACE = ["strace", "-qqo", "trace", "-E", "ASAN_OPTIONS=detect_leaks=0", "-e"]


@pytest.fixture
def traced(daemon):
    if len(daemon.command) > 1:
        pytest.skip("an emulator's system calls are its own")
    return daemon


def save_schema(daemon, old, option="trace=!%memory"):
    """Saves NEW_SCHEMA over `old`, or where no file is. Returns what the schema file then holds."""
    (daemon.dir / "secondary").unlink(missing_ok=True)
    files = {"secondary": old} if old else {}
    return daemon.run("--entry", "A", "2", under=[*STRACE, option], **files).saved


def trace_save(daemon, old):
    """The system calls that save the schema, and for each how strace(1) lets it meet a fault."""
    assert save_schema(daemon, old) == NEW_SCHEMA
    calls = daemon.read("trace").splitlines()
    names = [call.split("(")[0] for call in calls]
    faults = [f"inject={name}:when={names[:i + 1].count(name)}:" for i, name in enumerate(names)]
    start, end = (i for i, call in enumerate(calls) if "O_WRONLY|O_CLOEXEC)" in call)
    return calls[start:end], faults[start:end]


def find(calls, text):
    return next(i for i, call in enumerate(calls) if text in call)


@pytest.mark.parametrize("old", [OLD_SCHEMA, None], ids=["existing", "missing"])
def test_each_fault_leaves_the_old_file_or_the_new_one(traced, old):
    calls, faults = trace_save(traced, old)
    last = find(calls, "renameat(" if old else "AT_SYMLINK_FOLLOW")
    for i, call in enumerate(calls):
        name = call.split("(")[0]
        ends = i < (2 if old else 1) or name in ("write", "fcntl", "close")
        unchecked = name in UNCHECKED or "O_PATH" in call
        before = list(traced.dir.glob(".feature_toggled*"))
        for error in SHORTAGES + RULES:
            fails = (ends and (name, error) != ("write", "EINTR")) or (
                error in SHORTAGES and not unchecked)
            saved = save_schema(traced, old, faults[i] + f"error={error}")
            assert saved == (old if fails and i <= last else NEW_SCHEMA), (call, error)
            assert list(traced.dir.glob(".feature_toggled*")) == before, (call, error)
            if "O_TMPFILE" in call and error in RULES:
                assert "O_EXCL" in traced.read("trace"), "a file with a name is not tried"
        # Siblings that are left stay here, and stand in nobody's way.
        assert save_schema(traced, old, faults[i] + "signal=KILL") in (old, NEW_SCHEMA), call
        if name not in ("linkat", "renameat"):
            assert list(traced.dir.glob(".feature_toggled*")) == before, call


def test_closes_files_and_writes_data_before_the_name(traced):
    calls, _ = trace_save(traced, OLD_SCHEMA)
    before_name = "".join(calls[find(calls, "write("):find(calls, "linkat(AT")])
    assert "close(" in before_name and "sync_file_range(" in before_name
    opened = [call for call in calls if call.startswith(("openat(", "fcntl("))]
    assert len(opened) == "".join(calls).count("close(")


def test_goes_on_where_a_short_write_ended(traced):
    calls, faults = trace_save(traced, OLD_SCHEMA)
    # The daemon is told that 7 bytes are written, which the kernel never sees.
    assert save_schema(traced, OLD_SCHEMA, faults[find(calls, "write(")] + "retval=7") == (
        NEW_SCHEMA[7:])


def test_follows_a_file_that_is_moved(traced):
    traced.write(dict(secondary=OLD_SCHEMA, other=OLD))
    move = ("timeout 10 sh -c 'until grep -qs fchown trace; do :; done'; "
            "mv secondary aside; mv other secondary")
    traced.run("--entry", "A", "2", under=[
        "sh", "-c", f'({move}) & "$@"', "sh", *STRACE, "inject=fchmod:delay_enter=500000:when=1"])
    assert traced.read("aside") == NEW_SCHEMA
    assert traced.read("secondary") == OLD
