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

FILES = {"primary": "PRIMARY_SCHEMA", "secondary": "SECONDARY_SCHEMA", "build": "BUILD_INFO",
         "script": "OUTPUT"}


def pytest_addoption(parser):
    parser.addoption("--command", required=True, help="the executable, behind an emulator or not")


def schema(revision, **values):
    """The secondary schema file as the daemon writes it."""
    variables = [{"key": key, "value": value, "description": "", "options": []}
                 for key, value in sorted(values.items())]
    return json.dumps({"git_revision": revision, "variables": variables}, separators=(",", ":"),
                      ensure_ascii=False)


class Daemon:
    def __init__(self, command, directory):
        self.command, self.dir = command, directory
        reboot = directory / "bin" / "reboot"
        reboot.parent.mkdir()
        reboot.write_text(f"#!/bin/sh\necho once >>{directory}/rebooted\n")
        reboot.chmod(0o755)
        self.env = {f"FEATURE_TOGGLE_{FILES[name]}_PATH": str(directory / name) for name in FILES}
        self.env["PATH"] = f"{reboot.parent}:{os.environ['PATH']}"
        found = subprocess.check_output(["sh", "-c", "command -v reboot"], env=self.env, text=True)
        if found.strip() != str(reboot):
            pytest.exit(f"{found.strip()} would reboot this machine")

    def write(self, **texts):
        for name, text in texts.items():
            (self.dir / name).unlink(missing_ok=True)
            if text is not None:
                (self.dir / name).write_bytes(os.fsencode(text))

    def read(self, name):
        path = self.dir / name
        return os.fsdecode(path.read_bytes()) if path.exists() else None

    def run(self, *arguments, environment="", under=()):
        """Runs to the end; `environment` is one variable, `under` a command that starts it."""
        env = {**self.env, **dict([f"FEATURE_TOGGLE_{environment}=".split("=")[:2]])}
        return subprocess.run([*under, *self.command, *arguments], env=env, cwd=self.dir,
                              umask=0o027, capture_output=True, text=True, timeout=100)

    @contextlib.contextmanager
    def serve(self):
        """Yields a function that sends a request; at the end nothing may have been printed."""
        with socket.socket() as probe:
            probe.bind(("127.0.0.1", 0))
            port = probe.getsockname()[1]
        process = subprocess.Popen(
            self.command, env={**self.env, "FEATURE_TOGGLE_HTTP_PORT": f" {port}x"},
            stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True)

        def send(target, form=None):
            connection = http.client.HTTPConnection("127.0.0.1", port, timeout=100)
            connection.request("GET" if form is None else "POST", target, form,
                               {"Content-Type": "application/x-www-form-urlencoded"})
            answer = connection.getresponse()
            body = os.fsdecode(answer.read())
            assert answer.getheader("Content-Type") == ("text/html" if body else None)
            return answer.status, body

        send.url = f"http://127.0.0.1:{port}/"
        try:
            while process.poll() is None:
                with contextlib.suppress(ConnectionRefusedError):
                    send("/")
                    break
                time.sleep(0.01)
            yield send
            self.stop_listening(process.pid)
            assert (process.communicate(timeout=100)[0], process.returncode) == ("", 0)
        finally:
            process.kill()

    @staticmethod
    def stop_listening(pid):
        """Serving ends only with the listening socket: shuts it down with pidfd_getfd(2)."""
        pidfd = os.pidfd_open(pid)
        for fd in os.listdir(f"/proc/{pid}/fd"):
            with contextlib.suppress(FileNotFoundError, ValueError):  # closed meanwhile
                if not os.readlink(f"/proc/{pid}/fd/{fd}").startswith("socket:"):
                    continue
                copy = socket.socket(fileno=ctypes.CDLL(None).syscall(438, pidfd, int(fd), 0))
                if copy.getsockopt(socket.SOL_SOCKET, socket.SO_ACCEPTCONN):
                    copy.shutdown(socket.SHUT_RDWR)


@pytest.fixture
def daemon(request, tmp_path):
    yield Daemon(request.config.getoption("--command").split(), tmp_path)
    assert not list(tmp_path.glob(".feature_toggled*")), "a sibling of a saved file is left"
