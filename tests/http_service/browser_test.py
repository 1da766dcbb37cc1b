"""The page as a browser shows it, edits it and posts it back."""
import os

import pytest
from conftest import schema
from selenium import webdriver
from selenium.webdriver.chrome.service import Service
from selenium.webdriver.common.by import By
from selenium.webdriver.support.expected_conditions import staleness_of
from selenium.webdriver.support.wait import WebDriverWait

OPTIONS = ("headless no-sandbox disable-gpu disable-quic no-first-run disable-background-networking "
           "disable-component-update disable-sync disable-dev-shm-usage").split()


# The page declares no character set: a browser takes its own, and what it shows is up to that.
@pytest.mark.parametrize("encoding", ["UTF-8", "windows-1252"])
def test_values_survive_a_browser(daemon, encoding):
    values = {'K"<&>ü': 'v"<&>  ü&amp;', "T": " two  words ", "é": ""}
    daemon.write(secondary=schema("r", **values))
    options = webdriver.ChromeOptions()
    options.binary_location = "/usr/bin/chromium"
    options.add_experimental_option("prefs", {"intl.charset_default": encoding})
    for argument in (*OPTIONS, f"user-data-dir={daemon.dir}/profile"):
        options.add_argument("--" + argument)
    with daemon.serve() as send, webdriver.Chrome(service=Service("/usr/bin/chromedriver"),
                                                  options=options) as browser:
        def shown():
            fields = browser.find_elements(By.CSS_SELECTOR, "input[type=text]")
            return {field.get_attribute("name"): field.get_property("value") for field in fields}

        def press(button):
            form = browser.find_element(By.TAG_NAME, "form")
            form.find_element(By.CSS_SELECTOR, f"input[value={button}]").click()
            WebDriverWait(browser, 60).until(staleness_of(form))

        daemon.write(secondary=None)
        browser.get(send.url)
        look = {key.encode().decode(encoding): value.encode().decode(encoding)
                for key, value in values.items()}
        assert shown() == look
        assert list(look)[0] + ":" in browser.find_element(By.TAG_NAME, "form").text
        press("Submit")
        assert (shown(), daemon.read("secondary")) == (look, None)
        browser.find_element(By.NAME, "T").send_keys('<b>"ß" & co</b>')
        press("Submit")
        look["T"] += '<b>"ß" & co</b>'
        values["T"] = os.fsdecode(look["T"].encode(encoding))
        assert (shown(), daemon.read("secondary")) == (look, schema("r", **values))
        browser.find_element(By.NAME, "T").send_keys("lost")
        press("Reboot")
        assert browser.find_element(By.TAG_NAME, "h3").text.startswith("Rebooting the core")
        assert (daemon.read("secondary"), daemon.read("rebooted")) == (schema("r", **values), "once\n")
