"""What a save leaves behind: on targets that are no plain files, and after each fault."""
import os
import subprocess
import time

import pytest
from conftest import schema

NEW, LINK = "export A=1\n", "symbolic link 777 0:0 1 same"
UNPRIVILEGED = ["setpriv", "--bounding-set=-all"]  # root then meets permissions as others do


# A script that makes the target; who runs; which file then holds what; the target's type, mode,
# owner, links, and whether it is another file than before.
@pytest.mark.skipif(os.geteuid() != 0, reason="device nodes, owners and mounts need root")
@pytest.mark.parametrize("setup, under, holder, content, target", [
    ("", [], "script", NEW, "regular file 640 0:0 1 new"),
    ("cp old script; chown 12:34 script; chmod 4604 script", [], "script", NEW,
     "regular file 4604 12:34 1 new"),
    ("mknod script c 1 7", [], "old", "OLD", "character special file 644 0:0 1 same"),  # /dev/full
    ("mkfifo script; cat script >got &", [], "got", NEW, "fifo 644 0:0 1 same"),
    ("ln -s hop script; ln -s $PWD/old hop", [], "old", NEW, LINK),
    ("ln -s hop script; ln -s made hop", [], "made", NEW, LINK),
    ("ln -s hop script; ln -s script hop", [], "old", "OLD", LINK),
    ("ln old script", [], "old", NEW, "regular file 644 0:0 2 same"),
    ("touch script; mount --bind old script", [], "old", NEW, "regular file 644 0:0 1 same"),
    ("cp old script; chmod 444 script", UNPRIVILEGED, "script", "OLD", "regular file 444 0:0 1 same"),
    ("mkdir d; cp old d/f; ln -s d/f script; chmod 555 d", UNPRIVILEGED, "d/f", NEW, LINK),
    ("cp old script; chown 12:34 script; chmod 666 script", UNPRIVILEGED, "script", NEW,
     "regular file 666 12:34 1 same"),
    ("mkdir d; mount -t tmpfs -o size=8k none d; cp old d/f; ln -s d/f script; head -c9000 /dev/zero "
     ">d/full || :", [], "d/f", "OLD", LINK),
])
def test_target(daemon, setup, under, holder, content, target):
    script = daemon.dir / "script"
    daemon.run("-o", "/dev/null", primary='[{"key":"A","value":"1"}]', old="OLD")
    try:
        subprocess.run(["sh", "-ec", setup], cwd=daemon.dir, check=True, umask=0o022)
        inode = os.path.lexists(script) and script.lstat().st_ino
        run = daemon.run(under=under)
        while holder == "got" and not daemon.read("got"):
            time.sleep(0.01)
        after = subprocess.check_output(["stat", "-c", "%F %a %u:%g %h %i", script], text=True).split()
        after[-1] = "same" if after[-1] == str(inode) else "new"
        assert (run.returncode, run.stdout, run.stderr) == (0, "", "")
        assert (daemon.read(holder), " ".join(after)) == (content, target)
    finally:
        subprocess.run("umount -q script d", shell=True, cwd=daemon.dir, check=False)


def test_each_fault_leaves_the_old_file_or_the_new_one(daemon):
    """Fails every system call of one save, then kills the process there."""
    if len(daemon.command) > 1:
        pytest.skip("an emulator's system calls are its own")
    old, new = schema("", A="1"), schema("", A="2")

    def run(inject):
        return daemon.run("--entry", "A", "2", secondary=old, under=[
            "strace", "-qqo", "trace", "-E", "ASAN_OPTIONS=detect_leaks=0", "-e", inject])

    run("trace=!%memory")
    trace = daemon.read("trace").splitlines()
    names = [line.split("(")[0] for line in trace]
    first, end = (next(i for i, line in enumerate(trace) if f'{name}", O_WRONLY' in line)
                  for name in ("secondary", "script"))
    renamed = names.index("rename", first, end)
    for call, name in list(enumerate(names))[first:end]:
        when = f"when={names[:call + 1].count(name)}"
        for error in "ENOSPC EDQUOT EIO EACCES EPERM EROFS EBUSY EXDEV EMFILE ENOMEM EINTR".split():
            after = run(f"inject={name}:error={error}:{when}")
            # With no room or a broken disk, nothing that was written can be trusted.
            kept = error in ("ENOSPC", "EDQUOT", "EIO") and call <= renamed and name not in (
                "readlink", "gettid")
            assert after.saved in ([old] if kept else [old, new]), (name, error)
            assert (after.returncode, after.script) == (0, "export A=2\n"), (name, error)
            assert not list(daemon.dir.glob(".feature_toggled*")), (name, error)
        assert run(f"inject={name}:signal=KILL:{when}").saved in (old, new), name
        for sibling in daemon.dir.glob(".feature_toggled*"):
            sibling.unlink()
