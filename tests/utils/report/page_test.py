"""The page in a real browser: no error, search, sort, filters, keyboard, and hostile names as text."""
import tempfile
import unittest

from selenium import webdriver
from selenium.webdriver.chrome.options import Options
from selenium.webdriver.chrome.service import Service
from selenium.webdriver.common.by import By
from selenium.webdriver.common.keys import Keys
from selenium.webdriver.support.ui import Select, WebDriverWait

from made_report import folder, programs, record, run

FLAGS = ["--headless", "--no-sandbox", "--disable-gpu", "--disable-quic", "--no-first-run", "--disable-sync",
         "--disable-background-networking", "--disable-component-update", "--window-size=1300,900",
         "--force-prefers-reduced-motion"]
HOSTILE = {"/x/<img src=x onerror=alert(1)>": "<img src=x onerror=alert(1)>",
           "/x/</script><script>document.title='no'</script>": "script>",
           "/x/gpj.\u202eexe": "gpj.U+202Eexe", "/x/" + "y" * 8000: "y" * 8000}
MANY = 20000


class Page(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        options = Options()
        for flag in [*FLAGS, "--user-data-dir=" + cls.enterClassContext(tempfile.TemporaryDirectory())]:
            options.add_argument(flag)
        options.set_capability("goog:loggingPrefs", {"browser": "ALL"})
        cls.browser = webdriver.Chrome(service=Service("/usr/bin/chromedriver"), options=options)
        cls.addClassCleanup(cls.browser.quit)
        cls.browser.set_page_load_timeout(300)

    def open(self, *records, comment=""):
        made = folder(self, "in", *records, comment=comment)
        code, _, error = run("html", made, "-o", made / "page.html")
        self.assertEqual(code, 0, error)
        self.browser.get((made / "page.html").as_uri())
        self.assertEqual(self.browser.execute_script("return document.documentElement.dataset.ready"), "yes")

    def tearDown(self):
        self.assertEqual(self.browser.get_log("browser"), [])

    def find(self, selector):
        return self.browser.find_element(By.CSS_SELECTOR, selector)

    def names(self):
        return self.browser.execute_script("return [...document.querySelectorAll('#rows .name')].map(n => n.innerText)")

    def wait_for(self, wanted):
        WebDriverWait(self.browser, 60).until(lambda _: self.names() == wanted, f"{self.names()} is not {wanted}")

    def test_list(self):
        self.open(record("/r/b10.exe", "abc", isInstaller="yes", companyName="Acme"), record("/r/b9.msi", "d", content="2"),
                  record("/r/sub/a.dll", companyName="Acme", content="3"), comment="2 files")
        self.assertIn("incomplete: 2 files", self.find("#incomplete").text)
        self.assertEqual([one.text.replace("\n", " ") for one in self.browser.find_elements(By.CSS_SELECTOR, ".tile")],
                         ["3 files", "1 installers", "1 packages", "2 signed", "1 unsigned", "4 certificates", "0 expired",
                          "0 expiring soon"])
        self.assertEqual(self.names(), ["b10.exe", "b9.msi", "a.dll"])
        for title, wanted in (("n", ["a.dll", "b9.msi", "b10.exe"]), ("n", ["b10.exe", "b9.msi", "a.dll"]),
                              ("i", ["b10.exe", "b9.msi", "a.dll"])):
            self.find(f"[data-key={title}] button").click()
            self.wait_for(wanted)
        for name, value, wanted in (("kind", "installer", ["b10.exe"]), ("signed", "no", ["a.dll"]),
                                    ("company", "Acme", ["b10.exe", "a.dll"]),
                                    ("signer", "Fixture Signer RSA leaf2", ["b9.msi"])):
            Select(self.find(f"#{name}")).select_by_value(value)
            self.wait_for(wanted)
            self.find("#reset").click()
        for query, wanted in (("B9", ["b9.msi"]), ("acme", ["b10.exe", "a.dll"]), ("rsa leaf2", ["b9.msi"]),
                              ("sub/a", ["a.dll"]), ("2" * 40, ["b9.msi"]), ("3333333", ["a.dll"]), ("none", [])):
            self.find("#query").clear()
            self.find("#query").send_keys(query)
            self.wait_for(wanted)
        self.find("#reset").click()
        self.find("#companies button").click()
        self.wait_for(["b10.exe", "a.dll"])

    def test_keyboard(self):
        self.open(*(record(f"/r/{number}.exe", "ab" if number == MANY - 2 else "e") for number in range(MANY)))
        grid = self.find("#grid")
        self.assertEqual(grid.get_attribute("aria-rowcount"), str(MANY + 1))
        self.assertLess(len(self.names()), 40)
        grid.send_keys(Keys.END, Keys.ARROW_UP)
        active = self.find("#" + grid.get_attribute("aria-activedescendant"))
        self.assertEqual((active.get_attribute("aria-rowindex"), active.find_element(By.CSS_SELECTOR, ".name").text),
                         (str(MANY), f"{MANY - 2}.exe"))
        grid.send_keys(Keys.ENTER)
        sheet = self.find("#sheet").text
        for words in ("1" * 40, "1" * 64, "CN=Fixture Signer RSA leaf,", "signer", "carried along", "RSA 2048", "Serial"):
            self.assertIn(words, sheet)
        self.browser.switch_to.active_element.send_keys(Keys.ESCAPE)
        self.assertFalse(self.find("#details").is_displayed())
        self.assertEqual(self.browser.switch_to.active_element, grid)
        grid.send_keys(Keys.HOME, " ")
        self.assertIn("its file is missing", self.find("#sheet").text)

    def test_hostile(self):
        self.open(*(record(name, companyName=name) for name in HOSTILE))
        for shown in HOSTILE.values():
            self.assertTrue(any(name.startswith(shown[:900]) for name in self.names()), self.names())
        self.find("#grid").send_keys(Keys.END, Keys.ENTER)
        self.assertEqual(self.find("#details-title").text, "y" * 8000)
        self.assertEqual(len(self.browser.find_elements(By.CSS_SELECTOR, "img, script")), 1)
        self.assertEqual(self.browser.title, "Survey of /x")


if __name__ == "__main__":
    programs.main()
