"""What the browser tests of the administration pages share: free ports, a copy of the
examples as an application directory, zolhost and zolclient as child processes, headless
Chromium with bounded waits and numbered screenshots, and a bound on the whole run."""

import argparse
import os
import shutil
import signal
import socket
import subprocess
import sys
import tempfile
import threading
import time

try:
    from selenium import webdriver
    from selenium.common.exceptions import (NoSuchElementException, StaleElementReferenceException,
                                            TimeoutException, WebDriverException)
    from selenium.webdriver.chrome.options import Options
    from selenium.webdriver.chrome.service import Service
    from selenium.webdriver.common.by import By
    from selenium.webdriver.support import expected_conditions
    from selenium.webdriver.support.ui import WebDriverWait
except ImportError as error:  # pragma: no cover - told in one line
    print(f"browser test: python3-selenium is missing ({error})", file=sys.stderr)
    sys.exit(2)

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), ".."))
from example_processes import ExampleSetupFailed, copy_examples, free_port, free_ports  # noqa: E402,F401

WAIT = 20  # seconds for any one thing to show


class StepFailed(ExampleSetupFailed):
    pass


def wait_for_text(path, text, seconds):
    deadline = time.monotonic() + seconds
    while time.monotonic() < deadline:
        try:
            with open(path, encoding="utf-8", errors="replace") as log:
                if text in log.read():
                    return True
        except FileNotFoundError:
            pass
        time.sleep(0.1)
    return False


def port_open(port):
    try:
        with socket.create_connection(("127.0.0.1", port), timeout=1):
            return True
    except OSError:
        return False


def xpath_text(text):
    if "'" not in text:
        return f"'{text}'"
    return "concat('" + text.replace("'", "', \"'\", '") + "')"


class BrowserRun:
    """zolhost on a copy of the examples, with its web server on a free port, and a
    headless Chromium. Subclasses write `run`."""

    def __init__(self, args, work):
        self.args = args
        self.work = work
        self.step = 0
        self.driver = None
        self.page_port, self.web_port = free_ports(2)
        self.base = f"http://127.0.0.1:{self.web_port}"
        self.processes = []
        self.host_log = os.path.join(work, "zolhost.log")

    # ---- processes -------------------------------------------------------------------
    def prepare_appdir(self):
        """Makes the application directory; subclasses may change it before zolhost starts."""
        self.appdir = os.path.join(self.work, "app")
        copy_examples(self.args.examples, self.appdir, self.page_port)

    def start_host(self, race_file, extra=()):
        host = subprocess.Popen(
            [os.path.join(self.args.bin, "zolhost"), "--appdir", self.appdir, "--web", f"127.0.0.1:{self.web_port}",
             "--race", race_file, "--race-speed", "4", "--race-loop", *extra],
            stdout=subprocess.DEVNULL, stderr=open(self.host_log, "w"))
        self.processes.append(host)
        if not wait_for_text(self.host_log, "administration pages at", WAIT):
            raise StepFailed("zolhost did not start its web server:\n" + open(self.host_log).read())

    def start_background(self, command, log_name):
        process = subprocess.Popen(command, stdout=subprocess.DEVNULL,
                                   stderr=open(os.path.join(self.work, log_name), "w"))
        self.processes.append(process)
        return process

    def stop_programs(self):
        for process in reversed(self.processes):
            if process.poll() is None:
                process.send_signal(signal.SIGTERM)
                try:
                    process.wait(timeout=10)
                except subprocess.TimeoutExpired:
                    process.kill()
                    process.wait(timeout=10)

    # ---- browser ---------------------------------------------------------------------
    def start_browser(self):
        options = Options()
        options.binary_location = "/usr/bin/chromium"
        for argument in ("--headless=new", "--no-sandbox", "--disable-gpu", "--disable-dev-shm-usage",
                         "--window-size=1280,1100", f"--user-data-dir={os.path.join(self.work, 'profile')}",
                         "--no-first-run", "--disable-extensions"):
            options.add_argument(argument)
        service = Service("/usr/bin/chromedriver", log_path=os.path.join(self.work, "chromedriver.log"))
        self.driver = webdriver.Chrome(service=service, options=options)
        self.driver.set_page_load_timeout(WAIT)
        self.driver.set_script_timeout(WAIT)

    def shot(self, name):
        self.step += 1
        os.makedirs(self.args.screenshots, exist_ok=True)
        path = os.path.join(self.args.screenshots, f"{self.step:02d}-{name}.png")
        self.driver.save_screenshot(path)
        print(f"step {self.step:02d} {name}: ok ({path})", flush=True)

    def wait(self, condition, what, seconds=WAIT):
        try:
            return WebDriverWait(self.driver, seconds, ignored_exceptions=(
                NoSuchElementException, StaleElementReferenceException)).until(condition)
        except TimeoutException:
            self.step += 1
            path = os.path.join(self.args.screenshots, f"{self.step:02d}-FAILED.png")
            os.makedirs(self.args.screenshots, exist_ok=True)
            self.driver.save_screenshot(path)
            raise StepFailed(f"{what} (screenshot {path}; at {self.driver.current_url})") from None

    def element(self, by, value, what):
        return self.wait(expected_conditions.presence_of_element_located((by, value)), what)

    def visible(self, by, value, what):
        return self.wait(expected_conditions.visibility_of_element_located((by, value)), what)

    def accept_confirm(self, what):
        alert = self.wait(expected_conditions.alert_is_present(), f"no confirmation asked: {what}")
        alert.accept()

    def new_page(self, action, what):
        """Runs `action` (a click that leaves the page) and waits until the page is gone."""
        old = self.driver.find_element(By.TAG_NAME, "html")
        action()

        def left(_driver):
            try:
                old.is_enabled()
                return False
            except StaleElementReferenceException:
                return True
            except WebDriverException as error:
                # While the old document goes, the driver may say so in its own words.
                if "does not belong to the document" in str(error):
                    return True
                raise

        self.wait(left, f"the browser stayed on the page: {what}")

    def open(self, path):
        self.driver.get(self.base + path)

    def main_page_loaded(self):
        self.element(By.XPATH, "//h1[contains(., 'Welcome to the ZOL server')]", "the main page did not show")

    def port_ids(self):
        """The IDs of the ports on the main page, read from their delete forms."""
        ids = []
        for form in self.driver.find_elements(By.XPATH, "//form[contains(@action, 'deleteport.html')]"):
            action = form.get_attribute("action")
            if "ID=" in action:
                ids.append(action.split("ID=")[1].split("&")[0])
            else:
                ids += [field.get_attribute("value") for field in form.find_elements(By.NAME, "ID")]
        # Delete links, as older pages had them.
        for link in self.driver.find_elements(By.XPATH, "//a[starts-with(@href, 'deleteport.html?ID=')]"):
            ids.append(link.get_attribute("href").split("ID=")[1])
        return ids

    def delete_button(self, port_id):
        for form in self.driver.find_elements(By.XPATH, "//form[contains(@action, 'deleteport.html')]"):
            action = form.get_attribute("action")
            named = [field.get_attribute("value") for field in form.find_elements(By.NAME, "ID")]
            if action.endswith(f"ID={port_id}") or named == [port_id]:
                return form.find_element(By.XPATH, ".//*[@type='submit']")
        raise StepFailed(f"no delete button for port {port_id}")

    def run(self):
        raise NotImplementedError


