"""The page through nginx, with the shipped site, in a real browser. Run by scripts/browser."""
import os
import subprocess

from browser_test import ROOT, SCHEMA, open_browser, reboot, submit_odd
from daemon import SECONDS, Daemon, is_listening, wait_until
from selenium.webdriver.support.expected_conditions import title_is
from selenium.webdriver.support.wait import WebDriverWait

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


def start_nginx(directory, port):
    """Serves the shipped site on another address. The kernel kills nginx when this process ends."""
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
    wait_until(lambda: is_listening("127.0.0.2", port))
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
