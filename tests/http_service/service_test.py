"""The page and the actions over a real socket."""
import concurrent.futures
import html
import json

from conftest import schema


def page(**values):
    fields = "".join(f'{html.escape(k, False)}: <input type="text" name="{html.escape(k)}" '
                     f'value="{html.escape(v)}"><br>' for k, v in sorted(values.items()))
    return (200, f'<form action="/update" method="post">{fields}<input type="submit" value="Submit">'
            '<br><br><input type="submit" formaction="/reboot" value="Reboot"></form>')


def test_the_life_of_a_toggle(daemon):
    """Each request with its answer and what it saves, None for nothing; then a second start."""
    daemon.write(primary='[{"key":"A","value":"1"},{"key":"B","value":"2"}]',
                 secondary=schema("r", B="3"), build='{"git_revision":"r2"}')
    too_long, fits = "x" * 8191, "x" * 8190
    notice = "<h3>Rebooting the core to take effect...please wait for refresh after 30 seconds.</h3>"
    with daemon.serve() as send:
        published = daemon.read("script")
        for target, form, answer, saved in [
                ("/", None, page(A="1", B="3"), None),
                ("/?A=9", None, page(A="1", B="3"), None),
                ("/update", None, (404, ""), None),
                ("/reboot", None, (404, ""), None),
                ("/", "A=9", (404, ""), None),
                ("/update", "A=1&B=3&C=4", page(A="1", B="3"), None),
                ("/update", "B=2", page(A="1", B="2"), schema("r2", B="2")),
                ("/update", "A=x&A=y", page(A="y", B="2"), schema("r2", A="y", B="2")),
                ("/update", "A=x&A=y", page(A="x", B="2"), schema("r2", A="x", B="2")),
                ("/update?A=1", "B=", page(A="1", B=""), schema("r2", A="1", B="")),
                ("/update", "A=" + too_long, (413, ""), None),
                ("/update", "A=" + fits, page(A=fits, B=""), schema("r2", A=fits, B="")),
                ("/update", "A=%22+%3C%26%3E", page(A='" <&>', B=""), schema("r2", A='" <&>', B="")),
                ("/update", "A=2", page(A="2", B=""), schema("r2", A="2", B="")),
                ("/reboot", "A=lost", (200, notice), None)]:
            daemon.write(secondary=None)
            assert (send(target, form), daemon.read("secondary")) == (answer, saved), (target, form)
        assert (daemon.read("script"), daemon.read("rebooted")) == (published, "once\n")
        # A change that cannot be saved stays in memory and is saved with the next one.
        (daemon.dir / "secondary").mkdir()
        assert send("/update", "A=4") == page(A="4", B="")
        (daemon.dir / "secondary").rmdir()
        assert send("/update", "A=4") == page(A="4", B="")
        assert daemon.read("secondary") is None
        assert send("/update", "B=5") == page(A="4", B="5")
    assert daemon.run().returncode == 0
    assert daemon.read("secondary") == schema("r2", A="4", B="5")
    assert daemon.read("script") == "export A=4\nexport B=5\n"


def test_updates_and_pages_are_kept_apart(daemon):
    keys = [f"T{i:03}" for i in range(200)]
    daemon.write(primary=json.dumps([{"key": key} for key in keys]))
    with daemon.serve() as send, concurrent.futures.ThreadPoolExecutor(4) as pool:
        list(pool.map(lambda key: (send("/update", key + "=on"), send("/")), keys))
        assert daemon.read("secondary") == schema("", **dict.fromkeys(keys, "on"))
        assert send("/") == page(**dict.fromkeys(keys, "on"))
