"""The page of `ryn web` in headless Chromium, driven by Selenium; saves the screenshots of
docs/web.md (under CTest into the build tree).
Run: /usr/bin/python3 browser_test.py PATH/TO/ryn DIR"""
import os
import subprocess
import sys
import tempfile
import time
import unittest

from selenium import webdriver
from selenium.webdriver.chrome.service import Service
from selenium.webdriver.common.by import By
from selenium.webdriver.common.keys import Keys
from selenium.webdriver.support.ui import WebDriverWait

from webserver import WebServer

RYN, SHOTS = sys.argv.pop(1), sys.argv.pop(1)
WAIT = 20  # seconds any one step may take on a loaded machine


def browser(downloads):
    options = webdriver.ChromeOptions()
    options.binary_location = "/usr/bin/chromium"
    for arg in ["--headless=new", "--no-sandbox", "--disable-dev-shm-usage", "--disable-gpu",
                "--window-size=1280,860"]:
        options.add_argument(arg)
    options.add_experimental_option("prefs", {"download.default_directory": downloads})
    driver = webdriver.Chrome(service=Service("/usr/bin/chromedriver"), options=options)
    driver.execute_cdp_cmd("Page.setDownloadBehavior",
                           {"behavior": "allow", "downloadPath": downloads})
    return driver


