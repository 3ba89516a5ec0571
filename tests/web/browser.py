#!/usr/bin/python3
"""tests/web/browser.py AXE-FOLDER LANGUAGE...|back - the demo site as its users meet it, in headless Chromium:
by keyboard, on a phone and on a desk, in each language, with script or without; or what Back shows.

Runs under scripts/serve.sh. At the end it looks at all that the browser has complained about.
An accessibility checker, axe-core, looks at each page in English; npm puts it into AXE-FOLDER."""
import os, re, subprocess, sys, tempfile, time
from chromium import *
from visitor import *

PAGES = "overview devices addresses traffic events settings password backup reboot logout".split()
TEXTS = {"en": {"settings": "Settings", "error": "This did not work", "saved": "have been saved"},
         "de": {"settings": "Einstellungen", "error": "Das hat nicht geklappt",
                "saved": "sind gespeichert"},
         "el": {"settings": "Ρυθμίσεις", "error": "Η ενέργεια δεν ολοκληρώθηκε", "saved": "αποθηκεύτηκαν"}}
ODD_NAME = """<b>"&'"""
TAB, ENTER, SPACE, DOWN, DELETE = "\ue004", "\ue007", " ", "\ue015", "\ue017"
DEVICES = """select name, network, ip, mac from device_list """
CELLS = """return [...document.querySelector('tbody').rows]
.map(row => [...row.cells].slice(0, 4).map(cell => cell.textContent))"""
AXE_FOLDER, *LANGUAGES = sys.argv[1:]
reached = set()  # (path, selector): by the keyboard


def texts(selector):
    return run("return [...document.querySelectorAll(arguments[0])].map(e => e.textContent)",
               selector)


def tab_to(selector):
    """Goes on by the tabulator to an element that shows that it has the focus; at once, where it has been reached so."""
    place = run("return location.pathname"), selector
    if place in reached:
        run("document.querySelector(arguments[0]).focus()", selector)
    for _ in range(80):
        if run("return document.activeElement.matches(arguments[0])", selector):
            reached.add(place)
            rings = (run("return getComputedStyle(document.activeElement).outlineStyle")
                     for _ in range(100))
            return check(selector + " shows its focus", True, any(ring != "none" for ring in rings))
        press(TAB)
    return check("reached by the keyboard", selector, None)


def type_into(selector, text):
    tab_to(selector)
    run("document.activeElement.select && document.activeElement.select()")
    if text:
        insert(text)
    else:
        press(DELETE)


def submit(selector, key=ENTER):
    """Presses what leads to another page, and waits for that."""
    tab_to(selector)
    run("window.isLeft = true")
    press(key)
    deadline = time.monotonic() + 30
    while run("return window.isLeft || document.readyState !== 'complete'"):
        if time.monotonic() > deadline:
            sys.exit(f"{selector} leads nowhere")
        time.sleep(0.02)


def sign_in(password=PASSWORD):
    if texts("#repeat"):
        type_into("#password", "short")
        type_into("#repeat", PASSWORD)
        submit("main button")
        check("the first wrong field has the focus", "password",
              run("return document.activeElement.id"))
        type_into("#repeat", PASSWORD)
    type_into("#password", password)
    submit("#password")


def find_wide():
    return run(
        "return [...document.querySelectorAll('body *')].filter(e => e.getBoundingClientRect()"
        ".right > document.documentElement.clientWidth + 1 || e.getBoundingClientRect().left < -1 || e.clientWidth > 1 && e.scrollWidth > e.clientWidth + 1"
        " && getComputedStyle(e).overflowX !== 'visible' && e.tagName !== 'INPUT')"
        ".map(e => e.outerHTML.slice(0, 80))")


def check_looks():
    """Long names, all widths, paper, the dark, and a language that begins at the right."""
    show("login.htm")
    if texts("#password"):
        sign_in()
    name = "W" * 32
    sql("update setting set stored = ? where name in ('hostname', 'ssid')", name)
    sql("update device set name = ? where id = 1", name)
    sql("insert into event_add values ('info', 'devices', 'device', ?, null)", name)
    sql("update status set started = 0")  # long ago: the page that waits for a restart leaves by itself
    for page in ("login", *PAGES):
        show(page + ".htm")
        for start in ("ltr", "rtl"):
            run("document.documentElement.dir = arguments[0]", start)
            for width in (320, 500, 704, 720, 960, 1000, 1280):
                resize(width, 800)
                check((page, start, width), [], find_wide())
        device("setEmulatedMedia", media="print")
        resize(680, 1000)  # of A4, between the margins
        check((page, "paper"), [], find_wide())
        device("setEmulatedMedia", media="", features=[{"name": "prefers-color-scheme", "value": "dark"}])
        check((page, "dark"), ["rgb(20, 25, 31)", [True]], [
            run("return getComputedStyle(document.body).backgroundColor"), find_barriers(AXE_FOLDER)])
        device("setEmulatedMedia", media="", features=[])
    sql("update setting set stored = null")


