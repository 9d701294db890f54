#!/usr/bin/python3
"""The administration pages under attack, in a real browser.

Starts zolhost on a copy of the examples to which hostile names were added: a style sheet
and a folder whose names are markup, a template that closes the editor's text area, a
multicast port whose address breaks out of its attribute, and a race file whose event and
run names are scripts. Headless Chromium then opens every administration page with those
values and with hostile query values, and checks that no injected script ran: each of them
would set `window.zolInjected`. A page on another local port then tries to change the
server through image links and auto-submitted forms, and nothing may change. The editor
opens and saves files byte for byte. A screenshot of every page goes to the screenshot
folder; every wait is bounded, and so is the whole run.
"""

import http.server
import json
import os
import sys
import threading
import time
import urllib.parse

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
from browser_support import command_line_main, BrowserRun, StepFailed, free_port  # noqa: E402
from selenium.webdriver.common.by import By  # noqa: E402

WHOLE_RUN = 170  # seconds for everything

HOSTILE_FILE = "<img src=x onerror=zolInjected=1>.css"
HOSTILE_FOLDER = "\"'><svg onload=zolInjected=2>"
HOSTILE_TEMPLATE = "hostile.zol"
HOSTILE_ADDRESS = "\"'><img src=x onerror=zolInjected=3>"
HOSTILE_EVENT = "<script>zolInjected=4</script>Touring Cars"
HOSTILE_RUN = "\"'><img src=x onerror=zolInjected=5>"
HOSTILE_QUERY = "<script>zolInjected=6</script>"
HOSTILE_SITE_NAME = "<img src=x onerror=zolInjected=7>"

# Files the editor opens and saves unchanged: entities, tabs, UTF-8, LF or CRLF, a first
# line that is empty, a last line with and without its newline.
ROUND_TRIP = {
    "roundtrip-lf.css": b"\n/* &amp; &lt;b&gt; &nbsp; &copy; </textarea> */\n\tbody { content: \"\xc3\xa9\xe2\x82\xac\"; }\n\nlast",
    "roundtrip-crlf.css": b"/* &amp;amp; &#39; */\r\n\tp { color: red; }\r\n\r\n",
    "q'uo\"te \xc3\xa9.css".encode().decode("utf-8"): b"/* a name with quotes, a blank and a letter */\n",
}


# The parts of the run, in order; --only runs one of them.
PARTS = ("hostile_values", "editor_round_trip", "cross_site", "site_name")


def query(value):
    return urllib.parse.quote(value, safe="")


