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

VARIABLES = {"primary": "FEATURE_TOGGLE_PRIMARY_SCHEMA_PATH", "build": "FEATURE_TOGGLE_BUILD_INFO_PATH",
             "secondary": "FEATURE_TOGGLE_SECONDARY_SCHEMA_PATH", "script": "FEATURE_TOGGLE_OUTPUT_PATH"}


def pytest_addoption(parser):
    parser.addoption("--command", required=True, help="the executable, behind an emulator or not")


def schema(revision, **values):
    """The secondary schema file as the daemon writes it."""
    document = {"git_revision": revision, "variables": [
        {"key": key, "value": values[key], "description": "", "options": []} for key in sorted(values)]}
    return json.dumps(document, ensure_ascii=False, separators=(",", ":"))


class Daemon:
    def __init__(self, command, directory):
        self.command, self.dir, reboot = command, directory, directory / "bin/reboot"
        reboot.parent.mkdir()
        reboot.write_text(f"#!/bin/sh\necho once >>{directory}/rebooted\n")
        reboot.chmod(0o755)
        self.env = {name: f"{directory}/{file}" for file, name in VARIABLES.items()}
        self.env["PATH"] = f"{reboot.parent}:{os.environ['PATH']}"
        found = subprocess.check_output(["sh", "-c", "command -v reboot"], env=self.env, text=True)
        assert found.strip() == str(reboot) or pytest.exit(f"{found} would reboot this machine")

    def read(self, name):
        path = self.dir / name
        return os.fsdecode(path.read_bytes()) if path.is_file() else None

    def run(self, *arguments, variable="", under=(), **files):
        """Runs to the end, with one environment `variable` more, `under` a command that starts it.
        The only input files are those given, unless none is."""
        for name in files and VARIABLES:
            (self.dir / name).unlink(missing_ok=True)
        for name, text in files.items():
            (self.dir / name).write_bytes(os.fsencode(text))
        env = {**self.env, **dict([f"FEATURE_TOGGLE_{variable}=".split("=")[:2]])}
        run = subprocess.run([*under, *self.command, *arguments], env=env, cwd=self.dir, umask=0o027,
                             capture_output=True, text=True, timeout=100)
        run.saved, run.script = self.read("secondary"), self.read("script")
        return run

    @contextlib.contextmanager
    def serve(self, **files):
        """After a run, yields a function that sends a request; at the end nothing may be printed."""
        self.run(**files)
        with socket.create_server(("127.0.0.1", 0)) as probe:
            port = probe.getsockname()[1]
        process = subprocess.Popen(self.command, stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
                                   env={**self.env, "FEATURE_TOGGLE_HTTP_PORT": f" {port}x"})

        def send(target, form=None):
            connection = http.client.HTTPConnection("127.0.0.1", port, timeout=100)
            connection.request("GET" if form is None else "POST", target, form,
                               {"Content-Type": "application/x-www-form-urlencoded"})
            answer = connection.getresponse()
            return answer.status, answer.getheader("Content-Type"), os.fsdecode(answer.read())

        send.url = f"http://127.0.0.1:{port}/"
        try:
            while process.poll() is None and socket.socket().connect_ex(("127.0.0.1", port)) != 0:
                time.sleep(0.01)
            yield send
            # Serving ends only with the listening socket: pidfd_getfd(2) gives a copy to shut down.
            for fd in os.listdir(f"/proc/{process.pid}/fd"):
                copy = ctypes.CDLL(None).syscall(438, os.pidfd_open(process.pid), int(fd), 0)
                ctypes.CDLL(None).shutdown(copy, socket.SHUT_RD)
                ctypes.CDLL(None).close(copy)
            assert (process.communicate(timeout=100)[0], process.returncode) == (b"", 0)
        finally:
            process.kill()


@pytest.fixture
def daemon(request, tmp_path):
    yield Daemon(request.config.getoption("--command").split(), tmp_path)
    assert not list(tmp_path.glob(".feature_toggled*")), "a sibling of a saved file is left"