def check_page(page, where):
    what = f"{page} {where}"
    check(what + ": wider than the window", [], find_wide())
    check(what + ": small letters", [], run(
        "return [...document.querySelectorAll('body *')].filter(e => e.childElementCount === 0"
        " && e.textContent.trim() && e.getBoundingClientRect().width > 0"
        " && parseFloat(getComputedStyle(e).fontSize) < 12).map(e => e.outerHTML)"))
    if "en" in LANGUAGES:  # others have the same elements
        check(what + ": accessibility", [True], find_barriers(AXE_FOLDER))
    source = run("return fetch(location.href).then(answer => answer.text())")
    tidy = subprocess.run(["tidy", "-quiet", "-errors", "-utf8"], input=source.encode(),
                          capture_output=True, check=False)
    # It takes these, of HTML 5 and ARIA 1.1, for inventions or for empty.
    known = re.compile(r'proprietary attribute "(aria-\w+|inputmode|autofocus|autocapitalize)"|trimming empty <form>'
                       r"|noscript")
    check(what + ": markup", [], [line for line in tidy.stderr.decode().splitlines()
                                  if not known.search(line)])


def check_forms(language):
    """Each form, its errors, and what must survive: without a mouse, and with or without
    script."""
    words = TEXTS[language]
    errors = [("#hostname", "Attic!"), ("#nameserver", "1.2.3"), ("#first", "x"), ("#last", "999"),
              ("#ssid", "ä" * 17), ("#passphrase", "short")]
    show("settings.htm")
    check("language", [language, words["settings"]],
          [run("return document.documentElement.lang"), *texts("h1")])
    run("document.getElementById('form').noValidate = true")
    for selector, wrong in errors:
        type_into(selector, wrong)
    submit("#passphrase")
    names = [selector[1:] for selector, _ in errors]
    check("errors at their fields", [names, names], [
        run("return [...document.querySelectorAll('[aria-invalid=true]')].map(e => e.id)"),
        run("return [...document.querySelectorAll('[aria-invalid=true]')].filter(e => document"
            ".getElementById(e.getAttribute('aria-describedby')).textContent).map(e => e.id)")])
    check("error in the title, focus", [True, "hostname", 1], [
        run("return document.title").startswith(words["error"]),
        run("return document.activeElement.id"), len(texts("[role=alert]"))])
    other = {"en": "de", "de": "el", "el": "en"}[language]
    submit(f"button[lang={other}]")
    check("typed stays in another language", [other, "Attic!", "ä" * 17], run(
        "const f = document.getElementById('form').elements;"
        "return [document.documentElement.lang, f.hostname.value, f.ssid.value]"))
    submit(f"button[lang={language}]")
    for selector, right in (("#hostname", "attic"), ("#nameserver", " 192.0.2.7 "), ("#first", "20"),
                            ("#last", "220"), ("#ssid", ODD_NAME), ("#passphrase", "")):
        type_into(selector, right)
    submit("button[name=reveal]")
    check("passphrase on demand", *stored("passphrase"),
          run("return document.getElementById('passphrase').value"))
    type_into("#passphrase", "long-enough-" + language)
    tab_to("#hidden")
    press(SPACE)
    hidden = run("return document.activeElement.checked")
    submit("#hidden")
    check("saved", [0, True], [len(texts("[role=alert]")), words["saved"] in texts("[role=status]")[0]])
    check("stored", ["attic", "192.0.2.7", ODD_NAME, "220", "long-enough-" + language, str(int(hidden))],
          stored("hostname", "nameserver", "ssid", "last", "passphrase", "hidden"))

    # The session ends while somebody types.
    type_into("#hostname", "cellar")
    sql("delete from session")
    submit("main button:not([name])")
    sign_in()
    check("typed stays after signing in", "cellar",
          run("return document.getElementById('hostname').value"))
    show("devices.htm?net=2&sort=ip")
    type_into("#find", "LAMP")
    submit("#find")
    submit(f"button[lang={other}]")
    check("filter stays in another language", [other, "2", "ip", "LAMP"], run(
        "return [document.documentElement.lang, ...['net', 'sort', 'find'].map("
        "id => document.getElementById(id).value)]"))
    submit(f"button[lang={language}]")
    check("found", [["lamp, desk"], ["lamp, hall"]], [row[:1] for row in run(CELLS)])

    for fields, marked in ((("wrong", "new-password", "new-password"), "old"),
                           ((PASSWORD, "new-password", "x"), "repeat"),
                           ((PASSWORD, PASSWORD, PASSWORD), None)):
        show("password.htm")
        for name, value in zip(("old", "password", "repeat"), fields):
            type_into("#" + name, value)
        submit("#" + name)
        check("password " + str(marked), [marked] if marked else [], run(
            "return [...document.querySelectorAll('[aria-invalid=true]')].map(e => e.id)"))
    show("backup.htm")
    with tempfile.NamedTemporaryFile("w", suffix=".json") as file:
        file.write("{}")
        file.flush()
        field = send("/element", using="css selector", value="#file")
        send(f"/element/{[*field.values()][0]}/value", text=file.name)
        submit("[enctype] button")
    check("a wrong file", ["file"], run(
        "return [...document.querySelectorAll('[aria-invalid=true]')].map(e => e.id)"))


