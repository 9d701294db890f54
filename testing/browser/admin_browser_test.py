#!/usr/bin/python3
"""The administration pages in a real browser.

Starts zolhost on a copy of the examples (free ports, the example meeting played by the
stand-in data manager) and, once the port was stopped and started, a zolclient on its TCP
port, then drives headless Chromium
through the pages as race staff would: edit a port in place, stop and start it, add and
delete a port, walk the site's folders, change the current event, edit a template and
reload the site, until the client receives the new text. A screenshot of every step goes
to the screenshot folder; the first step that does not show what it should ends the test
with exit status 1. Every wait is bounded, and so is the whole run.
"""

import os
import sys
import time

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
from browser_support import (command_line_main, WAIT, BrowserRun, StepFailed, port_open,  # noqa: E402
                             wait_for_text, xpath_text)
from selenium.webdriver.common.by import By  # noqa: E402
from selenium.webdriver.support.ui import Select  # noqa: E402

WHOLE_RUN = 150  # seconds for everything
MARKER = "Edited in the browser"


class Run(BrowserRun):
    def start_programs(self):
        self.prepare_appdir()
        self.start_host(os.path.join(self.args.examples, "race.json"))

    def start_client(self):
        self.received = os.path.join(self.work, "received")
        self.client_log = os.path.join(self.work, "zolclient.log")
        self.start_background(
            [os.path.join(self.args.bin, "zolclient"), f"tcp://127.0.0.1:{self.page_port}", "--out", self.received,
             "--timeout", str(WHOLE_RUN)], "zolclient.log")

    # ---- the steps -------------------------------------------------------------------
    def run(self):
        self.start_programs()
        self.start_browser()
        driver = self.driver

        self.open("/zol/_server/index.html")
        self.main_page_loaded()
        self.element(By.XPATH, "//td[@class='FrameMenu']//a[contains(., 'demo')]", "the menu lacks the site")
        self.element(By.XPATH, "//td[@bgcolor='green']/font[contains(., 'Port: %d')]" % self.page_port,
                     "the TCP port is not shown running")
        # The frame's own style sheet and folder image arrived.
        header = self.element(By.CLASS_NAME, "TableHeader", "no table header")
        if header.value_of_css_property("font-weight") not in ("700", "bold"):
            raise StepFailed("the style sheet of the frame did not apply to TableHeader")
        self.shot("main-page")

        ids = self.port_ids()
        if len(ids) != 1:
            raise StepFailed(f"expected one port, found {ids}")
        port_id = ids[0]
        editor_id = f"settings{port_id}"
        if driver.find_element(By.ID, editor_id).is_displayed():
            raise StepFailed("the port's editor shows before 'edit'")
        url_before = driver.current_url
        driver.find_element(By.XPATH, "//a[normalize-space(.)='edit']").click()
        editor = self.visible(By.ID, editor_id, "'edit' did not open the port's editor")
        if driver.current_url != url_before:
            raise StepFailed("'edit' left the page")
        self.shot("port-editor-open")

        active = editor.find_element(By.NAME, "portactive")
        if not active.is_selected():
            raise StepFailed("the port's Active box is not ticked")
        active.click()
        apply = editor.find_element(By.XPATH, ".//input[@value='Apply']")
        self.new_page(lambda: (apply.click(), self.accept_confirm("Apply")), "Apply")
        self.main_page_loaded()
        self.element(By.XPATH, "//td[@bgcolor='red' and normalize-space(.)='None']", "the port is not shown stopped")
        deadline = time.monotonic() + WAIT
        while port_open(self.page_port) and time.monotonic() < deadline:
            time.sleep(0.2)
        if port_open(self.page_port):
            raise StepFailed("the TCP port still takes connections after it was stopped")
        self.shot("port-stopped")

        driver.find_element(By.XPATH, "//a[normalize-space(.)='edit']").click()
        editor = self.visible(By.ID, editor_id, "'edit' did not open the stopped port's editor")
        editor.find_element(By.NAME, "portactive").click()
        apply = editor.find_element(By.XPATH, ".//input[@value='Apply']")
        self.new_page(lambda: (apply.click(), self.accept_confirm("Apply")), "Apply")
        self.main_page_loaded()
        self.element(By.XPATH, "//td[@bgcolor='green']/font[contains(., 'Port: %d')]" % self.page_port,
                     "the port did not start again")
        self.shot("port-started-again")
        # The client comes only now: the module's TCP port cannot listen again at once
        # on a port whose clients it has just closed (they linger in TIME_WAIT).
        self.start_client()
        if not wait_for_text(self.host_log, "Accepting Connection", WAIT):
            raise StepFailed("zolclient did not connect to the TCP port")

        Select(driver.find_element(By.NAME, "porttype")).select_by_value("2")
        self.new_page(driver.find_element(By.XPATH, "//form[@name='addportform']//input[@value='Add']").click, "Add")
        self.wait(lambda d: len(self.port_ids()) == 2, "the added port is not listed")
        new_id = [i for i in self.port_ids() if i != port_id][0]
        self.shot("port-added")

        delete = self.delete_button(new_id)
        self.new_page(lambda: (delete.click(), self.accept_confirm("Delete")), "Delete")
        self.main_page_loaded()
        self.wait(lambda d: self.port_ids() == [port_id], "the deleted port is still listed")
        self.shot("port-deleted")

        self.new_page(driver.find_element(By.XPATH, "//td[@class='FrameMenu']//a[contains(., 'demo')]").click, "menu")
        self.element(By.XPATH, "//form[@name='reloadform']", "the content page did not open")
        folder = self.element(By.XPATH, "//a[@href='content.html?path=results']", "no folder 'results'")
        image = driver.find_element(By.XPATH, "//img[@src='/images/folder.gif']")
        if driver.execute_script("return arguments[0].complete && arguments[0].naturalWidth", image) != 16:
            raise StepFailed("the folder image did not load as a 16 pixel image")
        self.shot("content-page")
        self.new_page(folder.click, "folder")
        self.wait(lambda d: "path=results" in d.current_url, "the folder did not open")
        self.element(By.XPATH, "//a[contains(., 'current.zol')]", "the folder's pages are not listed")
        self.shot("content-folder")
        self.new_page(driver.find_element(By.XPATH, "//a[normalize-space(.)='..']").click, "'..'")
        self.wait(lambda d: "path=" not in d.current_url, "'..' did not lead back")
        self.element(By.XPATH, "//a[@href='content.html?path=results']", "back at the top the folders are missing")
        self.shot("content-back-up")

        self.open("/zol/demo/settings.html")
        event_list = Select(self.element(By.NAME, "event", "the settings page has no event list"))
        choices = [(option.get_attribute("value"), option.text) for option in event_list.options]
        if len(choices) < 2:
            raise StepFailed(f"too few events to choose from: {choices}")
        current = event_list.first_selected_option.get_attribute("value")
        value, name = [choice for choice in choices if choice[0] != current][-1]
        event_list.select_by_value(value)
        self.shot("settings-event-chosen")
        self.new_page(driver.find_element(By.XPATH, "//input[@type='submit' and @value='OK']").click, "OK")
        self.wait(lambda d: "content.html" in d.current_url, "the settings did not lead back to the content page")
        self.element(By.XPATH, f"//tr[td/b[contains(., 'Current Event')]]/td[contains(., {xpath_text(name.strip())})]",
                     f"the content page does not show the event {name!r}")
        self.shot("settings-event-changed")

        self.open("/zol/demo/content.html")
        self.new_page(driver.find_element(By.XPATH, "//a[@href='editcontent.html?file=index.zol']").click, "edit")
        area = self.element(By.ID, "content", "the editor did not open")
        source = area.get_attribute("value")
        if "<h2>More</h2>" not in source:
            raise StepFailed("the template in the editor is not the example's index.zol")
        # Tab in the text area inserts a tab (the frame's script).
        area.click()
        driver.execute_script("arguments[0].setSelectionRange(0, 0);", area)
        area.send_keys("\t")
        if not area.get_attribute("value").startswith("\t<zol"):
            raise StepFailed("Tab did not insert a tab in the editor")
        driver.execute_script("arguments[0].value = arguments[1];", area,
                              source.replace("<h2>More</h2>", f"<h2>More</h2><p>{MARKER}</p>"))
        self.shot("template-edited")
        self.new_page(driver.find_element(By.XPATH, "//input[@value='Apply Changes']").click, "Apply Changes")
        self.element(By.XPATH, "//form[@name='reloadform']", "Apply did not lead back to the content page")
        with open(os.path.join(self.appdir, "site", "index.zol"), encoding="utf-8") as written:
            if MARKER not in written.read():
                raise StepFailed("the template file was not written")
        reload = driver.find_element(By.XPATH, "//input[@value='Reload Site']")
        self.new_page(lambda: (reload.click(), self.accept_confirm("Reload Site")), "Reload Site")
        self.element(By.XPATH, "//form[@name='reloadform']", "the content page did not come back after the reload")
        self.shot("site-reloaded")

        received = os.path.join(self.received, "index.zol")
        if not wait_for_text(received, MARKER, 30):
            raise StepFailed("zolclient did not receive the edited template within 30 s:\n" +
                             open(self.client_log).read()[-2000:])
        self.open("/zol/_server/index.html")
        self.main_page_loaded()
        self.shot("client-received-new-text")


def main():
    return command_line_main(Run, __doc__, WHOLE_RUN, "admin_browser_test")


if __name__ == "__main__":
    sys.exit(main())