class Page(unittest.TestCase):
    def setUp(self):
        self.downloads = tempfile.mkdtemp(prefix="ryn-web-")
        self.server = WebServer(RYN)
        self.addCleanup(self.server.stop)
        self.driver = browser(self.downloads)
        self.addCleanup(self.driver.quit)
        self.driver.get(self.server.url)

    def until(self, check, what):
        try:
            return WebDriverWait(self.driver, WAIT, 0.05).until(lambda d: check(), what)
        except Exception:
            self.shot("failed.png")
            raise

    def find(self, css):
        return self.driver.find_element(By.CSS_SELECTOR, css)

    def texts(self, css):
        # Read in one step in the page: the tables are redrawn while the test looks at them.
        return self.driver.execute_script(
            "return [...document.querySelectorAll(arguments[0])].map((e) => e.textContent)", css)

    def tab(self, name):
        self.find(f'#tabs button[data-tab="{name}"]').click()

    def shot(self, name):
        os.makedirs(SHOTS, exist_ok=True)
        self.driver.save_screenshot(os.path.join(SHOTS, name))

    def downloaded(self, name):
        path = os.path.join(self.downloads, name)
        self.until(lambda: os.path.exists(path) and os.path.getsize(path) > 0, "download " + name)
        return path

    def rows(self):
        return self.texts("#drive-table tbody tr td:first-child")

    def test_the_daily_work(self):
        # Drives: the five of the default bus; a drive joining and leaving shows without reload.
        self.until(lambda: self.rows() == ["0", "1", "2", "3", "63"], "five drives")
        self.assertIn("IOX-8 1.02A", self.texts('#drive-table tr[data-axis="1"] td'))
        self.shot("web-drives.png")
        self.server.request("POST", "/api/sim/attach", {"axis": 9})
        self.until(lambda: "9" in self.rows(), "axis 9 attached")
        self.server.request("POST", "/api/sim/detach", {"axis": 9})
        self.until(lambda: "9" not in self.rows(), "axis 9 detached")

        # Registers: K1 of axis 0 edited to 1234 reads back; 2000000 is refused with the range.
        self.tab("registers")
        self.find("#reg-search").send_keys("POS_KP")
        self.until(lambda: self.texts("#reg-table tbody td:first-child") == ["K1"], "K1 found")
        field = self.find('input[data-register="K1.0"]')
        note = self.find('tr[data-name="K1"] .answer')
        field.clear()
        field.send_keys("1234", Keys.ENTER)
        self.until(lambda: note.text == "drive: K1.0=1234", "K1 written")
        self.assertEqual(self.server.request("POST", "/api/send", {"line": "K1.0"})[1]["answer"],
                         "K1.0=1234")
        field.clear()
        field.send_keys("2000000", Keys.ENTER)
        self.until(lambda: "0 .. 1000000" in note.text, "2000000 refused")
        self.assertIn("range", note.text)
        self.shot("web-registers.png")

        # Console: completion, history, answers; the power stage on and a move for the scope.
        self.tab("console")
        line = self.find("#console-line")
        line.send_keys("PWR_A", Keys.TAB)
        self.assertEqual(line.get_attribute("value"), "PWR_AT_START")
        line.clear()
        line.send_keys("MV", Keys.TAB)
        self.assertIn("MVE", self.find("#console-hint").text.split())
        line.clear()
        line.send_keys("PWR.0=1", Keys.ENTER)
        line.send_keys("MVE.0=400000,20000,100000", Keys.ENTER)
        self.until(lambda: len(self.driver.find_elements(By.CSS_SELECTOR, "#console-log .ok")) == 2,
                   "two answers")
        line.send_keys(Keys.ARROW_UP)
        self.assertEqual(line.get_attribute("value"), "MVE.0=400000,20000,100000")
        line.clear()
        line.send_keys("K1.0=2000000", Keys.ENTER)
        self.until(lambda: "takes 0 .. 1000000" in self.find("#console-log").text, "refusal")
        self.shot("web-console.png")

        # Scope: M7 of axis 0 plotted, at least 20 samples in 2 s, and they change.
        self.tab("scope")
        self.find("#scope-start").click()
        time.sleep(2)
        data = self.driver.execute_script("return scopeData.map((r) => r[1])")
        self.assertGreaterEqual(len(data), 20)
        self.assertGreater(len(set(data)), 10, "M7 moves")
        self.until(lambda: self.driver.execute_script(
            "return plot.numRows() > 20 && plot.getLabels()[1] === 'M7.0'"), "plotted")
        self.shot("web-scope.png")
        self.find("#scope-pause").click()
        self.find("#scope-csv").click()
        with open(self.downloaded("scope.csv")) as f:
            self.assertEqual(f.readline().strip(), "time (s),M7.0")
        self.find("#scope-png").click()
        with open(self.downloaded("scope.png"), "rb") as f:
            self.assertEqual(f.read(8), b"\x89PNG\r\n\x1a\n")
        self.find("#scope-stop").click()

        # Backup: the downloaded file is one that `ryn check` accepts.
        self.tab("backup")
        self.find("#backup-start").click()
        backup = self.downloaded("ryn-backup.txt")
        check = subprocess.run([RYN, "check", "--bus", "sim:", backup], capture_output=True, text=True)
        self.assertEqual(check.returncode, 0, check.stdout + check.stderr)

        # Restore: a changed file shows its one difference, is applied, and reads back.
        with open(backup) as f:
            text = f.read()
        self.assertIn("\nK2.0=0", text)
        changed = os.path.join(self.downloads, "changed.txt")
        with open(changed, "w") as f:
            f.write(text.replace("\nK2.0=0", "\nK2.0=77", 1))
        self.find("#restore-file").send_keys(changed)
        self.until(lambda: self.find("#diff-summary").text.startswith("1 difference "), "diff")
        self.assertEqual(self.texts("#diff-table tbody td"), ["0", "K2.0", "77", "0"])
        self.find("#restore-apply").click()
        self.until(lambda: "applied" in self.find("#restore-summary").text, "restored")
        self.assertRegex(self.find("#restore-summary").text, r"applied \d+, skipped \d+, refused 0")
        self.shot("web-backup.png")
        self.assertEqual(self.server.request("POST", "/api/send", {"line": "K2.0"})[1]["answer"],
                         "K2.0=77")
        self.assertEqual(self.server.stop(), 0, self.server.stderr)

    def test_token_login_form(self):
        with WebServer(RYN, "--token", "pass word") as s:
            self.driver.get(s.url)
            self.find("#token").send_keys("pass word", Keys.ENTER)
            self.until(lambda: self.rows() == ["0", "1", "2", "3", "63"], "signed in")


if __name__ == "__main__":
    unittest.main(verbosity=2)
