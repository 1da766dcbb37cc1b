"""What a save leaves: of all kinds of targets, and after each fault."""
import collections
import dataclasses
import os
import re
import subprocess

import pytest
from conftest import schema

LONG = "x" * 2000  # longer than `ulimit -f 1` allows
OLD = "what the target held before, longer than what it will hold\n" * 50
NEW = f"export A={LONG}\n"
LONGEST = "f" * 255  # as long as a name can be
OLD_SCHEMA, NEW_SCHEMA = schema("", A="old"), schema("", A="2")


@dataclasses.dataclass
class Save:
    """A save to the file `script`. By default it replaces that file, or creates it."""

    setup: str = ":"  # shell commands that make the target, from a file `old`, which holds OLD
    shell: str = '"$@"'  # starts the daemon, whose command line is "$@"
    file: str = "script"  # the file to look at afterwards
    holds: str = NEW
    replaced: bool = True  # whether it is another file than before
    status: str = "644 0:0 1"  # mode, owner and number of links


@pytest.mark.skipif(os.geteuid() != 0, reason="owners, nodes and attributes need root")
@pytest.mark.parametrize("save", [
    Save(setup="ln -s made script", shell='umask 002; "$@"', file="made", status="664 0:0 1"),
    # The target is replaced and keeps its owner and mode. An old .script.new does not matter.
    Save(setup="cp old script; chown 12:34 script; chmod 4755 script", status="4755 12:34 1"),
    Save(setup="cp old script; chown 0:34 script; chmod 640 script", status="640 0:34 1"),
    Save(setup=f"cp old {LONGEST}; ln -s {'./' * 50}{LONGEST} script", file=LONGEST),
    Save(setup="mkdir d; cp old d/0; for n in $(seq 39); do ln -s $((n - 1)) d/$n; done;"
         " ln -s d/39 script", file="d/0"),  # as many links as the kernel follows
    Save(setup="cp old script; setfattr -n security.a script; mkfifo .script.new"),
    Save(setup="cp old script", shell='{ sleep 0.5; "$@" --list; } | :'),  # the reader is gone
    Save(setup="cp old script", shell='"$@" <&-'),  # 0 is the descriptor of a file
    # Written in place, because a new file would differ.
    Save(setup="ln old script; touch .script.new", file="old", replaced=False, status="644 0:0 2"),
    Save(shell='"$@" -o /proc/self/fd/5 5<>old', file="old", replaced=False),
    Save(setup="cp old script; setfattr -n security.a script; setfattr -n trusted.b script",
         replaced=False),
    Save(setup="mkdir d; cp old d/f; setfacl -d -m u:12:r d; ln -s d/f script", file="d/f",
         replaced=False),
    Save(setup="cp old script; mkdir .script.new", shell='"$@"; rmdir .script.new', replaced=False),
    Save(setup="mkdir .script.new", shell='umask 2; "$@"; rmdir .script.new', status="664 0:0 1"),
    Save(setup="mkfifo script", shell='cat script >f & "$@"; wait', file="f", status="640 0:0 1"),
    # Left as it was.
    Save(setup="cp old script", shell='ulimit -f 1; "$@"', holds=OLD, replaced=False),
], ids=lambda save: save.setup + save.shell)
def test_target(daemon, save):
    path = daemon.dir / save.file
    daemon.write(dict(primary=f'[{{"key":"A","value":"{LONG}"}}]', old=OLD))
    subprocess.run(["sh", "-ec", save.setup], cwd=daemon.dir, check=True, umask=0o022)
    before = path.stat().st_ino if path.exists() else None
    run = daemon.run(under=["sh", "-c", save.shell, "sh"])
    assert (run.returncode, run.stdout, run.stderr) == (0, "", "")
    assert daemon.read(save.file) == save.holds
    assert (path.stat().st_ino != before) == save.replaced
    stat = ["stat", "--format", "%a %u:%g %h", path]
    assert subprocess.check_output(stat, text=True).strip() == save.status


FORBIDDEN = "EACCES EBUSY EINVAL EISDIR ELOOP ENAMETOOLONG ENOSYS EOPNOTSUPP EPERM EROFS EXDEV"
FINAL = "EDQUOT EINTR EIO EMFILE ENFILE ENOMEM ENOSPC ERANGE ETIMEDOUT"
# Which file such errors leave, by the system call of a save that meets them. The first pattern that
# matches the call counts.
PHASES = [
    # system call            FORBIDDEN   ENOENT      ESTALE...   FINAL
    ("close|readlinkat",     "new",      "new",      "new",      "new"),
    ("openat.*O_DIRECTORY",  "in place", "old",      "new",      "old"),
    ("openat.*O_EXCL",       "in place", "new",      "new",      "old"),  # .NAME.new
    ("openat",               "old",      "new",      "old",      "old"),  # the target
    ("unlink|fch|rename",    "in place", "new",      "new",      "old"),
    ("flistxattr",           "in place", "in place", "in place", "old"),
    (".*fstatat.*NOFOLLOW",  "old",      "new",      "old",      "old"),
    (".*stat|write|fsync",   "old",      "old",      "old",      "old"),
]
EXCEPTIONS = {"flistxattr ENOSYS": "new", "flistxattr EOPNOTSUPP": "new",
              "flistxattr ERANGE": "in place", "write EINTR": "new"}
File = collections.namedtuple("File", "holds mode is_another")


