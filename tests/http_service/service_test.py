"""The page and the actions over a real socket."""
import concurrent.futures
import fcntl
import http.client
import os
import re
import time

import pytest
from conftest import schema
from daemon import send, wait_until

ODD, ODD_IN_HTML = "<'\"&>", "&lt;'&quot;&amp;&gt;"
PRIMARY = {"A": "1", "B": "2", ODD: ""}
SECONDARY = {"B": "3", "": "no key", "ONLY": "here"}
LONG = "x" * 8190  # with "A=", as long as a form may be
NOTICE = "<h3>Rebooting the core to take effect...please wait for refresh after 30 seconds.</h3>"


def page(values):
    fields = "".join(f'{key}: <input type="text" name="{key}" value="{values[key]}"><br>'
                     for key in sorted(values))
    return (200, "text/html", '<form action="/update" method="post">' +
            fields.replace(ODD, ODD_IN_HTML) +
            '<input type="submit" value="Submit"><br><br>'
            '<input type="submit" formaction="/reboot" value="Reboot"></form>')


@pytest.fixture(name="port")
def serve(daemon):
    with daemon.serve("--list", prints="export A=1\nexport B=3\nexport ONLY=here\n\n",
                      primary=schema("", **PRIMARY), secondary=schema("r", **SECONDARY)) as port:
        yield port


def test_update(daemon, port):
    saved = {**SECONDARY}
    for target, form, changes in [
            ("/update", "A=1&B=3&C=4", {}),
            ("/update", "0=x&A=1&B=9", {"B": "9"}),
            ("/update", "A=x&A=y", {"A": "y"}),
            ("/update", "A=x&A=y", {"A": "x"}),
            ("/update", "ONLY=1", {"ONLY": "1"}),
            ("/update?A=1", "B=", {"A": "1", "B": ""}),
            ("/update", "A=" + LONG, {"A": LONG}),
            ("/update", "A=x%00y", {"A": "x\0y"}),
            ("/update", "%3C%27%22%26%3E=+%3C%27%22%26%3E+", {ODD: " <'\"&> "})]:
        (daemon.dir / "secondary").unlink(missing_ok=True)
        saved.update(changes)
        assert send(port, target, form) == page({**PRIMARY, **saved})
        assert send(port, "/") == page({**PRIMARY, **saved})
        assert daemon.read("secondary") == (schema("r", **saved) if changes else None)


def test_change_that_cannot_be_saved_is_saved_with_the_next(daemon, port):
    (daemon.dir / "secondary").unlink()
    (daemon.dir / "secondary").mkdir()
    send(port, "/update", "A=4")
    (daemon.dir / "secondary").rmdir()
    assert send(port, "/update", "B=5") == page({**PRIMARY, **SECONDARY, "A": "4", "B": "5"})
    assert daemon.read("secondary") == schema("r", **{**SECONDARY, "A": "4", "B": "5"})


def test_change_waits_for_a_run_that_is_about_to_save_and_pages_do_not(daemon, port):
    directory = os.open(daemon.dir, os.O_RDONLY)
    fcntl.flock(directory, fcntl.LOCK_EX | fcntl.LOCK_NB)
    with concurrent.futures.ThreadPoolExecutor() as pool:
        change = pool.submit(send, port, "/update", "A=4")
        time.sleep(0.2)
        assert send(port, "/") == page({**PRIMARY, **SECONDARY})
        assert not change.done()
        os.close(directory)


@pytest.mark.parametrize("target, form, answer", [
    ("/reboot", None, (404, None, "")),
    ("/update", "A=x" + LONG, (413, None, "")),
    ("/reboot", "A=9", (200, "text/html", NOTICE)),
])
def test_changes_nothing(daemon, port, target, form, answer):
    assert send(port, target, form) == answer
    assert daemon.read("rebooted") == ("once\n" if NOTICE in answer else None)
    assert send(port, "/") == page({**PRIMARY, **SECONDARY})


def test_updates_and_pages_are_kept_apart(daemon):
    values = {f"T{i:03}": "on" for i in range(200)}
    with daemon.serve(primary=schema("", **dict.fromkeys(values, ""))) as port:
        with concurrent.futures.ThreadPoolExecutor(4) as pool:
            for key in values:
                pool.submit(send, port, "/update", key + "=on")
                pool.submit(send, port, "/")
        assert daemon.read("secondary") == schema("", **values)


def test_serves_five_requests_on_a_connection(port):
    connection = http.client.HTTPConnection("127.0.0.1", port, timeout=20)
    for number in range(1, 6):
        connection.request("GET", "/")
        answer = connection.getresponse()
        assert {*answer.headers} <= {"Connection", "Content-Length", "Content-Type", "Keep-Alive"}
        assert answer.getheader("Keep-Alive", "timeout=5,").startswith("timeout=5,")
        answer.read()
        assert (connection.sock is None) == (number == 5)


def test_settings_of_the_server(traced):
    # -D: the daemon is the process that was started, strace(1) its child, which ends after it.
    traced.command[:0] = ["strace", "-Dfqo", f"{traced.dir}/trace",
                          "-e", "trace=network,flock,close,/poll,/select,/clone,/rename"]
    with traced.serve(primary=schema("", A="1")) as port:
        send(port, "/update", "A=2")
    wait_until(lambda: "exited with 0" in traced.read("trace"))
    # No closing brackets: where threads take turns, "<unfinished ...>" may stand in their place.
    before, after = re.split(r"listen\(\d+, 5\b", traced.read("trace"))
    assert "SO_REUSEPORT" in before and 'inet_addr("127.0.0.1")' in before
    threads = max(2, os.cpu_count() - 1) + ("/tsan/" in traced.command[-1])
    assert after.count("CLONE_THREAD") == threads  # ThreadSanitizer has one of its own
    assert {*re.findall(r"events=(\w+)\}\], 1, 5000\b", after)} == {"POLLIN", "POLLOUT"}
    assert "TCP_NODELAY" not in before and "select(" not in after
    assert re.search(r"flock\((\d+), LOCK_EX(?:(?!close\(\1\b).)*rename", after, re.DOTALL)
