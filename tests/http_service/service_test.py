"""The page and the actions over a real socket."""
import concurrent.futures
import html
import http.client
import json
import os
import pathlib
import socket
import time

import pytest
from conftest import schema, send

ODD = "<'\"&>"
PRIMARY = {"A": "1", "B": "2", ODD: ""}
LONG = "x" * 8190  # with "A=", as long as a form may be
NOTICE = "<h3>Rebooting the core to take effect...please wait for refresh after 30 seconds.</h3>"


def page(values):
    def escape(text):
        return html.escape(text, quote=False).replace('"', "&quot;")

    fields = [f'{escape(key)}: <input type="text" name="{escape(key)}" value="{escape(value)}"><br>'
              for key, value in sorted(values.items())]
    return (200, "text/html", '<form action="/update" method="post">' + "".join(fields) +
            '<input type="submit" value="Submit"><br><br>'
            '<input type="submit" formaction="/reboot" value="Reboot"></form>')


@pytest.fixture(name="port")
def serve(daemon):
    primary = json.dumps([{"key": key, "value": PRIMARY[key]} for key in PRIMARY])
    with daemon.serve(primary=primary, secondary=schema("r", B="3")) as port:
        yield port


def test_update(daemon, port):
    saved = {"B": "3"}
    for target, form, changes in [
            ("/update", "A=1&B=3&C=4", {}),
            ("/update", "A=x&A=y", {"A": "y"}),
            ("/update", "A=x&A=y", {"A": "x"}),
            ("/update?A=1", "B=", {"A": "1", "B": ""}),
            ("/update", "A=" + LONG, {"A": LONG}),
            ("/update", "A=%3C%27+%22%26%3E", {"A": "<' \"&>"}),
            ("/update", "%3C%27%22%26%3E=x", {ODD: "x"})]:
        (daemon.dir / "secondary").unlink(missing_ok=True)
        saved.update(changes)
        assert send(port, target, form) == page({**PRIMARY, **saved})
        assert daemon.read("secondary") == (schema("r", **saved) if changes else None)
    assert send(port, "/?A=9") == page({**PRIMARY, **saved})


def test_text_is_saved_up_to_its_first_nul(daemon, port):
    assert send(port, "/update", "A=x%00y") == page({**PRIMARY, "A": "x\0y", "B": "3"})
    assert daemon.read("secondary") == schema("r", A="x", B="3")


def test_change_that_cannot_be_saved_is_saved_with_the_next(daemon, port):
    (daemon.dir / "secondary").unlink()
    (daemon.dir / "secondary").mkdir()
    send(port, "/update", "A=4")
    (daemon.dir / "secondary").rmdir()
    assert send(port, "/update", "A=4&B=5") == page({**PRIMARY, "A": "4", "B": "5"})
    assert daemon.read("secondary") == schema("r", A="4", B="5")


def test_reboot(daemon, port):
    assert send(port, "/reboot", "A=lost") == (200, "text/html", NOTICE)
    assert daemon.read("rebooted") == "once\n"
    assert send(port, "/") == page({**PRIMARY, "B": "3"})


def test_refused_requests(daemon, port):
    for target, form, status in [("/update", None, 404), ("/reboot", None, 404), ("/", "A=9", 404),
                                 ("/update", "A=x" + LONG, 413)]:
        assert send(port, target, form) == (status, None, "")
    assert (daemon.read("rebooted"), daemon.read("secondary")) == (None, schema("r", B="3"))


def test_updates_and_pages_are_kept_apart(daemon):
    values = {f"T{i:03}": "on" for i in range(200)}
    with daemon.serve(primary=json.dumps([{"key": key} for key in values])) as port:
        with concurrent.futures.ThreadPoolExecutor(4) as pool:
            list(pool.map(lambda key: (send(port, "/update", key + "=on"), send(port, "/")), values))
        assert daemon.read("secondary") == schema("", **values)


def test_connections(port):
    """Five requests each; a worker waits 5 s for the next one, and as long for the rest of one."""
    def get(connection):
        connection.request("GET", "/")
        with connection.getresponse() as answer:
            answer.read()
            return answer.getheader("Connection")

    def seconds(wait):
        start = time.monotonic()
        wait()
        return time.monotonic() - start

    workers = max(2, len(os.sched_getaffinity(0)) - 1)
    held = [http.client.HTTPConnection("127.0.0.1", port) for _ in range(workers)]
    assert [get(held[0]) for _ in range(6)] == [None, None, None, None, "close", None]
    assert seconds(lambda: send(port, "/")) < 3
    for connection in held[1:]:
        connection.connect()
        connection.sock.send(b"GET")
    with concurrent.futures.ThreadPoolExecutor() as pool:
        waits = [*(lambda: c.sock.recv(1) for c in held), lambda: send(port, "/")]
        assert all(4 < taken < 9 for taken in pool.map(seconds, waits))


def test_list_is_printed_before_serving(daemon):
    with daemon.serve("--list", primary='[{"key":"A","value":"1"}]', prints="export A=1\n\n"):
        pass


def test_default_host_is_not_reachable_from_outside(port):
    with pytest.raises(ConnectionRefusedError):
        socket.create_connection(("127.0.0.2", port))


@pytest.mark.skipif(not pathlib.Path("/proc/net/if_inet6").exists(), reason="no IPv6 here")
def test_host_may_be_an_ipv6_address(daemon):
    with daemon.serve(host="::1"):
        pass
