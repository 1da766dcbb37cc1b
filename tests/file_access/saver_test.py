"""What a save leaves behind: on targets that are no plain files, and after each fault."""
import os
import re
import subprocess
import time

import pytest
from conftest import schema

NEW = "export A=1\n"
UNPRIVILEGED = ["setpriv", "--bounding-set=-all"]  # root then meets permissions as others do


# A script that makes the target; who runs; which file then holds what; the target's type, mode,
# owner, links, and whether it is another file than before. Device nodes, owners and mounts need root.
@pytest.mark.parametrize("setup, under, holder, content, target", [
    ("", [], "script", NEW, "regular file 640 0:0 1 new"),
    ("cp old script; chown 12:34 script; chmod 4604 script", [], "script", NEW,
     "regular file 4604 12:34 1 new"),
    ("mknod script c 1 7", [], "old", "OLD", "character special file 644 0:0 1 same"),  # /dev/full
    ("mkfifo script; cat script >got &", [], "got", NEW, "fifo 644 0:0 1 same"),
    ("ln -s hop script; ln -s $PWD/old hop", [], "old", NEW, "symbolic link 777 0:0 1 same"),
    ("ln -s hop script; ln -s made hop", [], "made", NEW, "symbolic link 777 0:0 1 same"),
    ("ln -s hop script; ln -s script hop", [], "old", "OLD", "symbolic link 777 0:0 1 same"),
    ("ln old script", [], "old", NEW, "regular file 644 0:0 2 same"),
    ("touch script; mount --bind old script", [], "old", NEW, "regular file 644 0:0 1 same"),
    ("cp old script; chmod 444 script", UNPRIVILEGED, "script", "OLD", "regular file 444 0:0 1 same"),
    ("mkdir d; cp old d/f; ln -s d/f script; chmod 555 d", UNPRIVILEGED, "d/f", NEW,
     "symbolic link 777 0:0 1 same"),
    ("cp old script; chown 12:34 script; chmod 666 script", UNPRIVILEGED, "script", NEW,
     "regular file 666 12:34 1 same"),
    ("mkdir d; mount -t tmpfs -o size=8k none d; cp old d/f; ln -s d/f script; head -c9000 /dev/zero "
     ">d/full || :", [], "d/f", "OLD", "symbolic link 777 0:0 1 same"),
])
def test_target(daemon, setup, under, holder, content, target):
    if os.geteuid() != 0 and re.search("mknod|chown|mount", setup):
        pytest.skip("needs root")
    daemon.write(primary='[{"key":"A","value":"1"}]', old="OLD")
    script, owner = daemon.dir / "script", f"{os.geteuid()}:{os.getegid()}"
    try:
        subprocess.run(["sh", "-ec", setup], cwd=daemon.dir, check=True, umask=0o022)
        inode = os.path.lexists(script) and script.lstat().st_ino
        run = daemon.run(under=under)
        while holder == "got" and not daemon.read("got"):
            time.sleep(0.01)
        assert (run.returncode, run.stdout, run.stderr) == (0, "", "")
        after = subprocess.check_output(["stat", "-c", "%F %a %u:%g %h %i", script], text=True).split()
        after[-1] = "same" if after[-1] == str(inode) else "new"
        assert (daemon.read(holder), " ".join(after)) == (content, target.replace("0:0", owner))
    finally:
        subprocess.run("umount -q script d", shell=True, cwd=daemon.dir, check=False)


def test_each_fault_leaves_the_old_file_or_the_new_one(daemon):
    """Fails every system call of one save, then kills the process there."""
    if len(daemon.command) > 1:
        pytest.skip("an emulator's system calls are its own")
    old, new = schema("", A="1"), schema("", A="2")

    def run(*inject):
        daemon.write(secondary=old)
        return daemon.run("--entry", "A", "2", under=["strace", "-qqo", "trace", *inject, "-E",
                                                      "ASAN_OPTIONS=detect_leaks=0"])

    run("-e", "trace=!%memory")
    trace = daemon.read("trace").splitlines()
    first, end = (next(i for i, line in enumerate(trace) if f'{name}", O_WRONLY' in line)
                  for name in ("secondary", "script"))
    names = [line.split("(")[0] for line in trace]
    renamed = names.index("rename")
    assert first < renamed < end
    for call, name in list(enumerate(names))[first:end]:
        when = f"when={names[:call + 1].count(name)}"
        for error in "ENOSPC EDQUOT EIO EACCES EPERM EROFS EBUSY EXDEV EMFILE ENOMEM EINTR".split():
            assert run("-e", f"inject={name}:error={error}:{when}").returncode == 0
            trusted = call > renamed or name in ("readlink", "gettid") or error not in (
                "ENOSPC", "EDQUOT", "EIO")  # else the new text may be incomplete on the disk
            assert daemon.read("secondary") in ([old, new] if trusted else [old]), (name, error)
            assert daemon.read("script") == "export A=2\n"
            assert not list(daemon.dir.glob(".feature_toggled*")), (name, error)
        assert run("-e", f"inject={name}:signal=KILL:{when}").returncode != 0
        assert daemon.read("secondary") in (old, new), name
        for sibling in daemon.dir.glob(".feature_toggled*"):
            sibling.unlink()
