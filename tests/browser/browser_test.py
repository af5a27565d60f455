"""A day of two people in a browser: what a test over HTTP cannot see, because only a browser runs, draws and saves it.

Every picture goes to the folder that is the first argument; the programs are in TARN_BIN_DIR."""

import io, json, os, pathlib, struct, subprocess, sys, tempfile, unittest, urllib.request, zipfile, zlib

from selenium import webdriver
from selenium.webdriver.chrome.service import Service
from selenium.webdriver.common.by import By
from selenium.webdriver.common.keys import Keys
from selenium.webdriver.support.ui import WebDriverWait

PICTURES = pathlib.Path(sys.argv.pop(1)).resolve()
TARND = os.path.join(os.environ["TARN_BIN_DIR"], "tarnd")
PATIENCE = 30  # seconds, for a machine that is busy
SHAPES = [(width, scheme) for width in (1280, 390) for scheme in ("light", "dark")]
HOSTILE = ["<img src=x onerror=\"window.hacked=1\">", "\"'`&amp;<b>.txt", "\u202egpj.exe",
           "n" * 200, "\u05d0\u05d1\u05d2 b.txt"]


def png(width, height):
    """Stripes."""
    def chunk(kind, body):
        return struct.pack(">I", len(body)) + kind + body + struct.pack(">I", zlib.crc32(kind + body))
    lines = b"".join(b"\0" + bytes([40, 120, 60 + y % 180]) * width for y in range(height))
    return (b"\x89PNG\r\n\x1a\n" + chunk(b"IHDR", struct.pack(">IIBBBBB", width, height, 8, 2, 0, 0, 0)) +
            chunk(b"IDAT", zlib.compress(lines)) + chunk(b"IEND", b""))


PDF = (b"%PDF-1.1\n1 0 obj<</Type/Catalog/Pages 2 0 R>>endobj 2 0 obj<</Type/Pages/Kids[3 0 R]/Count 1>>endobj "
       b"3 0 obj<</Type/Page/Parent 2 0 R/MediaBox[0 0 300 200]>>endobj\ntrailer<</Root 1 0 R>>\n")

# What is wrong for people who use a screen reader, a keyboard or weak eyes; colours as the browser computed them.
FAULTS = """
const faults = [], shown = (e) => e.checkVisibility() && e.getClientRects().length;
const text = (e) => (e.getAttribute('aria-label') || e.labels?.[0]?.textContent || e.alt || e.textContent || '').trim();
for (const e of document.querySelectorAll('a, button, input, select, progress, object, iframe, dialog[open], img'))
  if (shown(e) && !text(e) && !e.title && !e.getAttribute('aria-labelledby')) faults.push('no name: ' + e.outerHTML);
const ids = [...document.querySelectorAll('[id]')].map((e) => e.id);
if (new Set(ids).size !== ids.length) faults.push('an id twice');
if (!document.documentElement.lang) faults.push('no language');
if ([...document.querySelectorAll('h1')].filter(shown).length !== 1) faults.push('not one h1');
if (document.documentElement.scrollWidth > innerWidth) faults.push('wider than the window');
for (const e of document.querySelectorAll('button, #app > header a'))
  if (shown(e) && e.getBoundingClientRect().height < 24) faults.push('small: ' + e.outerHTML);
const rgb = (c) => c.match(/[\\d.]+/g).map(Number);
const light = ([r, g, b]) => [r, g, b].map((v) => v / 255).map((v) => v <= .03928 ? v / 12.92 : ((v + .055) / 1.055) ** 2.4)
  .reduce((sum, v, i) => sum + v * [.2126, .7152, .0722][i], 0);
const ground = (e) => { for (; e; e = e.parentElement) { const c = rgb(getComputedStyle(e).backgroundColor);
  if (c[3] !== 0) return c; } return [255, 255, 255]; };
for (const e of document.querySelectorAll('body *')) {
  if (!shown(e) || ![...e.childNodes].some((n) => n.nodeType === 3 && n.data.trim())) continue;
  const [a, b] = [light(rgb(getComputedStyle(e).color)), light(ground(e))].sort((x, y) => y - x);
  if ((a + .05) / (b + .05) < 4.5) faults.push('faint: ' + e.outerHTML.slice(0, 200));
}
return faults;
"""


