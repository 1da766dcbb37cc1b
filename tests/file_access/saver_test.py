"""What a save leaves behind: on all kinds of targets, and after each fault."""
import dataclasses
import os
import pathlib
import subprocess
import time

import pytest
from conftest import schema

OLD = "what the target held before, longer than what it will hold\n"
NEW = "export A=1\n"
LONGEST = "f" * 255  # as long as a name can be


@dataclasses.dataclass
class Save:
    """A save to the file `script`. By default it makes a new file, owned by who runs the test."""

    setup: str = ":"  # shell commands that make the target, from a file `old`, which holds OLD
    shell: str = 'exec "$@"'  # starts the daemon, whose command line is "$@"
    file: str = "script"  # the file to look at afterwards: what it holds,
    holds: str = NEW
    replaced: bool = True  # whether it is another file than before,
    status: str = "regular file 644 0:0 1"  # its type, mode, owner and number of links


@pytest.mark.skipif(os.geteuid() != 0, reason="device nodes, owners and mounts need root")
@pytest.mark.parametrize("save", [
    Save(status="regular file 640 0:0 1"),
    Save(setup="ln -s made script", file="made", status="regular file 640 0:0 1"),
    Save(setup="mkdir d; chattr +a d; ln -s d/made script", file="d/made",
         status="regular file 640 0:0 1"),
    # Replaced, with its owner and mode.
    Save(setup="cp old script; chown 12:34 script; chmod 4604 script",
         status="regular file 4604 12:34 1"),
    Save(setup=f"cp old {LONGEST}; ln -s {LONGEST} script", file=LONGEST),
    Save(setup="mkdir d; cp old d/f; ln -s f d/hop; ln -s $PWD/d/hop script", file="d/f"),
    Save(setup="cp old script", shell='exec "$@" <&-'),  # the first descriptor is 0
    # Written in place: what is not a name's only file,
    Save(setup="ln old script", file="old", replaced=False, status="regular file 644 0:0 2"),
    Save(shell='exec "$@" -o /proc/self/fd/5 5<>old', file="old", replaced=False),
    # what lets in whom no mode tells,
    Save(setup="cp old script; setfacl -m u:12:r script", replaced=False),
    Save(setup="mkdir d; cp old d/f; setfacl -d -m u:12:r d; ln -s d/f script", file="d/f",
         replaced=False),
    # and what may be written, but not be replaced.
    Save(setup="mkdir d; cp old d/f; ln -s d/f script; chattr +a d", file="d/f", replaced=False),
    Save(setup="mkdir d; cp old d/f; ln -s d/f script; chmod 555 d", file="d/f", replaced=False,
         shell='exec setpriv --bounding-set=-all "$@"'),  # root meets permissions as others do
    # Not written: the full device, and a full disk.
    Save(setup="mknod script c 1 7", holds=None, replaced=False,
         status="character special file 644 0:0 1"),
    Save(setup="mkdir d; mount -t tmpfs -o size=8k none d; cp old d/f; ln -s d/f script; "
               "head -c 9000 /dev/zero >d/full || :", file="d/f", holds=OLD, replaced=False),
], ids=lambda save: save.setup)
def test_target(daemon, save):
    path = daemon.dir / save.file
    daemon.run(primary='[{"key":"A","value":"1"}]', old=OLD)
    (daemon.dir / "script").unlink()
    try:
        subprocess.run(["sh", "-ec", save.setup], cwd=daemon.dir, check=True, umask=0o022)
        before = path.stat() if path.exists() else None
        run = daemon.run(under=["sh", "-c", save.shell, "sh"])
        assert (run.returncode, run.stdout, run.stderr) == (0, "", "")
        assert daemon.read(save.file) == save.holds
        status = ["stat", "--format", "%F %a %u:%g %h", path]
        assert subprocess.check_output(status, text=True).strip() == save.status
        assert (path.stat().st_ino != (before and before.st_ino)) == save.replaced
        assert not list(path.parent.glob(".feature_toggled*"))
    finally:
        subprocess.run("umount -q script d; chattr -f -a d", shell=True, cwd=daemon.dir, check=False)


OLD_SCHEMA = schema("", A="1")
NEW_SCHEMA = schema("", A="2")
# Where there is no room and on a failing disk nothing is tried that could lose the old content.
SHORTAGES = "EDQUOT EFBIG EIO ENOMEM ENOSPC".split()
# What the place does not allow is done in another way.
RULES = ("EACCES EBUSY EINTR EINVAL EMFILE ENAMETOOLONG ENOSYS EOPNOTSUPP EPERM EROFS "
         "EXDEV").split()