def save_schema(daemon, old, options="trace=!%memory", shell='"$@"'):
    """Saves NEW_SCHEMA over a file that holds `old`, or where no file is. Returns what is there."""
    path = daemon.dir / "secondary"
    path.unlink(missing_ok=True)
    daemon.write({"secondary": old} if old else {})
    if old and os.geteuid() == 0:
        os.chown(path, 12, 34)  # Keeping the owner takes another system call.
    before = path.stat().st_ino if old else None
    under = ["sh", "-c", shell, "sh", "strace", "-qqo", "trace", "-e", *options.split()]
    saved = daemon.run("--entry", "A", "2", under=under).saved
    return saved and File(saved, path.stat().st_mode & 0o777, path.stat().st_ino != before)


def trace_save(daemon, old, shell='"$@"'):
    """Returns the system calls that save the schema, and the strace(1) option that faults each."""
    save_schema(daemon, old, shell=shell)
    calls = daemon.read("trace").splitlines()
    names = [call.split("(")[0] for call in calls]
    faults = [f"inject={name}:when={names[:i + 1].count(name)}:" for i, name in enumerate(names)]
    _lock, start, end = (i for i, call in enumerate(calls) if "O_DIRECTORY" in call)
    return calls[start:end], faults[start:end]


@pytest.mark.parametrize("old, mode", [(OLD_SCHEMA, 0o644), (None, 0o640)])
def test_each_fault_leaves_the_old_file_or_the_new_one(traced, old, mode):
    files = {"old": old and File(old, mode, False),
             "new": File(NEW_SCHEMA, mode, True),
             "in place": File(NEW_SCHEMA, mode, old is None)}
    calls, faults = trace_save(traced, old)
    renames = next(i for i, call in enumerate(calls) if "rename" in call)
    for i, (call, fault) in enumerate(zip(calls, faults)):
        outcomes = next(outcomes for pattern, *outcomes in PHASES if re.match(pattern, call))
        for errors, outcome in zip([FORBIDDEN, "ENOENT", "ESTALE EEXIST", FINAL], outcomes):
            for error in errors.split():
                expected = EXCEPTIONS.get(f"{call.split('(')[0]} {error}", outcome)
                saved = save_schema(traced, old, fault + f"error={error}")
                assert saved == files["new" if i > renames else expected], (call, error)
                assert not any(traced.dir.glob(".*.new")), (call, error)
        for next_run in [[], ["--entry", "A", "2"]]:
            killed = save_schema(traced, old, fault + "signal=KILL")
            assert killed in (files["old"], files["new"]), call
            traced.run(*next_run)
            assert not any(traced.dir.glob(".*.new")), (call, next_run)


@pytest.mark.parametrize("old, shell, steps", [
    (OLD_SCHEMA, '"$@"', "write fchmod fsync rename fsync fsync"),  # flushed before it has the name
    (None, '"$@"', "write fsync rename fsync fsync"),
    (NEW_SCHEMA, '"$@"', "utime"),  # not written again
    (OLD_SCHEMA, 'ln secondary link; "$@"', "ftruncate write fsync"),
    (None, 'mkdir .secondary.new; "$@"; rmdir .secondary.new', "write fsync fsync"),
])
def test_steps(traced, old, shell, steps):
    calls, _ = trace_save(traced, old, shell)
    sanitizer = r"pipe2.*\nwrite.*\nclose.*\nclose.*\n"  # looks whether memory can be read
    trace = re.sub(sanitizer, "", "\n".join(calls))
    assert re.findall(r"(?m)^(ftruncate|write|fchmod|fsync|rename|utime)", trace) == steps.split()
    opens = [call for call in calls if call.startswith("open")]
    assert trace.count("close(") == sum(" = -1" not in call for call in opens)
    assert all("O_CLOEXEC" in call for call in opens)
    assert ("O_EXCL|O_CLOEXEC, 0600)" in trace) == ("fchmod" in steps)  # stays private


@pytest.mark.parametrize("meanwhile, mode", [
    ("chmod 600 other; mv other secondary", 0o600),
    ("chmod 600 secondary", 0o600),
    ("rm secondary", 0o640),
    ("mv other .secondary.new", 0o644),
])
def test_another_change_during_a_save(traced, meanwhile, mode):
    traced.write({"other": OLD})
    wait = "timeout 10 sh -c 'until grep -qs stopped trace; do :; done'"
    saved = save_schema(traced, OLD_SCHEMA, "inject=fsync:signal=STOP:when=1",
                        f'({wait}; {meanwhile}; kill -CONT 0) & "$@"; wait')
    assert (saved.holds, saved.mode) == (NEW_SCHEMA, mode)


def test_concurrent_runs_keep_each_others_changes(daemon):
    (daemon.dir / "other").mkdir()
    (daemon.dir / "other/link").symlink_to("../secondary")
    pairs = ('for key in A B C D E F G H I J; do "$@" --entry $key 1 -o out$key &'
             ' "$@" --entry $key$key 1 -s other/link -o other/out$key & done; wait')
    daemon.run(under=["sh", "-c", pairs, "sh"])
    ones = {key * times: "1" for key in "ABCDEFGHIJ" for times in (1, 2)}
    assert daemon.read("secondary") == schema("", **ones)


LOCKED = "inject=flock:error=EAGAIN -e inject=clock_nanosleep:retval=0"
CHANGES = " -e inject=?newfstatat,?fstatat64:error=ENOENT:when=100..5900+50"  # gone now and then


@pytest.mark.parametrize("fault, pauses", [
    ("inject=flock:error=ENOLCK", 0), (LOCKED, 1000), (LOCKED + CHANGES, 6000)])
def test_directory_that_cannot_be_locked(traced, fault, pauses):
    assert save_schema(traced, OLD_SCHEMA, fault).holds == NEW_SCHEMA
    assert traced.read("trace").count("tv_nsec=10000000}") == pauses  # 10 ms
