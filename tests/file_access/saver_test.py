"""What a save leaves behind: on all kinds of targets, and after each fault."""
import dataclasses
import os
import subprocess

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
    Save(shell='umask 002; exec "$@"', status="regular file 664 0:0 1"),
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
# Leaks cannot be looked for in a process that is traced.
STRACE = ["strace", "-qqo", "trace", "-E", "ASAN_OPTIONS=detect_leaks=0", "-e"]
UNCHECKED = ["gettid", "readlinkat", "statx", "sync_file_range"]


def save_schema(daemon, old, option="trace=!%memory"):
    """Saves NEW_SCHEMA over `old`, or where no file is. Returns what the schema file then holds."""
    (daemon.dir / "secondary").unlink(missing_ok=True)
    files = {"secondary": old} if old else {}
    return daemon.run("--entry", "A", "2", under=[*STRACE, option], **files).saved


class Trace:
    """The system calls of a run that saved the schema over `old`."""

    def __init__(self, daemon, old):
        assert save_schema(daemon, old) == NEW_SCHEMA
        self.calls = daemon.read("trace").splitlines()
        self.names = [call.split("(")[0] for call in self.calls]
        self.start = self.find('secondary", O_WRONLY')
        self.end = self.find('script", O_WRONLY')

    def find(self, text, start=0):
        return next(i for i in range(start, len(self.calls)) if text in self.calls[i])

    def inject(self, call, fault):
        """The option of strace(1) that lets `call` meet a fault."""
        name = self.names[call]
        return f"inject={name}:{fault}:when={self.names[:call + 1].count(name)}"


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
    trace = Trace(traced, old)
    linked = trace.find("AT_SYMLINK_FOLLOW", trace.start)
    in_place = trace.find("renameat(", trace.start) if old else linked
    written = trace.names[trace.find("write(", trace.start):linked]
    assert "close" in written and "sync_file_range" in written
    for call in range(trace.start, trace.end):
        name = trace.names[call]
        is_target = call == trace.start or (old and call == trace.start + 1)
        before = siblings(traced)
        for error in SHORTAGES + RULES:
            fails = is_target or name in ("write", "fcntl", "close") or (
                error in SHORTAGES and name not in UNCHECKED and "O_PATH" not in trace.calls[call])
            retried = name == "write" and error == "EINTR"
            expected = old if fails and not retried and call <= in_place else NEW_SCHEMA
            saved = save_schema(traced, old, trace.inject(call, f"error={error}"))
            assert saved == expected, (trace.calls[call], error)
            assert siblings(traced) == before, (trace.calls[call], error)
        # Siblings that are left stay here, and stand in nobody's way.
        saved = save_schema(traced, old, trace.inject(call, "signal=KILL"))
        assert saved in (old, NEW_SCHEMA), trace.calls[call]
        assert siblings(traced) == before or name in ("linkat", "renameat"), trace.calls[call]


def test_replaces_where_each_file_needs_a_name(traced):
    trace = Trace(traced, OLD_SCHEMA)
    nameless = trace.find("O_TMPFILE", trace.start)
    save_schema(traced, OLD_SCHEMA, trace.inject(nameless, "error=EOPNOTSUPP"))
    renames = [call for call in traced.read("trace").splitlines() if call.startswith("renameat(")]
    assert '"secondary"' in renames[0]


def test_goes_on_where_a_short_write_ended(traced):
    trace = Trace(traced, OLD_SCHEMA)
    write = trace.find("write(", trace.start)
    # The daemon is told that 7 bytes are written, which the kernel never sees.
    assert save_schema(traced, OLD_SCHEMA, trace.inject(write, "retval=7")) == NEW_SCHEMA[7:]


def test_closes_what_it_opens(traced):
    trace = Trace(traced, OLD_SCHEMA)
    calls = trace.calls[trace.start:trace.end]
    closed = [call for call in calls if call.startswith("close(")]
    opened = [call for call in calls if call.startswith(("openat(", "fcntl("))]
    assert len(closed) == len([call for call in opened if " = -1 " not in call])


@pytest.mark.parametrize("name_of_old", [None, "aside"])
def test_follows_the_file_unless_it_has_no_name_any_more(traced, name_of_old):
    traced.run(secondary=OLD_SCHEMA, other=OLD)
    old = traced.dir / "secondary"
    delayed = [*STRACE, "inject=fchmod:delay_enter=500000:when=1", *traced.command]
    with subprocess.Popen([*delayed, "--entry", "A", "2"], env=traced.env,
                          cwd=traced.dir) as process:
        while "fchown" not in (traced.read("trace") or ""):
            assert process.poll() is None
        if name_of_old:
            old.rename(traced.dir / name_of_old)
        (traced.dir / "other").rename(old)
        assert process.wait(20) == 0
    assert traced.read(name_of_old or "secondary") == NEW_SCHEMA
    assert traced.read("secondary") == (OLD if name_of_old else NEW_SCHEMA)