class Day(unittest.TestCase):
    def setUp(self):
        self.folder = tempfile.TemporaryDirectory()
        self.addCleanup(self.folder.cleanup)
        self.here = pathlib.Path(self.folder.name)
        self.downloads = self.here / "downloads"
        self.downloads.mkdir()
        self.data = str(self.here / "data")
        self.tokens = {name: self.tarnd("user", "add", name).strip() for name in ("alice", "bob")}
        service = subprocess.Popen([TARND, "serve", "--data", self.data, "--listen", "127.0.0.1:0",
                                    "--max-file-size", "200K"],
                                   stdout=subprocess.PIPE, text=True)
        self.addCleanup(service.communicate)
        self.addCleanup(service.terminate)
        self.url = json.loads(service.stdout.readline())["url"]
        options = webdriver.ChromeOptions()
        for argument in ("--headless=new", "--no-sandbox", "--disable-dev-shm-usage", "--lang=en-GB",
                         f"--user-data-dir={self.here / 'profile'}"):
            options.add_argument(argument)
        options.add_experimental_option("prefs", {"download.default_directory": str(self.downloads)})
        options.set_capability("goog:loggingPrefs", {"browser": "ALL"})
        self.browser = webdriver.Chrome(service=Service("/usr/bin/chromedriver"), options=options)
        self.addCleanup(self.browser.quit)

    def tarnd(self, *arguments):
        return subprocess.run([TARND, *arguments, "--data", self.data], check=True, timeout=60,
                              capture_output=True, text=True).stdout

    def until(self, condition):
        """What the condition gives as soon as it is anything."""
        ignored = (Exception,)  # an element that was drawn anew in between
        return WebDriverWait(self.browser, PATIENCE, 0.05, ignored).until(lambda _: condition())

    def shown(self, css, text=None):
        """The only element of that kind that people see, with that name or text."""
        def find():
            found = [each for each in self.browser.find_elements(By.CSS_SELECTOR, css) if each.is_displayed()]
            return [each for each in found if text in (None, each.text, each.accessible_name)]
        return self.until(lambda: find()[0])

    def press(self, text, css="button"):
        self.until(lambda: self.shown(css, text).click() or True)

    def write(self, label, text):
        field = self.shown("input", label)
        field.clear()
        field.send_keys(text)
        return field

    def title(self, text):
        self.until(lambda: self.browser.find_element(By.ID, "title").text == text)

    def said(self, text):
        self.until(lambda: text in self.browser.find_element(By.TAG_NAME, "body").text)

    def rows(self):
        cells = self.browser.find_elements(By.CSS_SELECTOR, ".entries td:first-child bdi")
        return [each.get_property("textContent").replace("\ufffd", "\u202e") for each in cells]

    def sign_in(self, name):
        self.write("User", name)
        self.write("Token", self.tokens[name]).send_keys(Keys.ENTER)
        self.shown("#who", name)

    def upload(self, **contents):
        files = [self.here / name for name in contents]
        for file, content in zip(files, contents.values()):
            file.write_bytes(content)
        field = self.browser.find_element(By.ID, "upload-files")
        field.send_keys("\n".join(map(str, files)))
        self.said("stored.")
        self.until(lambda: set(contents) <= set(self.rows()))

    def downloaded(self, name, is_whole):
        """The content once it is whole: a browser makes the file before."""
        file = self.downloads / name
        content = self.until(lambda: [file.read_bytes()] if is_whole(file.read_bytes()) else None)[0]
        file.unlink()
        return content

    def look(self, name):
        """Pictures in all shapes, and what is wrong in any of them."""
        for width, scheme in SHAPES:
            self.browser.execute_cdp_cmd("Emulation.setDeviceMetricsOverride", {
                "width": width, "height": 844, "deviceScaleFactor": 1, "mobile": width < 500})
            self.browser.execute_cdp_cmd("Emulation.setEmulatedMedia", {
                "features": [{"name": "prefers-color-scheme", "value": scheme}]})
            (PICTURES / f"{name}-{width}-{scheme}.png").write_bytes(self.browser.get_screenshot_as_png())
            self.assertEqual(self.browser.execute_script(FAULTS), [], f"{name} {width} {scheme}")
        self.browser.execute_cdp_cmd("Emulation.clearDeviceMetricsOverride", {})

    def test_two_people(self):
        self.browser.get(self.url)
        self.look("sign-in")
        self.write("User", "bob")
        self.write("Token", self.tokens["alice"]).send_keys(Keys.ENTER)
        self.said("This token belongs to another user.")
        self.sign_in("alice")

        self.press("New folder")
        self.write("Name", "Papers & <b>").send_keys(Keys.ENTER)
        self.press("Papers & <b>/", "td a")
        self.title("Papers & <b>")
        self.upload(**{name: b"content" for name in HOSTILE})
        self.upload(**{"text.txt": b"a\n" * 200, "picture.png": png(1600, 900), "paper.pdf": PDF})
        self.assertEqual(sorted(self.rows()), sorted(HOSTILE + ["text.txt", "picture.png", "paper.pdf"]))
        self.assertIsNone(self.browser.execute_script("return document.querySelector('#view img') ?? window.hacked"))
        self.assertNotIn("\u202e", self.browser.find_element(By.ID, "view").get_property("textContent"))
        self.look("folder")

        big = os.urandom(200_000)
        (self.here / "dropped" / "in").mkdir(parents=True)
        (self.here / "dropped" / "in" / "file").write_bytes(big)
        for kind in ("dragEnter", "dragOver", "drop"):
            self.browser.execute_cdp_cmd("Input.dispatchDragEvent", {"type": kind, "x": 300, "y": 300, "data": {
                "items": [], "files": [str(self.here / "dropped")], "dragOperationsMask": 1}})
        self.said("1 file is stored.")
        self.until(lambda: "dropped" in self.rows())
        (self.here / "large").write_bytes(bytes(210_000))
        self.browser.find_element(By.ID, "upload-files").send_keys(str(self.here / "large"))
        self.said("The file is larger than this service accepts.")
        self.look("refused")
        self.press("Dismiss large")
        self.upload(**{"text.txt": big})
        self.said("195 KiB")
        self.press("text.txt", "td button")
        self.downloaded("text.txt", big.__eq__)
        self.press("Actions for text.txt")
        self.look("actions")
        self.press("Versions…")
        self.press("Restore version 1")
        self.said("Version 3")
        self.look("versions")
        self.press("Download version 3")
        self.downloaded("text.txt", (b"a\n" * 200).__eq__)
        self.press("Close")
        self.until(lambda: self.browser.switch_to.active_element.accessible_name == "Actions for text.txt")

        self.press("Actions for dropped")
        self.press("Delete")
        self.until(lambda: "dropped" not in self.rows())
        self.press("Undo")
        self.until(lambda: "dropped" in self.rows())
        self.press("Actions for dropped")
        self.press("Delete")
        self.until(lambda: "dropped" not in self.rows())
        self.look("deleted")

        self.press("This folder…")
        self.press("Share with a user…")
        self.write("User who may read it", "nobody").send_keys(Keys.ENTER)
        self.said("There is no user named")
        self.write("User who may read it", "bob").send_keys(Keys.ENTER)
        self.shown("button", "Stop sharing with bob")
        self.look("share")
        self.press("Close")
        self.press("This folder…")
        self.press("Public link…")
        self.press("Make a link")
        link = self.until(lambda: self.shown("dialog .url").get_property("value"))
        self.look("link")
        self.press("Close")
        self.see_link(link)

        self.browser.get(self.url + "#links")
        self.title("My links")
        self.look("links")
        self.press("Revoke the link to /Papers & <b>")
        self.said("There are no public links")
        self.assertEqual(self.status(link), 404)
        self.press("Sign out")
        self.said("You are signed out.")
        self.see_as_bob()
        noise = [each["message"] for each in self.browser.get_log("browser") if each["level"] == "SEVERE"]
        self.assertEqual([each for each in noise if "responded with a status of 4" not in each], [])

    def status(self, url):
        try:
            return urllib.request.urlopen(url, timeout=PATIENCE).status
        except urllib.error.HTTPError as error:
            return error.code

    def see_link(self, link):
        """Pages without any script."""
        self.browser.execute_cdp_cmd("Emulation.setScriptExecutionDisabled", {"value": True})
        for page in ("", "/text.txt", "/picture.png", "/paper.pdf"):
            self.browser.get(link + page)
            self.browser.execute_cdp_cmd("Emulation.setScriptExecutionDisabled", {"value": False})
            self.look("public" + page.replace("/", "-"))
            self.browser.execute_cdp_cmd("Emulation.setScriptExecutionDisabled", {"value": True})
        self.browser.execute_cdp_cmd("Emulation.setScriptExecutionDisabled", {"value": False})
        self.browser.get(link + "/picture.png")
        self.assertEqual(self.browser.execute_script("return document.images[0].naturalWidth"), 1600)
        self.browser.get(link + "?sort=-size")
        self.press("Download all", "a")
        archive = zipfile.ZipFile(io.BytesIO(self.downloaded(
            "Papers & _b_.zip", lambda content: zipfile.is_zipfile(io.BytesIO(content)))))
        self.assertIsNone(archive.testzip())
        self.assertIn("Papers & <b>/" + HOSTILE[0], archive.namelist())

    def see_as_bob(self):
        self.sign_in("bob")
        self.press("Shared with me", "a")
        self.press("Papers & <b>/", "td a")
        self.title("Papers & <b>")
        self.assertNotIn("dropped", self.rows())
        self.assertFalse(self.browser.find_element(By.ID, "upload").is_displayed())
        self.tarnd("session", "end", "--user", "bob")
        self.press("Name", "th button")
        self.said("Your session has ended.")
        self.look("ended")
        self.write("Token", self.tokens["bob"]).send_keys(Keys.ENTER)
        self.title("Papers & <b>")
        self.press("text.txt", "td button")
        self.downloaded("text.txt", (b"a\n" * 200).__eq__)
        kept = self.browser.execute_script("return sessionStorage.tarn")
        self.assertNotIn(json.loads(kept)["id"], self.browser.execute_script(
            "return location + JSON.stringify(performance.getEntries()) + document.documentElement.outerHTML"))


if __name__ == "__main__":
    PICTURES.mkdir(parents=True, exist_ok=True)
    unittest.main()
