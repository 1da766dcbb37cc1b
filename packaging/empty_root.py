"""The static executable in a root without other programs or libraries; for scripts/test static."""
import os
import pathlib
import shutil

from daemon import Daemon, send

EXECUTABLE = pathlib.Path(__file__).parents[1] / "build/static/feature_toggled"
HAS_IPV6 = pathlib.Path("/proc/net/if_inet6").exists()


def test_runs_in_an_empty_root(tmp_path):
    root = tmp_path / "root"
    (root / "etc").mkdir(parents=True)
    (root / "etc/hosts").write_text("127.0.0.1 localhost\n")
    (root / "etc/nsswitch.conf").write_text("hosts: module_of_another_library\n")
    shutil.copy(EXECUTABLE, root)
    (root / "primary").write_text('{"variables":[{"key":"A","value":"1"}]}')
    daemon = Daemon(["unshare", *(["--map-root-user"] if os.geteuid() else []), f"--root={root}",
                     "/feature_toggled"], tmp_path)
    daemon.env = {name: value.replace(str(tmp_path), "") for name, value in daemon.env.items()}

    assert daemon.run("--list").stdout == "export A=1\n\n"
    assert (root / "script").read_text() == "export A=1\n"
    for host in ["127.0.0.1", "localhost", *(["::1"] if HAS_IPV6 else [])]:
        with daemon.serve(host=host) as port:
            assert host == "::1" or send(port, "/")[0] == 200
    run = daemon.run("--port", "1", "--hostname", "does.not.resolve")
    assert (run.stdout, run.stderr, run.returncode) == ("", "", 0)
