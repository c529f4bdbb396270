#!/usr/bin/python3
"""axe-core on a survey's page: page_axe.py AXE.js PAGE.html. Fails when it finds anything serious in either theme, in
either list, at a desk's or a phone's width, with or without the dialog."""
import pathlib
import sys
import tempfile

from selenium import webdriver
from selenium.webdriver.chrome.options import Options
from selenium.webdriver.chrome.service import Service

RUN = """const done = arguments[arguments.length - 1];
axe.run(document, {resultTypes: ["violations"]}).then((found) => done(found.violations.map(
  (one) => [one.impact, one.id, one.help, one.nodes.slice(0, 3).map((node) => node.target.join(" "))])));"""


def main():
    axe, page = (pathlib.Path(name).resolve() for name in sys.argv[1:])
    options, bad = Options(), 0
    with tempfile.TemporaryDirectory() as profile:
        for flag in ["--headless", "--no-sandbox", "--disable-gpu", "--user-data-dir=" + profile, "--window-size=1300,900",
                     "--force-prefers-reduced-motion", "--disable-background-networking"]:
            options.add_argument(flag)
        browser = webdriver.Chrome(service=Service("/usr/bin/chromedriver"), options=options)
        try:
            for theme in ("light", "dark"):
                features = [{"name": "prefers-color-scheme", "value": theme}]
                browser.execute_cdp_cmd("Emulation.setEmulatedMedia", {"features": features})
                for width in (1300, 390):
                    browser.execute_cdp_cmd("Emulation.setDeviceMetricsOverride",
                                            {"width": width, "height": 900, "deviceScaleFactor": 1, "mobile": False})
                    for view in ("files", "certificates"):
                        browser.get("about:blank")
                        browser.get(f"{page.as_uri()}#view={view}")
                        browser.execute_script(axe.read_text(encoding="utf-8"))
                        for dialog in (False, True):
                            if dialog:
                                browser.execute_script("sheet.open(0)")
                            for impact, rule, words, places in browser.execute_async_script(RUN):
                                print(f"{theme}, {width}, {view}{', dialog' if dialog else ''}: {impact}: {rule}: {words}: {places}")
                                bad += impact in ("serious", "critical")
        finally:
            browser.quit()
    print(f"{bad} serious findings")
    return 1 if bad else 0


if __name__ == "__main__":
    sys.exit(main())
