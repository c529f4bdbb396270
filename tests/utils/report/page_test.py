"""The page in a real browser: no error, search, sort, filters, keyboard, and hostile names as text."""
import hashlib
import pathlib
import ssl
import tempfile
import unittest

from selenium import webdriver
from selenium.webdriver.chrome.options import Options
from selenium.webdriver.chrome.service import Service
from selenium.webdriver.common.by import By
from selenium.webdriver.common.keys import Keys
from selenium.webdriver.support.ui import Select, WebDriverWait

from made_report import STEMS, details, folder, issue, programs, record, run, signature

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
        cls.downloads = pathlib.Path(cls.enterClassContext(tempfile.TemporaryDirectory()))
        options.add_experimental_option("prefs", {"download.default_directory": str(cls.downloads)})
        cls.browser = webdriver.Chrome(service=Service("/usr/bin/chromedriver"), options=options)
        cls.addClassCleanup(cls.browser.quit)
        cls.browser.set_page_load_timeout(300)

    def open(self, *records, comment=""):
        made = folder(self, "in", *records, comment=comment)
        code, _, error = run("html", made, "-o", made / "page.html")
        self.assertEqual(code, 0, error)
        self.show((made / "page.html").as_uri())
        return made

    def show(self, address):
        self.browser.get("about:blank")  # another fragment alone would load nothing
        self.browser.get(address)
        self.assertEqual(self.browser.execute_script("return document.documentElement.dataset.ready"), "yes")

    def tearDown(self):
        self.assertEqual(self.browser.get_log("browser"), [])

    def find(self, selector):
        return self.browser.find_element(By.CSS_SELECTOR, selector)

    def names(self):
        return self.browser.execute_script("return [...document.querySelectorAll('[role=tabpanel]:not([hidden]) .rows .title')].map(n => n.innerText)")

    def wait_for(self, wanted):
        WebDriverWait(self.browser, 60).until(lambda _: self.names() == wanted, f"{self.names()} is not {wanted}")

    def test_list(self):
        made = self.open(record("/r/b10.exe", "abc", isInstaller="yes", companyName="Acme"), record("/r/b9.msi", "c", content="2"),
                         record("/r/sub/a.efi", companyName="Acme", content="3"), record("/r/sub/=b.dll", content="3"),
                         comment="2 files")
        self.assertIn("incomplete: 2 files", self.find("#incomplete").text)
        self.assertEqual([one.text.replace("\n", " ") for one in self.browser.find_elements(By.CSS_SELECTOR, ".tile")],
                         ["4 files", "1 installers", "1 packages", "2 signed", "1 unsigned", "1 not looked at", "3 certificates",
                          "0 certificates past their end date", "0 certificates that end soon"])
        scan = ["b10.exe", "b9.msi", "a.efi", "=b.dll"]
        self.assertEqual(self.names(), scan)
        # What is empty comes last, up and down.
        for title, wanted in (("name", ["=b.dll", "a.efi", "b9.msi", "b10.exe"]), ("name", ["b10.exe", "b9.msi", "a.efi", "=b.dll"]),
                              ("company", ["b10.exe", "a.efi", "b9.msi", "=b.dll"]),
                              ("company", ["b10.exe", "a.efi", "b9.msi", "=b.dll"]), ("company", scan),
                              ("certificates", ["b9.msi", "b10.exe", "a.efi", "=b.dll"]),
                              ("certificates", ["b10.exe", "b9.msi", "a.efi", "=b.dll"])):
            self.find(f"#grid-{title}").click()
            self.wait_for(wanted)
        self.find("#grid-certificates").click()
        for name, value, wanted in (("kind", "installer", ["b10.exe"]), ("signature", "NotLookedAt", ["a.efi"]),
                                    ("signature", "Unsigned", ["=b.dll"]), ("company", "Acme", ["b10.exe", "a.efi"]),
                                    ("copies", "yes", ["a.efi", "=b.dll"])):
            Select(self.find(f"#{name}")).select_by_value(value)
            self.wait_for(wanted)
            self.find("#reset").click()
        root = (made / f"{'c' * 64}.cer").read_bytes()
        thumbprint = hashlib.sha1(ssl.PEM_cert_to_DER_cert(root.decode())).hexdigest()
        for query, wanted in (("B9", ["b9.msi"]), ("acme .exe", ["b10.exe"]), ("leaf intermediate", ["b10.exe"]), ("sub/a", ["a.efi"]),
                              ("2" * 40, ["b9.msi"]), ("3333333", ["a.efi", "=b.dll"]), ("b" * 64 + ".cer", ["b10.exe"]),
                              ('"fixture root"', ["b10.exe", "b9.msi"]), ('"root fixture"', []),
                              (thumbprint.upper(), ["b10.exe", "b9.msi"]),
                              (":".join(thumbprint[i:i + 2] for i in range(0, 40, 2)) + " .msi", ["b9.msi"])):
            self.find("#query").clear()
            self.find("#query").send_keys(query)
            self.wait_for(wanted)
        self.find("#reset").click()
        for button, wanted in (("#companies button", ["b10.exe", "a.efi"]), ("#folders button", ["a.efi"])):
            self.find(button).click()
            self.wait_for(wanted)
        self.assertEqual(self.find("#folders tr").text, "right here 1 0 0")

    def test_views(self):
        """What is asked for stands in the address; certificates lead to their files; both lists leave as tables."""
        made = self.open(record("C:\\a\\1.exe", "ab", companyName="=x;y"), record("D:\\b\\2.exe", "b", isInstaller=""),
                         record("D:\\b\\3.exe", "1"), record("D:\\b\\4.txt", content=""))
        self.assertEqual((self.find("h1").text, self.find("#grid .folder").text), ("Survey of C:\\a and D:\\b", "C:\\a\\"))
        self.find("#save").click()
        WebDriverWait(self.browser, 30).until(lambda _: (self.downloads / "files.csv").exists())
        self.assertEqual((self.downloads / "files.csv").read_bytes(), run("csv", made)[1])
        (self.downloads / "files.csv").unlink()
        issue(made / f"{STEMS['1']}.cer", "/C=US/O=Next", "codeSigning")
        self.assertEqual(run("html", made, "-o", made / "page.html")[0], 0)
        page = (made / "page.html").as_uri()
        self.show(page + "#view=certificates&role=signer")
        self.wait_for(["Next (US)", "Fixture Works (SE)", "Fixture Works (SE)"])
        self.find("#certificate-grid").send_keys(Keys.END, Keys.ARROW_UP, Keys.ENTER)
        self.assertIn("CN=Fixture", self.find("#sheet").text)
        self.find("#sheet .note button").click()
        shown = self.names()
        self.assertIn(shown, (["1.exe"], ["1.exe", "2.exe"]))
        self.find("#grid-name").click()
        self.find("#grid-name").click()
        self.wait_for(shown[::-1])
        self.browser.refresh()
        self.assertEqual(self.names(), shown[::-1])
        self.show(page + "#view=toString&sort=__proto__&kind=x&signature=%00&q=%")
        self.assertEqual(self.names(), [])

    def test_details(self):
        made = folder(self, "in", *(record(f"/r/{n}.exe") for n in range(4)))
        odd = signature(made, "a", "2021-03-04T05:06:07Z", nested=[signature(made, "a")])
        odd["signers"][0]["program_name"] = "<img src=x onerror=alert(1)>"
        tables = [{"language": 1041, "code_page": 1200, "values": [{"name": "CompanyName", "value": "\u7a0b"}]}]
        details(made, {"/r/0.exe": {"signatures": [odd], "image": {"machine": 1, "subsystem": 2, "version_tables": tables}},
                       "/r/1.exe": {"signatures": [signature(made, "a", signed_digest_matches=False)]},
                       "/r/2.exe": {"package": {"package_code": "{3}"}, "problems": [{"code": "y" * 70000, "count": 1}]}, "/r/3.exe": {}})
        self.assertEqual(run("html", made, "-o", made / "page.html")[0], 0)
        self.show((made / "page.html").as_uri())
        self.assertEqual([one.text.replace("\n", " ") for one in self.browser.find_elements(By.CSS_SELECTOR, ".tile")],
                         ["4 files", "1 stamped", "1 does not match", "2 unsigned", "2 certificates"])
        self.assertEqual(len(self.browser.find_elements(By.CSS_SELECTOR, ".tile.warn")), 1)
        self.find("#save").click()
        WebDriverWait(self.browser, 30).until(lambda _: (self.downloads / "files.csv").exists())
        self.assertEqual((self.downloads / "files.csv").read_bytes(), run("csv", made)[1])
        (self.downloads / "files.csv").unlink()
        self.find("#query").send_keys("2021-03")
        self.wait_for(["0.exe"])
        self.find("#grid").send_keys(Keys.ENTER)
        for words in ("<img src=x onerror=alert(1)>", "2021-03-04T05:06:07Z, RFC 3161, by Fixture Works", "Nested signature 1",
                      "\u7a0b", "Language 0411", "for time stamps"):
            self.assertIn(words, self.find("#sheet").text)
        self.find("#close").click()
        self.show((made / "page.html").as_uri() + "#signature=Unsigned")
        self.find("#grid").send_keys(Keys.ENTER)
        self.assertIn("too long for this page", self.find("#sheet").text)

    def test_keyboard(self):
        self.open(*(record(f"/r/{number}.exe", "ab" if number == MANY - 2 else "e") for number in range(MANY)))
        grid = self.find("#grid")
        active = lambda: self.find("#" + grid.get_attribute("aria-activedescendant"))
        self.assertEqual(grid.get_attribute("aria-rowcount"), str(MANY + 1))
        self.assertLess(len(self.names()), 40)
        grid.send_keys(Keys.END, Keys.ARROW_UP)
        self.assertEqual((active().get_attribute("aria-rowindex"), active().find_element(By.CSS_SELECTOR, ".title").text),
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
        self.find("#close").click()
        # The heads are above the first row, and the list is one tab stop.
        grid.send_keys(Keys.ARROW_UP, Keys.ARROW_RIGHT, Keys.ARROW_LEFT, Keys.ENTER, Keys.ENTER)
        self.assertEqual(active().get_attribute("aria-sort"), "descending")
        self.assertEqual(self.names()[0], f"{MANY - 1}.exe")
        grid.send_keys(Keys.TAB)
        self.assertFalse(self.browser.execute_script("return arguments[0].contains(document.activeElement)", grid))

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
