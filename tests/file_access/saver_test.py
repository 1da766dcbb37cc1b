"""What a save leaves behind: on all kinds of targets, and after each fault."""
import dataclasses
import os
import subprocess

import pytest
from conftest import schema

LONG = "x" * 2000  # more than a file may have under `ulimit -f 1`
OLD = "what the target held before, longer than what it will hold\n" * 50
NEW = f"export A={LONG}\n"
LONGEST = "f" * 255  # as long as a name can be
OLD_SCHEMA = schema("", A="old")
NEW_SCHEMA = schema("", A="2")


@dataclasses.dataclass
class Save:
    """A save to the file `script`. By default it replaces that, or makes it."""

    setup: str = ":"  # shell commands that make the target, from a file `old`, which holds OLD
    shell: str = '"$@"'  # starts the daemon, whose command line is "$@"
    file: str = "script"  # the file to look at afterwards: what it holds,
    holds: str = NEW
    replaced: bool = True  # whether it is another file than before,
    status: str = "644 0:0 1"  # its mode, owner and number of links


@pytest.mark.skipif(os.geteuid() != 0, reason="owners, nodes and attributes need root")
@pytest.mark.parametrize("save", [
    Save(setup="ln -s made script", shell='umask 002; "$@"', file="made", status="664 0:0 1"),
    # Replaced, with its owner and mode.
    Save(setup="cp old script; chown 12:34 script; chmod 4604 script", status="4604 12:34 1"),
    Save(setup=f"cp old {LONGEST}; ln -s {LONGEST} script", file=LONGEST),
    Save(setup="mkdir d; cp old d/f; ln -s f d/1; ln -s 1 d/2; ln -s 2 d/3; ln -s 3 d/4;"
         " ln -s $PWD/d/4 script", file="d/f"),
    Save(setup="cp old script; setfattr -n security.a script"),
    Save(setup="cp old script", shell='{ sleep 0.5; "$@" --list; } | :'),  # the reader is gone
    # Written in place: what a new file would not be.
    Save(setup="ln old script", file="old", replaced=False, status="644 0:0 2"),
    Save(shell='"$@" -o /proc/self/fd/5 5<>old', file="old", replaced=False),
    Save(setup="cp old script; setfattr -n security.a script; setfattr -n trusted.b script",
         replaced=False),
    Save(setup="mkdir d; cp old d/f; setfacl -d -m u:12:r d; ln -s d/f script", file="d/f",
         replaced=False),
    Save(setup="mkfifo script", shell='cat script >f & "$@"; wait', file="f", status="640 0:0 1"),
    # Left as it was.
    Save(setup="cp old script", shell='ulimit -f 1; "$@"', holds=OLD, replaced=False),
], ids=lambda save: save.setup + save.shell)
def test_target(daemon, save):
    path = daemon.dir / save.file
    daemon.run(primary=f'[{{"key":"A","value":"{LONG}"}}]', old=OLD)
    (daemon.dir / "script").unlink()
    subprocess.run(["sh", "-ec", save.setup], cwd=daemon.dir, check=True, umask=0o022)
    before = path.stat().st_ino if path.exists() else None
    run = daemon.run(under=["sh", "-c", save.shell, "sh"])
    assert (run.returncode, run.stdout, run.stderr) == (0, "", "")
    assert daemon.read(save.file) == save.holds
    assert (path.stat().st_ino != before) == save.replaced
    stat = ["stat", "--format", "%a %u:%g %h", path]
    assert subprocess.check_output(stat, text=True).strip() == save.status
    assert not left_overs(daemon)


def left_overs(daemon):
    return list(daemon.dir.rglob(".*.new"))


# A shortage ends a save; what a rule of the place forbids is done another way, but for some calls.
SHORTAGES = "EDQUOT EFBIG EIO EMFILE ENFILE ENOMEM ENOSPC".split()
RULES = "EACCES EBUSY EINTR EINVAL ENAMETOOLONG ENOSYS EOPNOTSUPP EPERM EROFS EXDEV".split()
STRACE = ["strace", "-qqo", "trace", "-e"]
HARMLESS = {"write": ["EINTR"], "fsync": ["EINVAL", "EROFS"], "readlinkat": SHORTAGES + RULES}


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
    _, start, end = (i for i, call in enumerate(calls) if "O_DIRECTORY" in call)  # first: the lock
    return calls[start:end], faults[start:end]


