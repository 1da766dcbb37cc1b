"""The page in a real browser: what it shows, and what the daemon saves. Run by scripts/browser."""
import json
import pathlib

from daemon import SECONDS, Daemon, send
from selenium import webdriver
from selenium.webdriver.chrome.service import Service
from selenium.webdriver.common.by import By
from selenium.webdriver.support.expected_conditions import staleness_of
from selenium.webdriver.support.wait import WebDriverWait

ROOT = pathlib.Path(__file__).parents[1]
SCHEMA = (ROOT / "examples/primary_feature_toggle.conf").read_text(encoding="utf-8")
TOGGLES = {toggle["key"]: toggle["value"] for toggle in json.loads(SCHEMA)["variables"]}
ODD = dict(zip(sorted(TOGGLES), ["<&>\"'", " two words", "Größe→жук"]))


def open_browser(directory):
    options = webdriver.ChromeOptions()
    options.accept_insecure_certs = True
    for argument in ("headless", "no-sandbox", "hide-scrollbars", "disable-dev-shm-usage",
                     "disable-background-networking", f"user-data-dir={directory}/browser"):
        options.add_argument(argument)
    # The page declares no encoding. Chromium treats pages that are not all ASCII as this one.
    options.add_experimental_option("prefs", {"intl.charset_default": "UTF-8"})
    browser = webdriver.Chrome(options=options, service=Service("/usr/bin/chromedriver"))
    browser.execute_cdp_cmd("Emulation.setDeviceMetricsOverride", {  # as large as the page
        "width": 420, "height": 148, "deviceScaleFactor": 2, "mobile": False})
    return browser


def fill_in(browser, values):
    for name, value in values.items():
        field = browser.find_element(By.NAME, name)
        field.clear()
        field.send_keys(value)


def press(browser, button):
    button = browser.find_element(By.CSS_SELECTOR, f"[type=submit][value={button}]")
    button.click()
    WebDriverWait(browser, SECONDS).until(staleness_of(button))


def check_page(browser, picture, values):
    inputs = browser.find_elements(By.TAG_NAME, "input")
    shown = [(input.get_property("name"), input.get_property("value"))
             for input in inputs if input.is_displayed()]
    assert shown == sorted(values.items()) + [("", "Submit"), ("", "Reboot")]
    assert browser.save_screenshot(f"{ROOT}/build/browser/{picture}.png")


def submit_odd(browser, daemon):
    fill_in(browser, ODD)
    press(browser, "Submit")
    check_page(browser, "submitted", ODD)
    saved = json.loads(daemon.read("secondary"))["variables"]
    assert {toggle["key"]: toggle["value"] for toggle in saved} == ODD


def reboot(browser, daemon):
    press(browser, "Reboot")
    assert "Rebooting the core to take effect" in browser.page_source
    assert daemon.read("rebooted") == "once\n"


def test_page(tmp_path):
    daemon = Daemon([ROOT / "build/release/feature_toggled"], tmp_path)
    with daemon.serve(primary=SCHEMA) as port, open_browser(tmp_path) as browser:
        browser.get(f"http://127.0.0.1:{port}/")
        check_page(browser, "page", TOGGLES)

        send(port, "/update", "DEMO_THEME=gr%C3%BCn")
        browser.refresh()
        check_page(browser, "changed", {**TOGGLES, "DEMO_THEME": "grün"})
        submit_odd(browser, daemon)

        (tmp_path / "secondary").unlink()  # It comes back only if something changes.
        press(browser, "Submit")
        check_page(browser, "submitted", ODD)
        fill_in(browser, TOGGLES)  # not submitted
        reboot(browser, daemon)
        assert daemon.read("secondary") is None
