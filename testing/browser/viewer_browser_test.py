#!/usr/bin/python3
"""The spectators' viewer in a real browser.

Starts zolhost on a copy of the examples (the example meeting played by the stand-in data
manager) and a zolclient on its TCP port that serves what it receives (--serve), then
drives headless Chromium as a spectator would: the list of pages, the results page with
its table (one header row, one row per competitor once every car has a lap), a new
results version that changes the table in place without loading the page again, and the
status line when the stream is lost and when it is back. A screenshot of every step goes
to the screenshot folder; the first step that does not show what it should ends the test
with exit status 1. Every wait is bounded, and so is the whole run.
"""

import json
import os
import signal
import sys
import time

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
from browser_support import command_line_main, WAIT, BrowserRun, StepFailed, free_port, port_open  # noqa: E402
from selenium.webdriver.common.by import By  # noqa: E402

WHOLE_RUN = 170  # seconds for everything


class Run(BrowserRun):
    def start_programs(self):
        self.prepare_appdir()
        self.race_file = os.path.join(self.args.examples, "race.json")
        self.start_host(self.race_file)
        self.viewer_port = free_port()
        while self.viewer_port in (self.page_port, self.web_port):
            self.viewer_port = free_port()
        self.client = self.start_background(
            [os.path.join(self.args.bin, "zolclient"), f"tcp://127.0.0.1:{self.page_port}", "--serve",
             f"127.0.0.1:{self.viewer_port}", "--timeout", str(WHOLE_RUN)], "zolclient.log")
        deadline = time.monotonic() + WAIT
        while not port_open(self.viewer_port):
            if time.monotonic() > deadline:
                raise StepFailed("zolclient's viewer did not listen:\n" +
                                 open(os.path.join(self.work, "zolclient.log")).read())
            time.sleep(0.1)
        self.base = f"http://127.0.0.1:{self.viewer_port}"

    def table_text(self):
        return self.driver.execute_script(
            "var t = document.querySelector('#zol-live table.results th') &&"
            " document.querySelector('#zol-live table.results th').closest('table');"
            " return t ? t.innerText : '';")

    def run(self):
        self.start_programs()
        with open(self.race_file, encoding="utf-8") as race:
            competitors = len(json.load(race)["competitors"])
        self.start_browser()
        driver = self.driver

        # The list of pages, once the results page has come.
        deadline = time.monotonic() + 60
        while True:
            self.open("/")
            if driver.find_elements(By.XPATH, "//a[@href='/site/1/results/current.html']"):
                break
            if time.monotonic() > deadline:
                raise StepFailed("the index did not list results/current.html within 60 s")
            time.sleep(1)
        self.element(By.XPATH, "//h2[normalize-space(.)='Site 1']", "the index names no site")
        self.shot("index")

        # The results page: one header row of th cells, then a row per competitor.
        driver.find_element(By.XPATH, "//a[@href='/site/1/results/current.html']").click()
        self.element(By.ID, "zol-live", "the results page has no live part")
        driver.execute_script("window.zolSamePage = true;")

        def full_table(_driver):
            shape = _driver.execute_script(
                "var th = document.querySelector('#zol-live table.results th');"
                " if (!th) return null; var table = th.closest('table');"
                " var heads = table.querySelectorAll('tr');"
                " var headerRows = Array.prototype.filter.call(heads, function (r) {"
                "   return r.querySelector('th') !== null; }).length;"
                " var rows = Array.prototype.filter.call(heads, function (r) {"
                "   return r.querySelector('td') !== null; }).length;"
                " return [headerRows, table.querySelectorAll('th').length, rows];")
            return shape if shape and shape[2] == competitors else False

        shape = self.wait(full_table, f"the results table did not reach {competitors} rows", seconds=60)
        if shape[0] != 1 or shape[1] < 3:
            raise StepFailed(f"expected one header row of th cells, found {shape[0]} rows with {shape[1]} th cells")
        self.shot("results-page")

        before = self.table_text()
        self.wait(lambda _driver: self.table_text() not in ("", before), "the results table did not change",
                  seconds=45)
        if driver.execute_script("return window.zolSamePage === true;") is not True:
            raise StepFailed("the page was loaded again instead of changed in place")
        self.shot("results-changed-in-place")

        status = driver.find_element(By.ID, "zol-status")
        if "Race time" not in status.text:
            raise StepFailed(f"the status line shows no race time: {status.text!r}")

        # The stream goes: zolhost stops; after 10 s the status line says so.
        host = self.processes[0]
        host.send_signal(signal.SIGKILL)
        host.wait(timeout=10)
        self.wait(lambda _driver: "Stream lost" in _driver.find_element(By.ID, "zol-status").text,
                  "the status line did not say that the stream is lost", seconds=25)
        if "zol-lost" not in driver.find_element(By.ID, "zol-status").get_attribute("class"):
            raise StepFailed("the lost status line is not marked as such")
        self.shot("stream-lost")

        # The stream comes back on the same port; the status line clears.
        self.processes.remove(host)
        self.start_host(self.race_file)
        self.wait(lambda _driver: "Race time" in _driver.find_element(By.ID, "zol-status").text,
                  "the status line did not clear when the stream came back", seconds=40)
        if driver.execute_script("return window.zolSamePage === true;") is not True:
            raise StepFailed("the page was loaded again while the stream was away")
        self.shot("stream-back")


def main():
    return command_line_main(Run, __doc__, WHOLE_RUN, "viewer_browser_test")


if __name__ == "__main__":
    sys.exit(main())