class SecurityRun(BrowserRun):
    def prepare_appdir(self):
        super().prepare_appdir()
        site = os.path.join(self.appdir, "site")
        with open(os.path.join(site, HOSTILE_FILE), "w", encoding="utf-8") as sheet:
            sheet.write("body { margin: 0; }\n")
        os.makedirs(os.path.join(site, HOSTILE_FOLDER))
        with open(os.path.join(site, HOSTILE_FOLDER, "inside.html"), "w", encoding="utf-8") as page:
            page.write("<p>inside</p>\n")
        with open(os.path.join(site, HOSTILE_TEMPLATE), "w", encoding="utf-8") as template:
            template.write("<zol repeat='10'><p>before</p></textarea><script>zolInjected=8</script></zol>\n")
        for name, data in ROUND_TRIP.items():
            with open(os.path.join(site, name), "wb") as file:
                file.write(data)
        settings_path = os.path.join(self.appdir, "Config", "ZOLServer.ini")
        with open(settings_path, encoding="utf-8", newline="") as source:
            settings = source.read()
        # A second port, multicast, that no site lists and whose address is markup: it
        # cannot start, and the main page shows it with its reason.
        settings = settings.replace("count=1\nport0=2\n", "count=2\nport0=2\nport1=3\n", 1)
        settings += f"\n[port1]\nID=2\naddress={HOSTILE_ADDRESS}\nport=7125\n"
        with open(settings_path, "w", encoding="utf-8", newline="") as copy:
            copy.write(settings)
        with open(os.path.join(self.args.examples, "race.json"), encoding="utf-8") as source:
            race = json.load(source)
        for event in race["events"]:
            if event.get("parent") is not None:
                event["name"] = HOSTILE_EVENT
        race["runs"][0]["name"] = HOSTILE_RUN
        self.race_file = os.path.join(self.work, "race.json")
        with open(self.race_file, "w", encoding="utf-8") as copy:
            json.dump(race, copy)

    # ---- checks ----------------------------------------------------------------------
    def settled(self):
        """Waits until the page has loaded and its images had their chance to fail."""
        self.wait(lambda d: d.execute_script("return document.readyState") == "complete", "the page did not load")
        time.sleep(0.3)

    def no_script_ran(self, what):
        self.settled()
        value = self.driver.execute_script("return typeof window.zolInjected === 'undefined' ? null : "
                                           "String(window.zolInjected)")
        if value is not None:
            self.shot("INJECTED")
            raise StepFailed(f"an injected script ran on {what}: zolInjected={value}")
        hits = self.driver.execute_script(
            "return Array.from(document.querySelectorAll('script,img,svg'))"
            ".filter(e => (e.textContent + ' ' + (e.getAttribute('onerror') || '') + ' ' +"
            " (e.getAttribute('onload') || '')).includes('zolInjected')).length")
        if hits:
            self.shot("INJECTED-ELEMENT")
            raise StepFailed(f"{what} holds an element made from a hostile value")

    def shows_text(self, text, what):
        body = self.driver.find_element(By.TAG_NAME, "body").text
        if text not in body:
            raise StepFailed(f"{what} does not show {text!r} as text")

    def visit(self, path, name, show=None):
        self.open(path)
        self.no_script_ran(path)
        if show is not None:
            self.shows_text(show, path)
        self.shot(name)

    # ---- the steps -------------------------------------------------------------------
    def run(self):
        self.prepare_appdir()
        self.start_host(self.race_file)
        self.start_browser()
        for part in PARTS:
            if self.args.only in (None, part):
                getattr(self, part)()

    def hostile_values(self):
        self.open("/zol/_server/index.html")
        self.main_page_loaded()
        self.visit("/zol/_server/index.html", "main-page", HOSTILE_ADDRESS)
        self.visit("/zol/demo/content.html", "content-page", HOSTILE_FILE)
        self.shows_text(HOSTILE_EVENT, "the content page")
        self.visit("/zol/demo/content.html?path=results", "content-folder")
        self.visit("/zol/demo/content.html?path=" + query(HOSTILE_FOLDER), "content-hostile-folder", "inside.html")
        self.visit("/zol/demo/content.html?path=" + query(HOSTILE_QUERY), "content-hostile-path", HOSTILE_QUERY)
        self.visit("/zol/demo/settings.html", "settings-page")
        self.visit("/zol/demo/editcontent.html?file=index.zol", "editor-template")
        self.visit("/zol/demo/editcontent.html?file=" + HOSTILE_TEMPLATE, "editor-textarea-closer")
        area = self.element(By.ID, "content", "the editor of the hostile template has no text area")
        if "</textarea><script>zolInjected=8</script>" not in area.get_attribute("value"):
            raise StepFailed("the editor does not hold the template's text as it stands")
        self.visit("/zol/demo/editcontent.html?file=" + query(HOSTILE_FILE), "editor-hostile-name", HOSTILE_FILE)
        self.visit("/zol/demo/editcontent.html?file=" + query(HOSTILE_QUERY), "editor-file-not-found", HOSTILE_QUERY)
        self.visit("/zol/_server/deleteport.html?ID=1", "delete-port-question")
        self.visit("/zol/_server/deleteport.html?ID=" + query(HOSTILE_QUERY), "delete-port-hostile-id")
        self.visit("/zol/demo/removeport.html?ID=1", "remove-port-question")
        self.visit("/zol/demo/index.html", "published-page")
        self.visit("/zol/index.html", "file-page")
        # The race box fills once the data manager's run has come in.
        self.open("/zol/_server/index.html")
        self.wait(lambda d: HOSTILE_RUN in d.find_element(By.TAG_NAME, "body").text,
                  "the main page does not show the active run's name")
        self.no_script_ran("the main page with the race box")
        self.shot("main-page-race-box")
        if sorted(self.port_ids()) != ["1", "2"]:
            raise StepFailed(f"opening the delete and remove pages changed the ports: {self.port_ids()}")

    def editor_round_trip(self):
        for name, data in ROUND_TRIP.items():
            self.open("/zol/demo/editcontent.html?file=" + query(name))
            self.no_script_ran(f"the editor of {name!r}")
            names_file = name in self.driver.find_element(By.TAG_NAME, "body").text
            self.shot("editor-" + name.encode("ascii", "replace").decode().replace("'", "").replace('"', ""))
            self.new_page(self.driver.find_element(By.XPATH, "//input[@value='Apply Changes']").click, "Apply")
            self.element(By.XPATH, "//form[@name='reloadform']", "Apply did not lead back to the content page")
            with open(os.path.join(self.appdir, "site", name), "rb") as saved:
                after = saved.read()
            if after != data:
                raise StepFailed(f"saving {name!r} unchanged changed it: {data!r} became {after!r}")
            if not names_file:
                raise StepFailed(f"the editor of {name!r} does not say which file is open")
        print(f"editor round trip: {len(ROUND_TRIP)} files saved unchanged, byte for byte", flush=True)

    def cross_site(self):
        index_path = os.path.join(self.appdir, "site", "index.zol")
        with open(index_path, "rb") as index:
            index_before = index.read()
        self.open("/zol/_server/index.html")
        ports_before = sorted(self.port_ids())
        if not ports_before:
            raise StepFailed("the main page lists no port")
        self.open("/zol/demo/content.html")
        content_before = self.driver.find_element(By.TAG_NAME, "body").text

        target = self.base
        forms = [
            ("/zol/_server/index.html", {"porttype": "2"}),
            ("/zol/_server/deleteport.html?ID=1", {"ID": "1"}),
            ("/zol/demo/removeport.html?ID=1", {"ID": "1"}),
            ("/zol/demo/settings.html", {"sitename": "taken", "rootpath": "/tmp", "event": "2",
                                         "screenwidth": "1", "screenheight": "1"}),
            ("/zol/demo/editcontent.html", {"path": "", "file": "index.zol", "content": "defaced"}),
            ("/zol/demo/content.html", {"reload": "yes"}),
        ]
        html = ["<html><body><h1>A page elsewhere</h1>"]
        for path in ("/zol/_server/deleteport.html?ID=1", "/zol/demo/removeport.html?ID=1",
                     "/zol/_server/deleteport.html?ID=2"):
            html.append(f"<img src='{target}{path}'>")
        for number, (path, fields) in enumerate(forms):
            html.append(f"<iframe name='f{number}'></iframe>"
                        f"<form id='form{number}' method='post' target='f{number}' action='{target}{path}'>")
            for field, value in fields.items():
                html.append(f"<input type='hidden' name='{field}' value='{value}'>")
            html.append("</form>")
        html.append("<script>")
        html.append("".join(f"document.getElementById('form{n}').submit();" for n in range(len(forms))))
        html.append("window.attackSent = true;</script></body></html>")
        page = "\n".join(html).encode()

        class Attacker(http.server.BaseHTTPRequestHandler):
            def do_GET(self):  # noqa: N802 - the library's name
                self.send_response(200)
                self.send_header("Content-Type", "text/html")
                self.send_header("Content-Length", str(len(page)))
                self.end_headers()
                self.wfile.write(page)

            def log_message(self, *args):
                pass

        attacker_port = free_port()
        server = http.server.ThreadingHTTPServer(("127.0.0.1", attacker_port), Attacker)
        thread = threading.Thread(target=server.serve_forever, daemon=True)
        thread.start()
        try:
            self.driver.get(f"http://127.0.0.1:{attacker_port}/")
            self.wait(lambda d: d.execute_script("return window.attackSent === true"), "the attack page did not run")
            time.sleep(3)
            self.shot("cross-site-page")
        finally:
            server.shutdown()
            server.server_close()

        with open(index_path, "rb") as index:
            if index.read() != index_before:
                raise StepFailed("the page elsewhere changed index.zol")
        self.open("/zol/_server/index.html")
        self.main_page_loaded()
        if sorted(self.port_ids()) != ports_before:
            raise StepFailed(f"the page elsewhere changed the ports: {ports_before} became {sorted(self.port_ids())}")
        self.open("/zol/demo/content.html")
        content_after = self.driver.find_element(By.TAG_NAME, "body").text
        for line in content_before.splitlines():
            if line.startswith(("Name:", "Root path:", "Current Event:")) and line not in content_after:
                raise StepFailed(f"the page elsewhere changed the site: {line!r} is gone")
        if "Port:" not in content_after:
            raise StepFailed("the page elsewhere removed the TCP port from the site")
        self.shot("after-cross-site")

        # A script on the server's own origin without the token changes nothing either.
        self.open("/zol/_server/index.html")
        status = self.driver.execute_async_script(
            "const done = arguments[arguments.length - 1];"
            "fetch('index.html', {method: 'POST', headers: {'Content-Type': 'application/x-www-form-urlencoded'},"
            " body: 'porttype=2'}).then(r => done(r.status)).catch(e => done(String(e)));")
        if status != 403:
            raise StepFailed(f"a POST of the add-port form without the token was answered {status}, not 403")
        self.open("/zol/_server/index.html")
        if sorted(self.port_ids()) != ports_before:
            raise StepFailed("a POST without the token added a port")
        print("cross-site: image links and six auto-submitted forms changed nothing", flush=True)

    def site_name(self):
        self.open("/zol/demo/settings.html")
        field = self.element(By.NAME, "sitename", "the settings page has no site name field")
        # maxlength only limits typing; the value is set as a hostile script would send it.
        self.driver.execute_script("arguments[0].value = arguments[1];", field, HOSTILE_SITE_NAME)
        self.new_page(self.driver.find_element(By.XPATH, "//input[@type='submit' and @value='OK']").click, "OK")
        self.wait(lambda d: "content.html" in d.current_url, "the settings did not lead back to the content page")
        self.no_script_ran("the content page with a hostile site name")
        self.shows_text(HOSTILE_SITE_NAME, "the content page")
        self.shot("hostile-site-name-content")
        self.visit("/zol/_server/index.html", "hostile-site-name-main-page", HOSTILE_SITE_NAME)


def main():
    return command_line_main(SecurityRun, __doc__, WHOLE_RUN, "admin_security_test",
                             lambda parser: parser.add_argument("--only", choices=PARTS, help="run only this part"))


if __name__ == "__main__":
    sys.exit(main())
