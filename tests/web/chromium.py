"""tests/web/chromium.py - headless Chromium on the demo site that scripts/serve.sh runs. Speaks
WebDriver to chromedriver, which speaks to the browser."""
import fcntl, json, os, re, subprocess, tempfile, urllib.request
from visitor import SITE

FLAGS = """--headless --no-sandbox --disable-gpu --disable-quic --no-first-run --lang=en
--disable-background-networking --disable-component-update --disable-sync""".split()
session = ""


def send(path, method="POST", **body):
    text = json.dumps(body).encode() if method == "POST" else None
    request = urllib.request.Request(session + path, text, method=method)
    with urllib.request.urlopen(request, timeout=60) as answer:
        return json.load(answer)["value"]


def run(script, *args, kind="sync"):
    return send("/execute/" + kind, script=script, args=args)


def show(path):
    send("/url", url=SITE + path)


def press(keys):
    send("/actions", actions=[{"type": "key", "id": "keys", "actions": [
        {"type": kind, "value": key} for key in keys for kind in ("keyDown", "keyUp")]}])


def click(selector, times, pause):
    """Clicks on an element with so many milliseconds in between."""
    found = send("/element", using="css selector", value=selector)
    send("/actions", actions=[{"type": "pointer", "id": "mouse", "actions": [
        {"type": "pointerMove", "x": 0, "y": 0, "origin": found}] + times * [
        {"type": "pointerDown", "button": 0}, {"type": "pointerUp", "button": 0},
        {"type": "pause", "duration": pause}]}])


def insert(text):
    """Types a text, faster than key by key."""
    send("/goog/cdp/execute", cmd="Input.insertText", params={"text": text})


def device(name, **parameters):
    send("/goog/cdp/execute", cmd="Emulation." + name, params=parameters)


def resize(width, height):
    device("setDeviceMetricsOverride", width=width, height=height, deviceScaleFactor=1,
           mobile=width < 500)


def install_axe(folder):
    """Has npm put axe-core, an accessibility checker, into a folder, unless it is there."""
    os.makedirs(folder, exist_ok=True)
    with open(folder + "/lock", "w", encoding="ascii") as lock:  # another test may be as far
        fcntl.flock(lock, fcntl.LOCK_EX)
        if not os.path.exists(folder + "/node_modules/axe-core"):
            subprocess.run(["npm", "install", "--silent", "--no-audit", "--no-fund", "--prefix",
                            folder, "axe-core@4"], check=True)


def find_barriers(folder):
    """Whether axe-core has looked at the page, and what it has found."""
    if not run("return !!window.axe"):
        with open(folder + "/node_modules/axe-core/axe.min.js", encoding="utf-8") as axe:
            run(axe.read())
    return run("""const done = arguments[arguments.length - 1];
axe.run().then(result => done([result.passes.length > 9, ...result.violations.map(
    v => v.id + ': ' + v.nodes.map(n => n.html).join(' | '))]))""", kind="async")


def with_browser(action, *flags, is_whole=False):
    """Runs the action with a browser that has never been used before: with its headless shell, which
    does the same in three quarters of the time; or whole, which keeps pages that were left for Back, too."""
    global session
    with tempfile.TemporaryDirectory() as profile, subprocess.Popen(
            ["chromedriver", "--port=0"], stdout=subprocess.PIPE, text=True) as driver:
        try:
            program = profile + "/chromium"
            with open(program, "w", encoding="ascii") as file:  # the shell has no page unless it is asked for one
                file.write("#!/bin/sh\nexec chromium%s" % (' "$@"' if is_whole else '-headless-shell "$@" about:blank'))
            os.chmod(program, 0o755)
            ports = (re.search(r"successfully on port (\d+)", line) for line in driver.stdout)
            session = f"http://127.0.0.1:{next(port for port in ports if port)[1]}/session"
            options = {"binary": program, "args": [*FLAGS, *flags, f"--user-data-dir={profile}"]}
            session += "/" + send("", capabilities={"alwaysMatch": {
                "goog:chromeOptions": options, "goog:loggingPrefs": {"browser": "ALL"}}})["sessionId"]
            device("setFocusEmulationEnabled", enabled=True)  # as if its window had the focus
            action()
            send("", "DELETE")
        finally:
            driver.terminate()
