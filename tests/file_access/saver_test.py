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
    # Replaced, with its owner and mode.
    Save(setup="cp old script; chown 12:34 script; chmod 4604 script",
         status="regular file 4604 12:34 1"),
    Save(setup=f"cp old {LONGEST}; ln -s {LONGEST} script", file=LONGEST),
    Save(setup="mkdir d; cp old d/f; ln -s f d/1; for n in 1 2 3 4; do ln -s $n d/$((n + 1)); done;"
         " ln -s $PWD/d/5 script", file="d/f"),
    Save(setup="cp old script; setfattr -n security.a script"),
    Save(setup="cp old script", shell='"$@" <&-'),  # the first descriptor is 0
    Save(setup="cp old script", shell='{ sleep 0.5; "$@" --list; } | :'),  # the reader is gone
    # Written in place: what a new file would not be.
    Save(setup="ln old script", file="old", replaced=False, status="regular file 644 0:0 2"),
    Save(shell='"$@" -o /proc/self/fd/5 5<>old', file="old", replaced=False),
    Save(setup="cp old script; setfattr -n security.a script; setfattr -n trusted.b script",
         replaced=False),
    Save(setup="mkdir d; cp old d/f; setfacl -d -m u:12:r d; ln -s d/f script", file="d/f",
         replaced=False),
    Save(setup="cp old script; mkdir .script.new", replaced=False),  # in the way
    Save(setup="mkfifo script", shell='cat script >read & "$@"; wait', file="read",
         status="regular file 640 0:0 1"),
    Save(setup="mknod script c 1 7", holds=None, replaced=False,
         status="character special file 644 0:0 1"),
    # Left as it was.
    Save(setup="cp old script", shell='ulimit -f 0; "$@"', holds=OLD, replaced=False),
], ids=lambda save: save.setup + save.shell)
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
    assert not left_overs(daemon)


def left_overs(daemon):
    return [path for path in daemon.dir.rglob(".*.new") if path.is_file()]


# A shortage and a failing disk end a save; what a rule of the place forbids is done another way.
SHORTAGES = "EDQUOT EFBIG EIO EMFILE ENFILE ENOMEM ENOSPC".split()
RULES = "EACCES EBUSY EINTR EINVAL ENAMETOOLONG ENOSYS EOPNOTSUPP EPERM EROFS EXDEV".split()
# Leaks cannot be looked for in a process that is traced.
STRACE = ["strace", "-qqo", "trace", "-E", "ASAN_OPTIONS=detect_leaks=0", "-e"]


@pytest.fixture
def traced(daemon):
    if len(daemon.command) > 1:
        pytest.skip("an emulator's system calls are its own")
    return daemon


def save_schema(daemon, old, option="trace=!%memory"):
    """Saves NEW_SCHEMA over `old`, or where no file is. Returns what the schema file then holds."""
    for path in [daemon.dir / "secondary", *left_overs(daemon)]:
        path.unlink(missing_ok=True)
    files = {"secondary": old} if old else {}
    return daemon.run("--entry", "A", "2", under=[*STRACE, option], **files).saved


def trace_save(daemon, old):
    """The system calls that save the schema, and for each how strace(1) lets it meet a fault."""
    assert save_schema(daemon, old) == NEW_SCHEMA
    calls = daemon.read("trace").splitlines()
    names = [call.split("(")[0] for call in calls]
    faults = [f"inject={name}:when={names[:i + 1].count(name)}:" for i, name in enumerate(names)]
    start, end = (i for i, call in enumerate(calls) if "O_DIRECTORY" in call)
    return calls[start:end], faults[start:end]


def find(calls, text):
    return next(i for i, call in enumerate(calls) if text in call)


@pytest.mark.parametrize("old", [OLD_SCHEMA, None], ids=["existing", "missing"])
def test_each_fault_leaves_the_old_file_or_the_new_one(traced, old):
    calls, faults = trace_save(traced, old)
    opens_target = find(calls, "O_WRONLY|O_CLOEXEC)")
    checks_target = opens_target + 1 if old else opens_target
    for i, call in enumerate(calls):
        name = call.split("(")[0]
        # What these tell can be done without; what comes after the renaming is too late.
        unchecked = (name in ("readlinkat", "read", "close") or "O_RDONLY|O_CLOEXEC)" in call or
                     i > find(calls, "renameat("))
        for error in SHORTAGES + RULES:
            fails = error in SHORTAGES or opens_target <= i <= checks_target
            if name == "write":
                fails = error != "EINTR"
            if name == "fsync":
                fails = error not in ("EINVAL", "EROFS")
            saved = save_schema(traced, old, faults[i] + f"error={error}")
            assert saved == (old if fails and not unchecked else NEW_SCHEMA), (call, error)
            assert not left_overs(traced) or "st_size=0" in call, (call, error)
        assert save_schema(traced, old, faults[i] + "signal=KILL") in (old, NEW_SCHEMA), call
        # The next save removes what is left, whether it changes anything or not.
        assert traced.run("--entry", "A", "2").saved == NEW_SCHEMA
        assert not left_overs(traced), call


def test_flushes_the_content_before_it_has_the_name(traced):
    calls, _ = trace_save(traced, OLD_SCHEMA)
    names = [call.split("(")[0] for call in calls]
    steps = ("flock", "write", "fchmod", "fsync", "renameat")
    assert [name for name in names if name in steps] == [*steps, "fsync"]
    assert "0600" in calls[find(calls, "O_EXCL")]  # nobody else reads it before it is written
    opened = [call for call in calls if "openat" in call and " = -1" not in call]
    assert len(opened) == names.count("close")


def test_content_that_is_there_is_not_written_again(traced):
    for name, content in [("secondary", NEW_SCHEMA), ("script", "export A=2\n")]:
        traced.write({name: content})
        os.utime(traced.dir / name, (0, 0))
    inodes = [(traced.dir / name).stat().st_ino for name in ("secondary", "script")]
    save = traced.run(under=[*STRACE, "trace=write,ftruncate,fsync,renameat"])
    assert (save.saved, save.script) == (NEW_SCHEMA, "export A=2\n")
    assert traced.read("trace") == ""
    assert all((traced.dir / name).stat().st_mtime > 0 for name in ("secondary", "script"))


def test_goes_on_where_a_short_write_ended(traced):
    calls, faults = trace_save(traced, OLD_SCHEMA)
    # The daemon is told that 7 bytes are written, which the kernel never sees.
    assert save_schema(traced, OLD_SCHEMA, faults[find(calls, "write(")] + "retval=7") == (
        NEW_SCHEMA[7:])


@pytest.mark.parametrize("meanwhile, saved", [
    ("mv secondary aside; mv other secondary", NEW_SCHEMA),
    ("rm secondary", NEW_SCHEMA),
    ('"$1" --entry A 3', schema("", A="3")),  # waits for the save that is under way
])
def test_another_change_during_a_save(traced, meanwhile, saved):
    traced.write(dict(secondary=OLD_SCHEMA, other=OLD))
    wait = "timeout 10 sh -c 'until grep -qs fchown trace; do :; done'"
    delay = [*STRACE, "inject=fsync:delay_enter=500000:when=1"]
    traced.run("--entry", "A", "2", under=[
        "sh", "-c", f'({wait}; shift {len(delay)}; {meanwhile}) & "$@"; wait', "sh", *delay])
    assert traced.read("secondary") == saved
    assert (traced.dir / "aside").exists() == ("aside" in meanwhile)
    assert not left_overs(traced)
