"""The page as a browser that takes UTF-8 by default shows it, edits it and posts it back."""
from conftest import schema
from selenium import webdriver
from selenium.common.exceptions import WebDriverException
from selenium.webdriver.chrome.service import Service
from selenium.webdriver.support.wait import WebDriverWait

SHOWN = "return Object.fromEntries(Array.from(document.forms[0], i => [i.name, i.value]))"
LOADED = "return !document.left && document.readyState == 'complete'"


def test_values_survive_a_browser(daemon):
    values = {'K"<&>ü': 'v"<&>  ü&amp;', "T": " two  words ", "é": ""}
    options = webdriver.ChromeOptions()
    options.add_experimental_option("prefs", {"intl.charset_default": "UTF-8"})
    for argument in ("headless", "no-sandbox", "disable-dev-shm-usage", "disable-quic",
                     "disable-background-networking", "disable-component-update",
                     f"user-data-dir={daemon.dir}/profile"):
        options.add_argument(argument)
    with daemon.serve(secondary=schema("r", **values)) as port, \
            webdriver.Chrome(options=options, service=Service("/usr/bin/chromedriver")) as browser:
        (daemon.dir / "secondary").unlink()
        browser.get(f"http://127.0.0.1:{port}/")
        for button, typed, saved in [("Submit", "", False), ("Submit", '<b>"ß" & co</b>', True),
                                     ("Reboot", "", True)]:
            assert browser.execute_script(SHOWN) == {**values, "": "Reboot"}
            values["T"] += typed
            browser.find_element("name", "T").send_keys(typed)
            browser.execute_script("document.left = true")
            browser.find_element("css selector", f"[value={button}]").click()
            WebDriverWait(browser, 60, ignored_exceptions=[WebDriverException]).until(
                lambda _: browser.execute_script(LOADED))
            assert daemon.read("secondary") == (schema("r", **values) if saved else None)
        assert browser.find_element("tag name", "h3").text.startswith("Rebooting the core")
        assert daemon.read("rebooted") == "once\n"