def await_rest():
    """A page may be there, and the second click's answer still to come, or to be made."""
    came, since = None, time.monotonic()
    with open(os.path.dirname(LOG) + "/pid", encoding="ascii") as file:
        server = int(file.read())
    while time.monotonic() < since + 0.2:
        page = run("return document.readyState === 'complete' && performance.timeOrigin")
        with open(f"/proc/{server}/task/{server}/children", encoding="ascii") as file:
            is_at_work = bool(file.read())
        if page != came or is_at_work:
            came, since = page, time.monotonic()
        time.sleep(0.01)


def check_double_clicks(width):
    """The second click sends the form again, before or while the first is answered, or meets
    the next page."""
    before, saved = sql("select password from account")[0][0], revision()
    old = PASSWORD
    for i, pause in enumerate((0, 60, 120) if width > 500 else (30, 90, 150)):
        new = f"new-password-{i}"
        rows = (("settings.htm", "main button:not([name])", {"hostname": f"name{i}"}, "have been saved"),
                ("password.htm", "main button", {"old": old, "password": new, "repeat": new}, "been changed"),
                ("logout.htm", ".out button", {}, "You are signed out"))
        for page, button, fields, said in rows:
            show(page)
            for name, value in fields.items():
                run("document.getElementById(arguments[0]).value = arguments[1]", name, value)
            click(button, 2, pause)
            await_rest()
            # A message is shown once, which may have been on a page that nobody has seen.
            check((page, pause, width), [], [
                text for text in texts("[role=status], [role=alert]") if said not in text])
        check("languages", ["en"], [run("return document.documentElement.lang")])
        sign_in(new)
        old = new
    check("saves", saved + 3, revision())
    sql("update account set password = ?", before)  # which ends the session
    show("login.htm")
    sign_in()


def check_sign_out():
    """Back shows nothing of the owner's to who comes afterwards."""
    for page in ("devices.htm", "settings.htm"):
        show(page)
    submit(".out button")
    check("signed out", ["You are signed out."], texts("[role=status]"))
    for _ in range(2):
        send("/back")
        check("Back", ["Sign in", []], [*texts("h1"), texts("tbody, [name=hostname]")])
    show("logout.htm")
    sign_in()
    check("to the overview", "overview.htm", run("return location.pathname").rsplit("/")[-1])


def check_lists():
    show("devices.htm")
    check("devices", [list(row) for row in sql(DEVICES + "order by lower(name) limit 10")], run(CELLS))
    check("an odd name", 1, texts("tbody th").count(ODD_NAME))
    tab_to("#net")
    press(DOWN * 2)
    tab_to("#sort")
    press(DOWN)
    submit("main .filter button")
    submit(".pager button:last-of-type")
    check("filtered, sorted, second page", [list(row) for row in sql(
        DEVICES + "where network_id = 2 order by ip_order limit 10 offset 10")], run(CELLS))
    show("traffic.htm")
    names = sql("select name from device_list order by volume desc, id limit 6")
    check("names through the script", names, [(name,) for name in texts("#volume text.name")])
    check("hours through the script", [48, 60], [len(texts("#chart rect")), len(texts("#minutes rect"))])
    check("a scale", True, len(texts("#chart .grid")) > 2 and texts("#chart text")[0] == "0")