def find(calls, text):
    return next(i for i, call in enumerate(calls) if text in call)


@pytest.mark.parametrize("old", [OLD_SCHEMA, None], ids=["existing", "missing"])
def test_each_fault_leaves_the_old_file_or_the_new_one(traced, old):
    calls, faults = trace_save(traced, old)
    opens_target, renames = find(calls, "O_WRONLY|O_CLOEXEC)"), find(calls, "renameat(")
    for i, call in enumerate(calls):
        harmless = HARMLESS.get(call.split("(")[0], RULES)
        if i == opens_target or (i == opens_target + 1 and old):  # looks at what it opened
            harmless = []
        if i > renames:
            harmless = SHORTAGES + RULES
        for error in SHORTAGES + RULES:
            saved = save_schema(traced, old, faults[i] + f"error={error}")
            assert saved == (NEW_SCHEMA if error in harmless else old), (call, error)
            assert not left_overs(traced), (call, error)
        assert save_schema(traced, old, faults[i] + "signal=KILL") in (old, NEW_SCHEMA), call
        # The next save removes what is left, whether it changes anything or not.
        assert traced.run("--entry", "A", "2").saved == NEW_SCHEMA
        assert not left_overs(traced), call


@pytest.mark.parametrize("old, mode, steps", [
    (OLD_SCHEMA, "0600", "flock write fchmod fsync renameat fsync fsync"),
    (None, "0666", "flock write fsync renameat fsync fsync"),
])
def test_flushes_the_content_before_it_has_the_name(traced, old, mode, steps):
    calls, _ = trace_save(traced, old)
    names = [call.split("(")[0] for call in calls]
    assert [name for name in names if name in steps.split()] == steps.split()
    assert mode in calls[find(calls, "O_EXCL")]  # what was private stays so while it is written
    assert names.count("close") == sum(" = -1" not in call for call in calls if "openat" in call)


def test_content_that_is_there_is_not_written_again(traced):
    for _ in range(2):
        save_schema(traced, NEW_SCHEMA)
    _, calls = traced.read("trace").split("O_DIRECTORY", 1)
    assert calls.count("utimensat(") == 2
    assert not any(name in calls for name in ("O_EXCL", "ftruncate(", "fsync("))


@pytest.mark.parametrize("meanwhile, saved, mode", [
    ("chmod 600 other; mv other secondary", NEW_SCHEMA, 0o600),
    ("rm secondary", NEW_SCHEMA, 0o640),
    ('"$1" --entry A 3', schema("", A="3"), 0o644),  # waits for the run that is under way
])
def test_another_change_during_a_save(traced, meanwhile, saved, mode):
    traced.write(dict(secondary=OLD_SCHEMA, other=OLD))
    wait = "timeout 10 sh -c 'until grep -qs fchown trace; do :; done'"
    delay = [*STRACE, "inject=fsync:delay_enter=500000:when=1"]
    traced.run("--entry", "A", "2", under=[
        "sh", "-c", f'({wait}; shift {len(delay)}; {meanwhile}) & "$@"; wait', "sh", *delay])
    assert traced.read("secondary") == saved
    assert (traced.dir / "secondary").stat().st_mode & 0o777 == mode
    assert not left_overs(traced)


def test_runs_side_by_side_keep_each_others_changes(daemon):
    in_parallel = 'for key in A B C D E F G H I J; do "$@" --entry $key 1 & done; wait'
    daemon.run(under=["sh", "-c", in_parallel, "sh"])
    assert daemon.read("secondary") == schema("", **dict.fromkeys("ABCDEFGHIJ", "1"))
    assert daemon.read("script") == "".join(f"export {key}=1\n" for key in "ABCDEFGHIJ")
