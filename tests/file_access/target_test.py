"""Targets of a save that are not plain files: what they are afterwards, and what they hold."""
import os
import stat

from conftest import schema


def test_links_and_modes_are_kept(daemon):
    file, link, dangling = (daemon.dir / name for name in ("file", "secondary", "script"))
    file.write_text(schema("r", A="1"))
    file.chmod(0o4604)
    link.symlink_to("hop")
    (daemon.dir / "hop").symlink_to(file)
    dangling.symlink_to("made")
    before = file.stat()
    os.umask(0o027)
    daemon.run("--entry", "A", "2")
    assert (file.read_text(), daemon.read("made")) == (schema("r", A="2"), "export A=2\n")
    assert (os.readlink(link), os.readlink(dangling)) == ("hop", "made")
    assert (stat.S_IMODE(file.stat().st_mode), stat.S_IMODE(dangling.stat().st_mode)) == (0o4604, 0o640)
    assert file.stat().st_ino != before.st_ino, "written in place"
    os.link(file, daemon.dir / "second name")
    daemon.run("--entry", "A", "3", "-o", "/dev/null")
    assert daemon.read("second name") == daemon.read("file") == schema("r", A="3")
    assert stat.S_ISCHR(os.stat("/dev/null").st_mode)
