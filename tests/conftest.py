"""The daemon as a process, with files and a stand-in for `reboot` of its own."""
import contextlib
import ctypes
import http.client
import json
import os
import socket
import subprocess
import time

import pytest

PATHS = {"primary": "PRIMARY_SCHEMA", "secondary": "SECONDARY_SCHEMA", "build": "BUILD_INFO",
         "script": "OUTPUT"}


def pytest_addoption(parser):
    parser.addoption("--command", required=True, help="the executable, behind an emulator or not")


def schema(revision, **values):
    """The secondary schema file as the daemon writes it."""
    variables = [{"key": key, "value": values[key], "description": "", "options": []}
                 for key in sorted(values)]
    return json.dumps({"git_revision": revision, "variables": variables}, ensure_ascii=False,
                      separators=(",", ":"))


class Daemon:
    def __init__(self, command, directory):
        self.command, self.dir, reboot = command, directory, directory / "bin/reboot"
        reboot.parent.mkdir()
        reboot.write_text(f"#!/bin/sh\necho once >>{directory}/rebooted\n")
        reboot.chmod(0o755)
        self.env = {f"FEATURE_TOGGLE_{PATHS[file]}_PATH": f"{directory}/{file}" for file in PATHS}
        self.env["PATH"] = f"{reboot.parent}:{os.environ['PATH']}"
        found = subprocess.check_output(["sh", "-c", "command -v reboot"], env=self.env, text=True)
        if found.strip() != str(reboot):
            pytest.exit(f"{found.strip()} would reboot this machine")

    def read(self, name):
        path = self.dir / name
        return os.fsdecode(path.read_bytes()) if path.is_file() else None

    def write(self, **files):
        for name, text in files.items():
            (self.dir / name).write_bytes(os.fsencode(text))

    def run(self, *arguments, variable="", under=(), **files):
        """Runs to the end, with one environment `variable` more, `under` a command that starts it.
        The only input files are those given, unless none is."""
        for name in files and PATHS:
            (self.dir / name).unlink(missing_ok=True)
        self.write(**files)
        env = {**self.env, **dict([f"FEATURE_TOGGLE_{variable}=".split("=")[:2]])}
        run = subprocess.run([*under, *self.command, *arguments], env=env, cwd=self.dir, umask=0o027,
                             capture_output=True, text=True, timeout=100)
        run.saved, run.script = self.read("secondary"), self.read("script")
        return run

    @contextlib.contextmanager
    def serve(self, **files):
        """Yields a function that sends a request; at the end nothing may have been printed."""
        self.write(**files)
        with socket.create_server(("127.0.0.1", 0)) as probe:
            port = probe.getsockname()[1]
        process = subprocess.Popen(
            self.command, env={**self.env, "FEATURE_TOGGLE_HTTP_PORT": f" {port}x"},
            stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True)

        def send(target, form=None):
            connection = http.client.HTTPConnection("127.0.0.1", port, timeout=100)
            connection.request("GET" if form is None else "POST", target, form,
                               {"Content-Type": "application/x-www-form-urlencoded"})
            answer = connection.getresponse()
            assert answer.getheader("Content-Type") == (None if answer.status >= 400 else "text/html")
            return answer.status, os.fsdecode(answer.read())

        send.url = f"http://127.0.0.1:{port}/"
        try:
            while process.poll() is None and socket.socket().connect_ex(("127.0.0.1", port)) != 0:
                time.sleep(0.01)
            yield send
            # Serving ends only with the listening socket: pidfd_getfd(2) gives a copy to shut down.
            pidfd = os.pidfd_open(process.pid)
            for fd in os.listdir(f"/proc/{process.pid}/fd"):
                copy = ctypes.CDLL(None).syscall(438, pidfd, int(fd), 0)
                ctypes.CDLL(None).shutdown(copy, socket.SHUT_RD)
                os.close(copy) if copy >= 0 else None
            assert (process.communicate(timeout=100)[0], process.returncode) == ("", 0)
        finally:
            process.kill()


@pytest.fixture
def daemon(request, tmp_path):
    yield Daemon(request.config.getoption("--command").split(), tmp_path)
    assert not list(tmp_path.glob(".feature_toggled*")), "a sibling of a saved file is left"
