"""The page in a real browser: what it shows, and what the daemon keeps. Run by scripts/browser."""
import json
import os
import pathlib
import subprocess

from daemon import SECONDS, Daemon, send, wait_until_listening
from selenium import webdriver
from selenium.webdriver.chrome.service import Service
from selenium.webdriver.common.by import By
from selenium.webdriver.support.expected_conditions import staleness_of, title_is
from selenium.webdriver.support.wait import WebDriverWait

ROOT = pathlib.Path(__file__).parents[1]
SCHEMA = (ROOT / "examples/primary_feature_toggle.conf").read_text(encoding="utf-8")
TOGGLES = {toggle["key"]: toggle["value"] for toggle in json.loads(SCHEMA)["variables"]}
ODD = dict(zip(sorted(TOGGLES), ["<&>\"'", " two words", "Größe→жук"]))
NGINX = """
pid pid;
events {}
http {
  access_log off;
  client_body_temp_path temp; proxy_temp_path temp;
  fastcgi_temp_path temp; scgi_temp_path temp; uwsgi_temp_path temp;
  include site;
}
"""


def open_browser(directory):
    options = webdriver.ChromeOptions()
    options.accept_insecure_certs = True
    for argument in ("headless", "no-sandbox", "hide-scrollbars", "disable-dev-shm-usage",
                     "disable-background-networking", f"user-data-dir={directory}/browser"):
        options.add_argument(argument)
    # The page names no encoding: Chromium takes ASCII for windows-1252, and anything else for this.
    options.add_experimental_option("prefs", {"intl.charset_default": "UTF-8"})
    browser = webdriver.Chrome(options=options, service=Service("/usr/bin/chromedriver"))
    browser.execute_cdp_cmd("Emulation.setDeviceMetricsOverride", {  # to hold what is to be shown
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

        (tmp_path / "secondary").unlink()  # what is posted as it was shown changes nothing
        press(browser, "Submit")
        check_page(browser, "submitted", ODD)
        fill_in(browser, TOGGLES)  # nor does what is not submitted
        reboot(browser, daemon)
        assert daemon.read("secondary") is None


def start_nginx(directory, port):
    """Serves the shipped site on another address; the kernel ends it when this process ends."""
    site = (ROOT / "examples/nginx.conf").read_text()
    assert site.count("listen ") == site.count("listen 443 ") == site.count(":8080;") == 1
    site = site.replace("listen 443 ", f"listen 127.0.0.2:{port} ").replace(":8080;", f":{port};")
    (directory / "site").write_text(site)
    (directory / "nginx.conf").write_text(NGINX)
    (directory / "feature_toggled.users").write_text("user:{PLAIN}secret\n")
    subprocess.run("openssl req -x509 -nodes -subj /CN=test -keyout feature_toggled.key "
                   "-out feature_toggled.crt".split(), cwd=directory, check=True)
    os.spawnlp(os.P_NOWAIT, "setpriv", "setpriv", "--pdeathsig", "KILL",
               ROOT / "build/browser/nginx/usr/sbin/nginx", "-e", "stderr", "-p", directory,
               "-c", "nginx.conf", "-g", "daemon off; master_process off;")
    wait_until_listening("127.0.0.2", port)
    return f"https://127.0.0.2:{port}"


def test_page_through_nginx(tmp_path):
    daemon = Daemon([ROOT / "build/release/feature_toggled"], tmp_path)
    with daemon.serve(primary=SCHEMA) as port, open_browser(tmp_path) as browser:
        address = start_nginx(tmp_path, port)

        def status(*arguments):
            return subprocess.run(["curl", "-sk", "-o/dev/null", "-w%{http_code}", *arguments,
                                   f"{address}/update"], check=True, capture_output=True).stdout

        assert status("-dDEMO_THEME=changed") == b"401"
        for origin in ["https://127.0.0.2", f"http://127.0.0.2:{port}", f"{address}.example",
                       f"https://other.example:{port}"]:
            assert status("-dA=1", "-uuser:secret", f"-HOrigin: {origin}") == b"403"
        # Of another type than a form, since the daemon refuses only long forms.
        assert status("-d" + "x" * 8193, "-uuser:secret", "-HContent-Type: text/plain") == b"413"

        browser.get(address.replace("//", "//user:secret@"))
        assert browser.execute_script("return document.characterSet") == "UTF-8"
        submit_odd(browser, daemon)
        saved = daemon.read("secondary")
        form = f"<form method=post action={address}/update><input name=DEMO_THEME value=x></form>"
        for other_site in [f"http://127.0.0.1:{port}/", "data:text/html,"]:
            browser.get(other_site)
            browser.execute_script(
                "document.body.innerHTML = arguments[0]; document.forms[0].submit()", form)
            WebDriverWait(browser, SECONDS).until(title_is("403 Forbidden"))
        assert daemon.read("secondary") == saved

        browser.get(address)  # The browser has kept the password.
        reboot(browser, daemon)
        assert {status() for guess in range(30)} == {b"401", b"429"}
