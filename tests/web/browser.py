#!/usr/bin/python3
"""tests/web/browser.py - the demo site as its users meet it, in headless Chromium.

Runs under tools/serve.sh. Speaks WebDriver to chromedriver, which speaks to the
browser; at the end it looks at all that the browser has complained about."""
import json, os, re, sqlite3, subprocess, sys, tempfile, time, urllib.error, urllib.request

SITE, DB = os.environ["SITE_URL"], os.environ["SITE_DB"]
FLAGS = """--headless --no-sandbox --disable-gpu --disable-quic --no-first-run --lang=en
--disable-background-networking --disable-component-update --disable-sync""".split()
ODD_NAME = """<b>"&'"""
DEVICES = """select name, network, ip, mac, iif(online, 'online', 'offline'), seen, volume || ' MiB'
from device_list """
CELLS = """return [...document.querySelector('tbody').rows]
.map(row => [...row.cells].map(cell => cell.textContent))"""
session, failed = "", False


def check(what, expected, got):
    global failed
    if expected != got:
        failed = True
        print(f"{what}\n  expected: {expected!r}\n  got:      {got!r}", file=sys.stderr)


def sql(query):
    with sqlite3.connect(DB) as db:
        return [[str(value) for value in row] for row in db.execute(query)]


def post(path, **body):
    request = urllib.request.Request(session + path, json.dumps(body).encode())
    with urllib.request.urlopen(request, timeout=60) as answer:
        return json.load(answer)["value"]


def run(script, *args):
    return post("/execute/sync", script=script, args=args)


def show(path):
    post("/url", url=SITE + path)


def texts(selector):
    return run("return [...document.querySelectorAll(arguments[0])].map(e => e.textContent)",
               selector)


def follow(selector):
    """Clicks on what leads to another page, and waits for that."""
    run("window.isLeft = true; document.querySelector(arguments[0]).click()", selector)
    deadline = time.monotonic() + 30
    while run("return window.isLeft || document.readyState !== 'complete'"):
        if time.monotonic() > deadline:
            sys.exit(f"{selector} leads nowhere")


def check_markup(page):
    show(page)
    with urllib.request.urlopen(SITE + page) as source:
        tidy = subprocess.run(["tidy", "-quiet", "-errors", "-utf8"], input=source.read(),
                              capture_output=True, check=False)
    # It takes these two, of HTML 5 and ARIA 1.1, for inventions.
    known = re.compile(r'Warning: <\w+> proprietary attribute "(aria-current|inputmode)"')
    check(page, [], [line for line in tidy.stderr.decode().splitlines() if not known.search(line)])
    check(f"{page}: fields without label", [], run(
        "return [...document.querySelectorAll('input:not([type=hidden]), select')]"
        ".filter(field => !field.labels.length).map(field => field.name)"))


def check_site():
    for page in ("overview", "devices", "traffic", "events", "settings"):
        check_markup(page + ".htm")

    show("devices.htm")
    check("devices", sql(DEVICES + "order by lower(name) limit 10"), run(CELLS))
    check("an odd name", 1, texts("tbody th").count(ODD_NAME))
    run("net.value = '2'; sort.value = 'ip'")
    follow("form button")
    follow(".pager button:last-of-type")
    check("filtered, sorted, second page",
          sql(DEVICES + "where network_id = 2 order by ip_order limit 10 offset 10"), run(CELLS))

    show("traffic.htm")
    names = sql("select name from device_list order by volume desc, id limit 6")
    check("names through the script", names, [[name] for name in texts("#volume text.name")])
    check("hours through the script", 48, len(texts("#chart rect")))
    follow(".languages a[hreflang=de]")
    show("settings.htm")
    check("language", ["de", "Einstellungen"],
          [run("return document.documentElement.lang"), *texts("h1")])

    state = ("const f = document.forms[0].elements;"
             "return [f.hostname.value, f.ssid.value, f.last.value, f.hidden.checked]")
    run("const f = document.forms[0].elements; f.hostname.value = 'attic'; f.first.value = 200;"
        "f.last.value = 100; f.hidden.checked = true; f.ssid.value = arguments[0]", ODD_NAME)
    follow("main form button")
    check("error box", 1, len(texts("[role=alert] p")))
    check("typed is kept", ["attic", ODD_NAME, "100", True], run(state))
    run("document.forms[0].elements.last.value = 220")
    follow("main form button")
    check("saved", [0, 1], [len(texts("[role=alert]")), len(texts("[role=status]"))])
    check("saved is shown", ["attic", ODD_NAME, "220", True], run(state))
    check("complaints", [], [entry["message"] for entry in post("/se/log", type="browser")])


with tempfile.TemporaryDirectory() as profile, subprocess.Popen(
        ["chromedriver", "--port=0"], stdout=subprocess.PIPE, text=True) as driver:
    try:
        ports = (re.search(r"successfully on port (\d+)", line) for line in driver.stdout)
        session = f"http://127.0.0.1:{next(port for port in ports if port)[1]}/session"
        options = {"args": FLAGS + [f"--user-data-dir={profile}"]}
        session += "/" + post("", capabilities={"alwaysMatch": {
            "goog:chromeOptions": options, "goog:loggingPrefs": {"browser": "ALL"}}})["sessionId"]
        check_site()
        urllib.request.urlopen(urllib.request.Request(session, method="DELETE")).close()
    finally:
        driver.terminate()
sys.exit(failed)