UNCHECKED = ["gettid", "readlinkat", "statx", "sync_file_range"]


def save_schema(daemon, old, *options):
    """Saves NEW_SCHEMA over `old`, or where no file is. Returns what the schema file then holds."""
    (daemon.dir / "secondary").unlink(missing_ok=True)
    files = {"secondary": old} if old else {}
    under = ["strace", "-qqo", "trace", "-E", "ASAN_OPTIONS=detect_leaks=0", *options]
    return daemon.run("--entry", "A", "2", under=under, **files).saved


def calls_of_save(daemon):
    """The trace's system calls, and the numbers of those that saved the schema file."""
    calls = daemon.read("trace").splitlines()
    first, end = (next(i for i, call in enumerate(calls) if f'{name}", O_WRONLY' in call)
                  for name in ("secondary", "script"))
    return calls, range(first, end)


def siblings(daemon):
    return sorted(daemon.dir.glob(".feature_toggled*"))


@pytest.fixture
def traced(daemon):
    if len(daemon.command) > 1:
        pytest.skip("an emulator's system calls are its own")
    yield daemon
    for sibling in siblings(daemon):
        sibling.unlink()


@pytest.mark.parametrize("old", [OLD_SCHEMA, None], ids=["existing", "missing"])
def test_each_fault_leaves_the_old_file_or_the_new_one(traced, old):
    assert save_schema(traced, old, "-e", "trace=!%memory") == NEW_SCHEMA
    calls, save = calls_of_save(traced)
    names = [call.split("(")[0] for call in calls]
    in_place = names.index("renameat" if old else "linkat", save.start)
    assert "close" in names[names.index("write", save.start):in_place]
    for call in save:
        name = names[call]
        which = f"when={names[:call + 1].count(name)}"
        is_target = call == save.start or (old and call == save.start + 1)
        before = siblings(traced)
        for error in SHORTAGES + RULES:
            fails = is_target or name in ("write", "fcntl", "close") or (
                error in SHORTAGES and name not in UNCHECKED and "O_PATH" not in calls[call])
            retried = name == "write" and error == "EINTR"
            expected = old if fails and not retried and call <= in_place else NEW_SCHEMA
            saved = save_schema(traced, old, "-e", f"inject={name}:error={error}:{which}")
            assert saved == expected, (calls[call], error)
            assert siblings(traced) == before, (calls[call], error)
        # Siblings that are left stay here, and stand in nobody's way.
        saved = save_schema(traced, old, "-e", f"inject={name}:signal=KILL:{which}")
        assert saved in (old, NEW_SCHEMA), calls[call]
        assert siblings(traced) == before or name in ("linkat", "renameat"), calls[call]


def test_goes_on_where_a_short_write_ended(traced):
    save_schema(traced, OLD_SCHEMA, "-e", "trace=!%memory")
    calls, save = calls_of_save(traced)
    writes = [call for call, line in enumerate(calls) if line.startswith("write(")]
    when = 1 + next(number for number, call in enumerate(writes) if call in save)
    # The kernel is never asked for the first 7 bytes, but the daemon is told that they are written.
    saved = save_schema(traced, OLD_SCHEMA, "-e", f"inject=write:retval=7:when={when}")
    assert saved == NEW_SCHEMA[7:]


def test_closes_what_it_opens(traced):
    save_schema(traced, OLD_SCHEMA, "-e", "trace=openat,fcntl,close")
    calls = traced.read("trace").splitlines()
    closed = [call for call in calls if call.startswith("close")]
    opened = [call for call in calls if call not in closed and " = -1 " not in call]
    assert len(opened) == len(closed)


def test_leaves_alone_a_file_that_took_the_name_meanwhile(traced):
    traced.run(secondary=OLD_SCHEMA, other=OLD)
    under = ["strace", "-qqo", "trace", "-e", "inject=fchmod:delay_enter=500000:when=1"]
    with subprocess.Popen([*under, *traced.command, "--entry", "A", "2"], env=traced.env,
                          cwd=traced.dir) as process:
        while "fchown" not in (traced.read("trace") or ""):
            assert process.poll() is None
        (traced.dir / "other").rename(traced.dir / "secondary")
        assert process.wait(20) == 0
    assert traced.read("secondary") == OLD
