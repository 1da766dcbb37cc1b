"""The daemon as a process that cannot reboot this machine, for tests."""
import contextlib
import ctypes
import http.client
import os
import shutil
import socket
import subprocess
import sys
import time

SECONDS = 60  # the deadline of every wait; a busy machine is slow
os.umask(0o022)  # a login may have another one, and tests compare modes


def path_with_stand_in(directory):
    """A PATH whose `reboot` only adds a line to `directory`/rebooted."""
    reboot = directory / "bin/reboot"
    reboot.parent.mkdir()
    reboot.write_text(f"#!/bin/sh\nsleep 0.1\necho once >>'{directory}/rebooted'\n")
    reboot.chmod(0o755)
    path = f"{reboot.parent}:{os.environ['PATH']}"
    if shutil.which("reboot", path=path) != str(reboot):
        sys.exit("without its stand-in, reboot would reboot this machine")
    return path


class Daemon:
    """Runs `command` on the files primary, secondary, build and script of a directory."""

    def __init__(self, command, directory):
        self.command, self.dir = command, directory
        self.env = {
            "FEATURE_TOGGLE_PRIMARY_SCHEMA_PATH": f"{directory}/primary",
            "FEATURE_TOGGLE_SECONDARY_SCHEMA_PATH": f"{directory}/secondary",
            "FEATURE_TOGGLE_BUILD_INFO_PATH": f"{directory}/build",
            "FEATURE_TOGGLE_OUTPUT_PATH": f"{directory}/script",
            "PATH": path_with_stand_in(directory),
            "TSAN_OPTIONS": "halt_on_error=1",
            "GCOV_ERROR_FILE": os.devnull,  # `ulimit -f` also applies to coverage files
        }

    def read(self, name):
        path = self.dir / name
        return os.fsdecode(path.read_bytes()) if path.is_file() else None

    def write(self, files):
        for name, text in files.items():
            (self.dir / name).write_bytes(os.fsencode(text))

    def run(self, *arguments, under=(), **files):
        """Runs the daemon until it exits; `under` is a command that starts it."""
        self.write(files)
        run = subprocess.run([*under, *self.command, *arguments], env=self.env, cwd=self.dir,
                             umask=0o027, capture_output=True, text=True, timeout=SECONDS)
        run.saved, run.script = self.read("secondary"), self.read("script")
        return run

    @contextlib.contextmanager
    def serve(self, *arguments, host="", prints="", **files):
        """Yields the port of a daemon that prints only `prints`, before it serves."""
        self.write(files)
        with socket.socket() as holder, open(self.dir / "printed", "wb") as printed:
            # Reserves a free port, which the daemon shares.
            holder.setsockopt(socket.SOL_SOCKET, socket.SO_REUSEPORT, 1)
            holder.bind(("127.0.0.1", 0))
            port = holder.getsockname()[1]
            # Variables are read leniently: a blank before the value, and text after a number.
            env = {**self.env, "FEATURE_TOGGLE_HOSTNAME": f" {host}",
                   "FEATURE_TOGGLE_HTTP_PORT": f" {port}x"}
            process = subprocess.Popen([*self.command, *arguments], env=env,
                                       stdout=printed, stderr=printed)
            try:
                wait_until(lambda: is_listening(host or "127.0.0.1", port))
                assert self.read("printed") == prints
                yield port
                stop_listening(process)
                assert process.wait(SECONDS) == 0
            finally:
                process.kill()
                assert self.read("printed") == prints, self.read("printed")  # a sanitizer's report


def wait_until(condition):
    deadline = time.monotonic() + SECONDS
    while not condition():
        assert time.monotonic() < deadline, "the condition did not become true in time"
        time.sleep(0.02)


def is_listening(host, port):
    with contextlib.suppress(ConnectionRefusedError), socket.create_connection((host, port)):
        return True


def stop_listening(process):
    """Shuts down its listening socket, so that it exits normally, and sanitizers can report."""
    libc = ctypes.CDLL(None)
    for fd in os.listdir(f"/proc/{process.pid}/fd"):
        copy = libc.syscall(438, os.pidfd_open(process.pid), int(fd), 0)  # pidfd_getfd(2)
        libc.shutdown(copy, socket.SHUT_RD)


def send(port, target, form=None):
    """Posts the form, or gets the target if there is none; returns status, content type, body."""
    connection = http.client.HTTPConnection("127.0.0.1", port, timeout=SECONDS)
    connection.request("GET" if form is None else "POST", target, form,
                       {"Content-Type": "application/x-www-form-urlencoded"})
    answer = connection.getresponse()
    return answer.status, answer.getheader("Content-Type"), os.fsdecode(answer.read())