def await_that(what, holds):
    deadline = time.monotonic() + 25
    while not holds():
        if time.monotonic() > deadline:
            return check(what, True, False)
        time.sleep(0.1)


def check_live():
    """What is alive comes anew, and what is typed stays. A second of the pages takes a tenth of one."""
    send("/goog/cdp/execute", cmd="Page.addScriptToEvaluateOnNewDocument", params={"source": """
for (const name of ['setTimeout', 'setInterval']) {
    const slow = window[name];
    window[name] = (action, milliseconds) => slow(action, milliseconds / 10);
}"""})
    show("devices.htm")
    type_into("#find", "typed")
    sql("update device set name = 'a renamed printer' where name = 'printer'")
    await_that("refreshed", lambda: "a renamed printer" in texts("tbody th"))
    check("typed", ["typed", "find"], run(
        "return [document.activeElement.value, document.activeElement.id]"))
    show("traffic.htm?lang=de")
    show("traffic.htm?lang=en")
    language = send("/cookie/zarnlang", "GET")["value"]
    run("getSelection().selectAllChildren(document.querySelector('#most tbody th'));"
        "history.replaceState(null, '', '?lang=de')")
    selected = run("return getSelection().toString()")
    before = texts("#hours td")
    sql("update device set name = 'b' || name")
    sql("update traffic set received = received + 1")
    await_that("what moves", lambda: texts("#hours td") != before)
    check("a selection and the language stay", [selected, "en", language], [
        run("return getSelection().toString()"), language, send("/cookie/zarnlang", "GET")["value"]])
    send("/goog/cdp/execute", cmd="Network.enable", params={})
    for offline, said in ((True, "does not answer"), (False, "")):
        send("/goog/cdp/execute", cmd="Network.emulateNetworkConditions", params={
            "offline": offline, "latency": 0, "downloadThroughput": -1, "uploadThroughput": -1})
        await_that("told: " + said, lambda: said in texts("#stale")[0] and bool(said) != run(
            "return document.getElementById('stale').hidden"))
    sql("delete from session")
    await_that("told that the session has ended", lambda: "signed out" in texts("#stale")[0])
    check("what was seen stays", 48, len(texts("#hours td")))
    show("login.htm")
    sign_in()
    show("reboot.htm")
    submit("main button")
    sql("delete from session")  # as a restart does
    await_that("back by itself", lambda: run("return location.pathname").endswith("overview.htm"))


def check_site():
    for width, language, script in ((1280, "en", True), (360, "de", False), (360, "el", True)):
        if language not in LANGUAGES:
            continue
        device("setScriptExecutionDisabled", value=False)
        resize(width, 800)
        where = f"in {language} at {width}"
        show("login.htm")
        sql("delete from session")
        show("overview.htm?lang=" + language)
        check("language " + where, language, run("return document.documentElement.lang"))
        check_page("login", where)
        sign_in()
        for page in PAGES:
            show(page + ".htm")
            check_page(page, where)
        show("nothere.htm")
        check_page("no page", where)
        device("setScriptExecutionDisabled", value=not script)
        show("traffic.htm")
        check("scripts " + where, script, len(texts("#chart rect")) > 0)
        check_forms(language)
        sql("update setting set stored = null where name = 'hostname'")
    device("setScriptExecutionDisabled", value=False)
    if "en" in LANGUAGES:
        check_double_clicks(1280)
        resize(360, 800)
        check_double_clicks(360)
        check_lists()
        check_live()
        check_looks()
    check_complaints()


def check_back():
    show("login.htm")
    sign_in()
    check_sign_out()
    check_complaints()


def check_complaints():
    statuses = r"status of (403|404|422) |INTERNET_DISCONNECTED"  # of the answers above, which Chromium tells as well
    check("complaints", [], [entry["message"] for entry in send("/se/log", type="browser")
                             if entry["level"] in ("WARNING", "SEVERE")
                             and not re.search(statuses, entry["message"])])


install_axe(AXE_FOLDER)
if LANGUAGES == ["back"]:
    with_browser(check_back, is_whole=True)
else:
    with_browser(check_site)
sys.exit(bool(failed))
