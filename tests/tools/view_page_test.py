"""Pages of planex view. Usage: view_page_test.py page PLANEX

Reads pages without a browser: what they hold against the files, and that texts stay texts.

Usage: view_page_test.py browser PLANEX SIMULATE_SCAN FOLDER

Opens pages in Chromium, measures the scene of SIMULATE_SCAN by the pointer, and writes screenshots
into FOLDER, where axe-core is fetched to. Prints how large pages are and how soon they show."""
import base64
import hashlib
import html.parser
import json
import math
import os
import pathlib
import re
import subprocess
import sys
import tempfile
import threading
import time
import warnings
import zlib

import numpy as np
import tifffile

import scans

HOSTILE = "</script><script>window.hit=1</script><!--<img src=x onerror=window.hit=1>\u202e&amp;"
FILE = "<!--<script><img src=x onerror=window.hit=1>"


class Page(html.parser.HTMLParser):
    """The elements of a page that hold text, and its policy."""

    def __init__(self, path):
        super().__init__()
        self.scripts, self.data, self.policy, self.styles = [], {}, "", []
        self.into = None
        self.feed(pathlib.Path(path).read_text(encoding="utf-8"))
        self.json = json.loads(self.data["page"])

    def handle_starttag(self, tag, attributes):
        values = dict(attributes)
        if values.get("http-equiv") == "Content-Security-Policy":
            self.policy = values["content"]
        assert not any(name.startswith("on") or name in ("src", "href", "style") for name in values), values
        self.into = (tag, values.get("id")) if tag in ("script", "style") else None

    def handle_data(self, data):
        if self.into and self.into[1]:
            self.data[self.into[1]] = self.data.get(self.into[1], "") + data
        elif self.into:
            (self.scripts if self.into[0] == "script" else self.styles).append(data)

    def handle_endtag(self, tag):
        self.into = None

    def numbers(self, index, name, level=0):
        """A layer of a map, put together of its tiles."""
        found = self.json["maps"][index]
        layers = [layer["name"] for layer in found["layers"]]
        layer, side = layers.index(name), self.json["tileSide"]
        rows, columns = -(-found["rows"] // 2**level), -(-found["columns"] // 2**level)
        steps = np.zeros((rows, columns), "u2")
        for row in range(0, rows, side):
            for column in range(0, columns, side):
                text = self.data.get(f"tile-{index}-{layer}-{level}-{row // side}-{column // side}")
                if text is None:
                    continue
                part = steps[row:row + side + 1, column:column + side + 1]
                low, high = np.frombuffer(zlib.decompress(base64.b64decode(text)), "u1").reshape(2, *part.shape)
                differences = low + 256 * high.astype("u2")
                differences[:, 0] = np.cumsum(differences[:, 0], dtype="u2")
                part[...] = np.cumsum(differences, axis=1, dtype="u2")
        about = found["layers"][layer]
        return np.where(steps > 0, about["scale"] * steps.astype(float) + about["origin"], np.nan)


def check_layers(planex, folder):
    """Every layer, of all ways in which files hold them, and what coarser levels keep of it."""
    model, scan = scans.MODEL, folder / "range.pgm"
    options = [*scans.SENSOR, *scans.Y, "--float", "--layers", "count,spread,sigma", "--columns", "700", "-q"]
    for name, more in (("a.tif", []), ("b.tif", ["--compress", "deflate"]), ("c.npy", [])):
        scans.run(planex, "rectify", model, scan, "-o", folder / name, *options, *more)
    tifffile.imwrite(folder / "d.tif", np.load(folder / "c.npy"), planarconfig="contig", photometric="minisblack")
    (folder / "d.tif.json").write_bytes((folder / "c.npy.json").read_bytes())
    maps = [folder / name for name in ("a.tif", "b.tif", "c.npy", "d.tif")]
    scans.run(planex, "view", *maps, "-o", folder / "layers.html", "-q")
    page = Page(folder / "layers.html")
    stored = np.load(folder / "c.npy")
    for index in range(4):
        for number, name in enumerate(("height", "count", "spread", "sigma")):
            want, got = stored[..., number], page.numbers(index, name)
            step = page.json["maps"][index]["layers"][number]["scale"]
            there = ~np.isnan(stored[..., 0])
            np.testing.assert_allclose(got[there], want[there], rtol=0, atol=0.51 * step)
            assert np.isnan(got[~there]).all(), name
    finer = page.numbers(0, "height")
    for level in range(1, page.json["maps"][0]["levels"]):
        rows, columns = finer.shape
        blocks = np.pad(finer, ((0, rows % 2), (0, columns % 2)), constant_values=np.nan)
        blocks = blocks.reshape(-(-rows // 2), 2, -(-columns // 2), 2)
        with np.errstate(all="ignore"), warnings.catch_warnings():
            warnings.simplefilter("ignore")
            least, most, mean = (of(blocks, axis=(1, 3)) for of in (np.nanmin, np.nanmax, np.nanmean))
        finer = page.numbers(0, "height", level)
        clear = np.abs(mean - least - (most - mean)) > 1e-9
        np.testing.assert_allclose(finer[clear], np.where(mean - least > most - mean, least, most)[clear], rtol=1e-12)
        assert (np.isnan(finer) == np.isnan(mean)).all()


def check_blocks(planex, folder):
    """A map of too many cells becomes one of blocks, at their middles."""
    scans.run(planex, "view", folder / "a.tif", "--cells", "2000", "-o", folder / "blocks.html", "-q")
    whole, page = Page(folder / "layers.html"), Page(folder / "blocks.html")
    cells, blocks = whole.numbers(0, "height"), page.numbers(0, "height")
    factor = -(-cells.shape[1] // blocks.shape[1])
    assert blocks.size <= 2000 < -(-cells.shape[0] // (factor - 1)) * -(-cells.shape[1] // (factor - 1))
    about, before = page.json["maps"][0], whole.json["maps"][0]
    assert math.isclose(about["originX"], before["originX"] + before["scaleX"] * (factor - 1) / 2)
    for (row, column), number in np.ndenumerate(blocks):
        part = cells[row * factor:(row + 1) * factor, column * factor:(column + 1) * factor]
        part = part[~np.isnan(part)]
        assert np.isnan(number) == (part.size == 0)
        if part.size:
            far = np.abs(part - part.mean()).max()
            assert abs(abs(number - part.mean()) - far) < 2 * about["layers"][0]["scale"]


def check_map(planex, folder):
    """Levels stay what they are; the images beside a map; another map with other cells beside it."""
    model = scans.MODEL
    common = [*scans.SENSOR, *scans.Y, "-q"]
    scans.run(planex, "rectify", model, folder / "range.pgm", "--intensity", folder / "intensity.pgm",
              "--fill", "3", "-o", folder / "map.png", *common)
    scans.run(planex, "rectify", model, folder / "range.pgm", "-o", folder / "other.tif", "--columns", "90", *common)
    command = [planex, "view", folder / "map.png", folder / "other.tif", model, folder / "range.pgm", *scans.SENSOR,
               *scans.Y, "-q", "-f", "-o"]
    for name in ("one.html", "two.html"):
        scans.run(*command, folder / name)
    assert (folder / "one.html").read_bytes() == (folder / "two.html").read_bytes()
    page = Page(folder / "one.html")
    about = json.loads((folder / "map.png.json").read_text())["transform"]
    levels = tifffile.imread(folder / "other.tif").astype(float)
    other = json.loads((folder / "other.tif.json").read_text())["transform"]
    heights = np.where(levels > 0, levels * other["scaleZ"] + other["originZ"], np.nan)
    np.testing.assert_allclose(page.numbers(1, "height"), heights, rtol=1e-12)
    first = page.numbers(0, "height")
    columns = (other["scaleX"] * np.arange(90) + other["originX"] - about["originX"]) / about["scaleX"]
    near = first[:, np.clip(np.round(columns).astype(int), 0, first.shape[1] - 1)]
    difference = page.numbers(1, "difference to map.png")
    np.testing.assert_allclose(difference, heights - near, atol=2e-4)
    there = ~np.isnan(first)
    for name in ("intensity", "mask"):
        beside = np.asarray(scans.Image.open(folder / f"map_{name}.png"))
        assert (page.numbers(0, name)[there] == beside[there]).all(), name
    # The scan itself, rectified, is the map before holes were filled.
    plain = page.numbers(2, "height")
    np.testing.assert_array_equal(plain[there & ~np.isnan(plain)], first[there & ~np.isnan(plain)])
    assert np.isnan(plain).sum() >= np.isnan(first).sum()


def check_texts(planex, folder):
    """Whatever names and units say, they end no element; the policy names what the page runs."""
    name = f"{FILE}.tif"
    (folder / name).write_bytes((folder / "other.tif").read_bytes())
    description = json.loads((folder / "other.tif.json").read_text())
    description["unit"] = description["transform"]["unitY"] = HOSTILE
    (folder / f"{name}.json").write_text(json.dumps(description))
    scans.run(planex, "view", folder / name, "-o", folder / "hostile.html", "-q")
    page = Page(folder / "hostile.html")
    assert page.json["maps"][0]["unit"] == HOSTILE.replace("\u202e", "?"), page.json["maps"][0]["unit"]
    assert page.json["maps"][0]["name"] == name
    assert "\u202e" not in json.dumps(page.json, ensure_ascii=False)
    assert len(page.scripts) == 2 and len(page.styles) == 1
    digest = [f"'sha256-{base64.b64encode(hashlib.sha256(text.encode()).digest()).decode()}'"
              for text in page.scripts + page.styles]
    assert page.policy == (f"default-src 'none'; script-src {digest[0]} {digest[1]}; style-src {digest[2]}; "
                           "base-uri 'none'; form-action 'none'"), page.policy
    assert "Permission is hereby granted" in page.data["licence"]


def check_clouds(planex, folder):
    """Kinds of clouds hold the same points; of many, those stay that are the lowest and the highest."""
    random = np.random.default_rng(3)
    points = random.uniform(0, 100, (1_100_000, 3)).astype("f4")
    points[7] = 50, 50, 1000
    points[9] = 51, 51, -1000
    np.save(folder / "many.npy", points)
    few = points[:500]
    head = "element vertex 500\nproperty float x\nproperty float y\nproperty double z\nproperty uchar intensity\nend_header\n"
    records = np.zeros(500, [("x", "f4"), ("y", "f4"), ("z", "f8"), ("i", "u1")])
    records["x"], records["y"], records["z"] = few.T
    lines = "".join(f"{x!r} {y!r} {z!r} 9\n" for x, y, z in few.tolist())
    (folder / "b.ply").write_bytes(b"ply\nformat binary_little_endian 1.0\n" + head.encode() + records.tobytes())
    (folder / "a.ply").write_text("ply\nformat ascii 1.0\n" + head + lines)
    heading = "FIELDS x y z _ i\nSIZE 4 4 8 1 4\nTYPE F F F U F\nCOUNT 1 1 1 {0} 1\nPOINTS 500\nDATA {1}\n"
    padded = np.zeros(500, [("x", "f4"), ("y", "f4"), ("z", "f8"), ("_", "u1", 3), ("i", "f4")])
    padded["x"], padded["y"], padded["z"] = few.T
    (folder / "b.pcd").write_bytes(heading.format(3, "binary").encode() + padded.tobytes())
    (folder / "a.pcd").write_text(heading.format(1, "ascii") + lines.replace(" 9\n", " 0 9\n"))
    clouds = [folder / name for name in ("many.npy", "a.ply", "b.ply", "a.pcd", "b.pcd")]
    scans.run(planex, "view", *clouds, "-o", folder / "clouds.html", "-q")
    page = Page(folder / "clouds.html")

    def shown(index):
        planes = np.frombuffer(zlib.decompress(base64.b64decode(page.data[f"points-{index}"])), "u1").reshape(4, -1)
        return planes.T.copy().view("<f4").reshape(-1, 3)

    for index in range(1, 5):
        np.testing.assert_array_equal(shown(index), few)
    thinned = {tuple(point) for point in shown(0)}
    assert len(thinned) < len(points) and thinned <= {tuple(point) for point in points}
    assert {(50, 50, 1000), (51, 51, -1000)} <= thinned
    assert np.nanmax(page.numbers(0, "height")) > 999 and np.nanmin(page.numbers(0, "lowest height")) < -999
    assert np.nansum(page.numbers(0, "count")) == len(points)


def check_pages(planex):
    with tempfile.TemporaryDirectory() as name:
        folder = scans.write_scan(name)
        for check in (check_layers, check_blocks, check_map, check_texts, check_clouds):
            check(planex, folder)
    return 0


class Browser:
    """Chromium with one page."""

    def __init__(self, downloads, *options):
        from selenium import webdriver
        from selenium.webdriver.chrome.service import Service
        settings = webdriver.ChromeOptions()
        for option in ("--headless=new", "--no-sandbox", "--disable-dev-shm-usage", "--window-size=1500,1400",
                       *(options or ("--use-angle=swiftshader", "--enable-unsafe-swiftshader"))):
            settings.add_argument(option)
        settings.add_experimental_option("prefs", {"download.default_directory": str(downloads)})
        settings.set_capability("goog:loggingPrefs", {"browser": "ALL", "performance": "ALL"})
        self.driver = webdriver.Chrome(options=settings, service=Service("/usr/bin/chromedriver"))

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.driver.quit()

    def open(self, page, views=("space", "top")):
        """Opens a page and waits for it. @return seconds until all was shown"""
        self.driver.get(page.as_uri())
        notes = self.until(lambda: self.run(
            "const n = document.documentElement.dataset; return arguments[0].every(v => v in n) && {...n}", views))
        return max(int(notes[view]) for view in views) / 1000

    def run(self, script, *arguments):
        return self.driver.execute_script(script, *arguments)

    def until(self, holds, seconds=90):
        end = time.monotonic() + seconds
        while not (found := holds()):
            assert time.monotonic() < end, "waited in vain"
            time.sleep(0.1)
        return found

    def find(self, selector):
        from selenium.webdriver.common.by import By
        return self.driver.find_element(By.CSS_SELECTOR, selector)

    def point(self, *places, tool):
        """Drags the pointer over places of the map in the view from above."""
        from selenium.webdriver.common.action_chains import ActionChains
        self.find(f"input[value={tool}]").click()
        canvas = self.find("#top-canvas")
        self.run("arguments[0].scrollIntoView({block: 'center'})", canvas)
        before = self.find("#results").text
        chain = ActionChains(self.driver, duration=50)
        for number, place in enumerate(places):
            x, y = self.run("return top_.pixel(...arguments)", *place)
            chain.move_to_element_with_offset(canvas, round(x - canvas.size["width"] / 2),
                                              round(y - canvas.size["height"] / 2))
            if number == 0:
                chain.click_and_hold()
        chain.release().perform()
        self.until(lambda: self.find("#results").text != before)

    def move_to(self, canvas, x, y):
        """Moves the pointer to a place of a canvas, from its middle."""
        from selenium.webdriver.common.action_chains import ActionChains
        self.run("arguments[0].scrollIntoView({block: 'center'})", canvas)
        ActionChains(self.driver).move_to_element_with_offset(canvas, round(x), round(y)).perform()

    def number(self, title):
        """What was measured, with all its digits."""
        return float(self.run("""return [...document.querySelectorAll('#results tr')]
            .find(row => row.firstChild.textContent === arguments[0]).lastChild.dataset.number""", title))

    def check_quiet(self, page):
        """Nothing was loaded but the page, and nothing complained."""
        for entry in self.driver.get_log("performance"):
            message = json.loads(entry["message"])["message"]
            if message["method"] == "Network.requestWillBeSent":
                url = message["params"]["request"]["url"]
                assert url == page.as_uri() or url.startswith(("data:", "blob:")), url
        complaints = [entry["message"] for entry in self.driver.get_log("browser")]
        assert not complaints, complaints


def measure_scene(browser, page, scene, folder):
    """The step of 10 mm, a profile with its CSV, and the position under the pointer."""
    browser.open(page)
    browser.driver.save_screenshot(str(folder / "map.png"))
    level = json.loads((scene / "map.tif.json").read_text())["transform"]["scaleZ"]
    browser.point((-44, 47), (-22, 55), tool="rectangle")
    step = browser.number("Mean")
    browser.point((22, 25), (27, 75), tool="rectangle")
    step -= browser.number("Mean")
    print(f"the step of 10 mm is {step:.6f} mm, a level {level:.6f} mm")
    assert abs(step - 10) < level, step
    browser.point((-40, 50), (40, 50), tool="profile")
    browser.find("#save").click()
    csv = folder / "profile.csv"
    browser.until(csv.exists)
    browser.driver.save_screenshot(str(folder / "profile.png"))
    points = np.genfromtxt(csv, delimiter=",", names=True)
    levels = tifffile.imread(scene / "map.tif")
    about = json.loads((scene / "map.tif.json").read_text())["transform"]
    columns = np.round((points["X"] - about["originX"]) / about["scaleX"]).astype(int)
    rows = np.round((points["Y"] - about["originY"]) / about["scaleY"]).astype(int)
    stored = levels[rows, columns] * about["scaleZ"] + about["originZ"]
    stored[levels[rows, columns] == 0] = np.nan
    np.testing.assert_allclose(points["Z"], stored, atol=1e-9)
    assert len(points) > 1500
    canvas = browser.find("#space-canvas")
    x, y = browser.run("""const at = space.world.localToWorld(space.drawn(-30, 50, 10)).project(space.camera);
        return [at.x * arguments[0].clientWidth / 2, -at.y * arguments[0].clientHeight / 2]""", canvas)
    browser.move_to(canvas, x, y)
    told = browser.until(lambda: re.match(r"X (\S+) mm, Y (\S+) mm, Z (\S+) mm",
                                          browser.find("#position").text.replace("\u2212", "-")))
    np.testing.assert_allclose([float(text) for text in told.groups()], [-30, 50, 10], atol=0.4)
    check_keys(browser)


def check_keys(browser):
    """All of it without a pointer."""
    from selenium.webdriver.common.keys import Keys
    browser.find("input[value=points]").click()
    canvas = browser.find("#top-canvas")
    before = browser.find("#results").text
    canvas.send_keys(Keys.ENTER, *[Keys.ARROW_RIGHT] * 3, Keys.ENTER)
    browser.until(lambda: "Step in Z" in browser.find("#results").text != before)
    ends = [float(browser.find(name).get_attribute("value")) for name in ("#x0", "#x1", "#y0", "#y1")]
    width = browser.run("return maps[0].scaleX")
    assert abs(ends[1] - ends[0] - 3 * width) < 1e-4 and ends[2] == ends[3], ends
    picture = browser.run("return document.getElementById('space-canvas').toDataURL()")
    browser.find("#space-canvas").send_keys(Keys.ARROW_LEFT, "+")
    browser.until(lambda: browser.run("return document.getElementById('space-canvas').toDataURL()") != picture)


def check_access(browser, folder):
    """Labels, contrast and roles, as axe-core sees them."""
    if not (folder / "node_modules/axe-core/axe.min.js").exists():
        subprocess.run(["npm", "install", "--prefix", folder, "--no-save", "--silent", "axe-core"], check=True)
    browser.run((folder / "node_modules/axe-core/axe.min.js").read_text(encoding="utf-8"))
    found = browser.driver.execute_async_script(
        "const done = arguments[0]; axe.run().then(r => done(r.violations), e => done([String(e)]))")
    assert not found, json.dumps(found, indent=1)[:4000]


def check_hostile(browser, planex, folder, work):
    """Nothing of names and units runs, and what a page tries to load is refused."""
    check_texts(planex, scans.write_scan(work) if not (work / "other.tif").exists() else work)
    page = work / "hostile.html"
    browser.open(page)
    assert browser.run("return window.hit") is None
    assert browser.find("#title").text.startswith("<!--<script>")
    browser.check_quiet(page)
    refused = browser.driver.execute_async_script("""
        const done = arguments[0], refused = [];
        document.addEventListener("securitypolicyviolation", e => refused.push(e.effectiveDirective));
        const add = (tag, set) => document.body.append(Object.assign(document.createElement(tag), set));
        add("img", {src: "data:image/gif;base64,R0lGODlhAQABAAAAACw="});
        add("script", {textContent: "window.hit = 1"});
        add("iframe", {srcdoc: "x", src: "about:blank#x"});
        add("link", {rel: "stylesheet", href: "x.css"});
        fetch("x.json").catch(() => {});
        setTimeout(() => done(refused), 1000);""")
    assert {"img-src", "script-src-elem", "style-src-elem", "connect-src"} <= set(refused), refused
    assert browser.run("return window.hit") is None
    browser.driver.get_log("browser")


def check_browser(planex, simulate, folder):
    folder.mkdir(parents=True, exist_ok=True)
    for old in folder.glob("*.csv"):
        old.unlink()
    with tempfile.TemporaryDirectory() as name:
        scene = pathlib.Path(name)
        scans.run(simulate, scene)
        scans.run(planex, "rectify", scene / "model.json", scene / "range.pgm", "--fill", "4", "-o", scene / "map.tif",
                  "-q")
        scans.run(planex, "rectify", scene / "model.json", scene / "range.pgm", "-o", scene / "other.tif", "-q")
        scans.run(planex, "calibrate", scene / "model.json", scene / "range.pgm", "-o", scene / "cloud.ply", "-q")
        pages = {}
        for page, files in (("map", ["map.tif"]), ("both", ["map.tif", "cloud.ply"])):
            pages[page] = scene / f"{page}.html"
            scans.run(planex, "view", *(scene / file for file in files), "-o", pages[page], "-q")
        with Browser(folder) as browser:
            measure_scene(browser, pages["map"], scene, folder)
            check_access(browser, folder)
            browser.check_quiet(pages["map"])
            browser.open(pages["both"])
            browser.run("""for (const [id, value] of [["map", 1], ["together", "beside"]]) {
                document.getElementById(id).value = value;
                document.getElementById(id).dispatchEvent(new Event("change"));
            }""")
            time.sleep(3)
            browser.driver.save_screenshot(str(folder / "beside.png"))
            browser.check_quiet(pages["both"])
            check_hostile(browser, planex, folder, scene)
        with Browser(folder, "--disable-3d-apis") as browser:
            browser.open(pages["map"], ["top"])
            assert "no WebGL" in browser.find("#space-notice").text
            browser.point((-44, 47), (-22, 55), tool="rectangle")
            assert abs(browser.number("Mean") - 10) < 0.1
            browser.driver.save_screenshot(str(folder / "no_webgl.png"))
        for million, shape in ((1, (1000, 1000)), (4, (2000, 2000)), (20, (4000, 5000))):
            measure_large(planex, scene, folder, million, shape)
    return 0


def measure_large(planex, scene, folder, million, shape):
    """A page of a large map: its size, and how long until both views show it."""
    row, column = np.indices(shape, "f4")
    noise = np.random.default_rng(1).normal(0, 6, shape)
    levels = np.round(20000 + 8000 * np.sin(column / 300) * np.cos(row / 400) + noise).astype("u2")
    levels[700:1000, 300:900] += 10000
    levels[(row + column) % 997 < 40] = 0
    tifffile.imwrite(scene / "large.tif", levels, metadata=None)
    transform = {"scaleX": 0.05, "originX": -10, "scaleY": 0.05, "originY": 0, "scaleZ": 0.001, "originZ": -20}
    (scene / "large.tif.json").write_text(json.dumps(
        {"content": "height map", "unit": "mm", "columns": shape[1], "rows": shape[0], "transform": transform,
         "missing": 0}))
    page = scene / "large.html"
    start = time.monotonic()
    scans.run(planex, "view", scene / "large.tif", "-o", page, "-f", "-q")
    made = time.monotonic() - start
    with Browser(folder) as browser:
        shown = browser.open(page)
        browser.point((10, 36), (30, 48), tool="rectangle")
        part = levels[(row * 0.05 >= 36) & (row * 0.05 <= 48) & (column * 0.05 >= 20) & (column * 0.05 <= 40)]
        assert abs(browser.number("Mean") - (part[part > 0].mean() * 0.001 - 20)) < 0.2
        browser.driver.save_screenshot(str(folder / f"large{million}.png"))
        browser.check_quiet(page)
    print(f"{million} million cells: {page.stat().st_size / 1e6:.1f} MB, made in {made:.1f} s, shown after {shown:.1f} s")


if __name__ == "__main__":
    if sys.argv[1] == "page":
        sys.exit(check_pages(pathlib.Path(sys.argv[2])))
    sys.exit(check_browser(*map(pathlib.Path, sys.argv[2:4]), pathlib.Path(sys.argv[4]).resolve()))
