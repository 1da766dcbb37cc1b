"""The page as a browser that takes UTF-8 by default shows it, edits it and posts it back."""
from conftest import schema
from selenium import webdriver
from selenium.common.exceptions import WebDriverException
from selenium.webdriver.support.wait import WebDriverWait

SHOWN = "return Object.fromEntries(Array.from(document.forms[0], i => [i.name, i.value]))"
LOADED = "return !document.left && document.readyState == 'complete'"


def test_values_survive_a_browser(daemon):
    values = {'K"<&>ü': 'v"<&>  ü&amp;', "T": " two  words ", "é": ""}
    options = webdriver.ChromeOptions()
    options.add_experimental_option("prefs", {"intl.charset_default": "UTF-8"})
    for argument in ("headless", "no-sandbox", "disable-quic", "disable-background-networking",
                     "disable-component-update", f"user-data-dir={daemon.dir}/profile"):
        options.add_argument(argument)
    with daemon.serve(secondary=schema("r", **values)) as send, \
            webdriver.Chrome(options=options) as browser:
        def press(button):
            browser.execute_script("document.left = true")
            browser.find_element("css selector", f"[value={button}]").click()
            WebDriverWait(browser, 60, ignored_exceptions=[WebDriverException]).until(
                lambda _: browser.execute_script(LOADED))

        (daemon.dir / "secondary").unlink()
        browser.get(send.url)
        for typed, saved in ("", None), ('<b>"ß" & co</b>', True):
            assert browser.execute_script(SHOWN) == {**values, "": "Reboot"}
            browser.find_element("name", "T").send_keys(typed)
            press("Submit")
            values["T"] += typed
            assert browser.execute_script(SHOWN) == {**values, "": "Reboot"}
            assert daemon.read("secondary") == (saved and schema("r", **values))
        press("Reboot")
        assert browser.find_element("tag name", "h3").text.startswith("Rebooting the core")
        assert daemon.read("rebooted") == "once\n"