def main_of(run_class, args, whole_run, name):
    """Runs one browser test within `whole_run` seconds; returns the exit status."""
    for program in ("zolhost", "zolclient"):
        if not os.access(os.path.join(args.bin, program), os.X_OK):
            print(f"{name}: no {program} in {args.bin}", file=sys.stderr)
            return 2
    shutil.rmtree(args.screenshots, ignore_errors=True)

    started = time.monotonic()
    work = tempfile.mkdtemp(prefix="zol-browser-")
    run = run_class(args, work)
    # Past the limit the programs are stopped, which ends every wait of the browser.
    expired = threading.Event()

    def expire():
        expired.set()
        run.stop_programs()
        if run.driver is not None:
            try:
                run.driver.quit()
            except Exception:  # noqa: BLE001 - the run is over either way
                pass

    timer = threading.Timer(whole_run, expire)
    timer.daemon = True
    timer.start()
    status = 0
    try:
        run.run()
    except (ExampleSetupFailed, WebDriverException, OSError) as error:
        status = 1
        reason = "the run took longer than %d s" % whole_run if expired.is_set() else str(error)
        print(f"{name}: FAILED: {reason}", file=sys.stderr)
        try:
            print(open(run.host_log).read()[-3000:], file=sys.stderr)
        except OSError:
            pass
    finally:
        timer.cancel()
        if run.driver is not None and not expired.is_set():
            try:
                run.driver.quit()
            except WebDriverException:
                pass
        run.stop_programs()
        if status == 0:
            shutil.rmtree(work, ignore_errors=True)
        else:
            print(f"{name}: logs kept in {work}", file=sys.stderr)
    print(f"{name}: {'passed' if status == 0 else 'failed'} in {time.monotonic() - started:.1f} s")
    return status


def command_line_main(run_class, doc, whole_run, name, more_options=None):
    """Reads the command line every browser test takes (and `more_options`, a function
    that adds its own to the parser), then runs the test; returns the exit status."""
    parser = argparse.ArgumentParser(description=doc.split("\n\n")[0])
    parser.add_argument("--bin", required=True, help="folder of zolhost and zolclient")
    parser.add_argument("--examples", required=True, help="the examples folder")
    parser.add_argument("--screenshots", required=True, help="folder for the screenshots of the steps")
    if more_options is not None:
        more_options(parser)
    return main_of(run_class, parser.parse_args(), whole_run, name)

