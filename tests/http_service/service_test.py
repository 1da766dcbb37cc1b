"""The page and the actions over a real socket."""
import concurrent.futures
import html
import json

from conftest import schema

NOTICE = "<h3>Rebooting the core to take effect...please wait for refresh after 30 seconds.</h3>"
LONG = "x" * 8190  # with "A=", as long as a form may be


def page(**values):
    fields = "".join(f'{html.escape(key)}: <input type="text" name="{html.escape(key)}" value="'
                     f'{html.escape(values[key])}"><br>' for key in sorted(values))
    return (200, "text/html", '<form action="/update" method="post">' + fields + '<input type="submit" '
            'value="Submit"><br><br><input type="submit" formaction="/reboot" value="Reboot"></form>')


def test_the_life_of_a_toggle(daemon):
    with daemon.serve(primary='[{"key":"A","value":"1"},{"key":"B","value":"2"}]',
                      secondary=schema("r", B="3"), build='{"git_revision":"r2"}') as send:
        for target, form, answer, saved in [  # each with what it saves, None for nothing
                ("/?A=9", None, page(A="1", B="3"), None),
                ("/update", None, (404, None, ""), None),
                ("/reboot", None, (404, None, ""), None),
                ("/", "A=9", (404, None, ""), None),
                ("/update", "A=1&B=3&C=4", page(A="1", B="3"), None),
                ("/update", "A=x&A=y", page(A="y", B="3"), schema("r2", A="y", B="3")),
                ("/update", "A=x&A=y", page(A="x", B="3"), schema("r2", A="x", B="3")),
                ("/update?A=1", "B=", page(A="1", B=""), schema("r2", A="1", B="")),
                ("/update", "A=x" + LONG, (413, None, ""), None),
                ("/update", "A=" + LONG, page(A=LONG, B=""), schema("r2", A=LONG, B="")),
                ("/update", "A=%22+%3C%26%3E", page(A='" <&>', B=""), schema("r2", A='" <&>', B="")),
                ("/reboot", "A=lost", (200, "text/html", NOTICE), None)]:
            (daemon.dir / "secondary").unlink(missing_ok=True)
            assert (send(target, form), daemon.read("secondary")) == (answer, saved), form
        assert (daemon.read("script"), daemon.read("rebooted")) == ("export A=1\nexport B=3\n", "once\n")
        # A change that cannot be saved stays in memory and is saved with the next one.
        (daemon.dir / "secondary").mkdir()
        assert send("/update", "A=4") == page(A="4", B="")
        (daemon.dir / "secondary").rmdir()
        assert (send("/update", "A=4"), daemon.read("secondary")) == (page(A="4", B=""), None)
        assert send("/update", "B=5") == page(A="4", B="5")
    run = daemon.run()
    assert (run.saved, run.script) == (schema("r2", A="4", B="5"), "export A=4\nexport B=5\n")


def test_updates_and_pages_are_kept_apart(daemon):
    values = {f"T{i:03}": "on" for i in range(200)}
    with daemon.serve(primary=json.dumps([{"key": key} for key in values])) as send:
        with concurrent.futures.ThreadPoolExecutor(4) as pool:
            list(pool.map(lambda key: (send("/update", key + "=on"), send("/")), values))
        assert (daemon.read("secondary"), send("/")) == (schema("", **values), page(**values))
