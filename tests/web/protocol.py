#!/usr/bin/python3
"""tests/web/protocol.py ZARN - the web program's side of HTTP: asks the site that
scripts/serve.sh runs, and for what a web server would not let pass, ZARN itself."""
import collections, concurrent.futures, json, os, re, shutil, ssl, subprocess, sys, tempfile, time
from visitor import *

ZARN = sys.argv[1]
REASONS = dict(pair.split(" ", 1) for pair in """200 OK
303 See Other
400 Bad Request
403 Forbidden
404 Not Found
405 Method Not Allowed
413 Content Too Large
415 Unsupported Media Type
422 Unprocessable Content
500 Internal Server Error
503 Service Unavailable""".splitlines())
HEADERS = {
    "Content-Type": "text/html; charset=utf-8", "Cache-Control": "no-store",
    "X-Content-Type-Options": "nosniff", "Referrer-Policy": "same-origin",
    "Cross-Origin-Resource-Policy": "same-origin",
    "Content-Security-Policy": "default-src 'none'; style-src 'self'; script-src 'self'; "
    "connect-src 'self'; img-src data:; form-action 'self'; base-uri 'none'; "
    "frame-ancestors 'none'"}


def log_since(position):
    with open(LOG, encoding="utf-8") as log:
        log.seek(position)
        return log.read()


def check_requests(visitor):
    """Status and what the page has: refusals in the site's look, then its language."""
    form = {"Content-Type": "application/x-www-form-urlencoded"}
    rows = [
        (200, "<h1>Devices", "devices.htm?find=%3Cb%3E&sort=ip&page=99999999999999999999"),
        (200, "<h1>Overview", "overview.htm?&&a&b=&a=1"),
        (200, "phone, Jörg", "devices.htm?find=%20jORG"),
        (200, "phone, Jörg", "devices.htm?find=J%C3%96R"),
        (200, "file server", "devices.htm?find=5e:10:00:06"),
        (200, "<h1>Devices", "devices.htm?find=%C2%80%E0%A0%80%ED%9F%BF%F0%90%80%80%F4%8F%BF%BF" + "a" * 2032),
        (413, "too large", "devices.htm?find=" + "a" * 2049),
        (404, "no such page", "header.frm"),
        (404, "no such page", "login.sql"),
        (404, "no such page", "settings.json.frm"),
        (404, '"../style.css"', "a/b.htm"),
        (404, "no such page", "%2e%2e/%2e%2e/zarn/zarn.cpp"),
        (405, "in that way", "overview.htm", "POST", "a=b", form),
        (405, "in that way", "settings.htm", "DELETE"),
        (400, "damaged", "overview.htm?page%5Bid%5D=x"),
        (400, "damaged", "settings.htm", "POST", "a=%00", form),
        *((400, "damaged", "settings.htm", "POST", "a=" + bytes_, form) for bytes_ in ("%C0%AF", "%C3x", "%E2%82", "%E0%80%AF", "%ED%A0%80", "%F4%90%80%80")),
        (400, "damaged", "backup.htm", "POST", "--b\r\n",
         {"Content-Type": "multipart/form-data; boundary=b"}),
        (413, "too large", "overview.htm?" + "a=1&" * 65),
        (413, "too large", "settings.htm", "POST", "a" * 20000, form),
        (415, "bring a form", "settings.htm", "POST", "{}", {"Content-Type": "text/json"}),
    ]
    quiet = os.path.getsize(LOG)
    for status, text, path, *request in rows:
        answer = visitor.ask(path, *request)
        check(path, (status, True, "text/html; charset=utf-8"),
              (answer.status, text in answer.text, answer.headers["Content-Type"]))
    check("what is no problem is not logged", "", log_since(quiet))
    check("allowed", "GET, HEAD, POST", visitor.ask("settings.htm", "DELETE").headers["Allow"])
    for parameter, cookie, header, language in [
            ("?lang=de", "en", "en", "de"), ("?lang=xx", "en", "de", "en"),
            ("?lang=../", "de", "en", "de"), ("", "xx", "fr,en;q=0.5,de;q=0.4", "en"),
            ("", "xx", "fr , de ,en;q=0.5", "de"), ("", "xx", "de;q=0", "en"), ("", "xx", "de;q=1,en", "de"), ("", "xx", "de;q,en;q=0.001", "en"), ("", "xx", "en;q=0,*,DE-at;q=0.001", "de")]:
        answer = Visitor().ask("login.htm" + parameter, "GET", None,
                               {"Cookie": "zarnlang=" + cookie, "Accept-Language": header})
        check((parameter, cookie, header), True, f'<html lang="{language}"' in answer.text)
    style = visitor.ask("style.css?v=2")
    check("its headers", HEADERS["Content-Security-Policy"], style.headers["Content-Security-Policy"])
    check("a style by version, cached", (200, "max-age=600"), (style.status, style.headers["Cache-Control"]))
    check("no server version", None, style.headers["Server"])
    # A page is kept by no cache, and runs no foreign script; HEAD tells the same.
    for method in ("GET", "HEAD"):
        headers = dict(visitor.ask("devices.htm", method).headers)
        for name in ("Accept-Ranges", "Content-Length", "Date", "Server", "Transfer-Encoding"):
            headers.pop(name, None)  # the web server's
        check(method, HEADERS, headers)


def check_attacks(visitor):
    """Forms that must change nothing: what is sent besides or instead of the usual, the
    status, and the reason, by the error log or on the page."""
    port = int(ORIGIN.rsplit(":", 1)[1])
    rebound = f"evil.example:{port}"
    other = signed_in()
    token = visitor.token()
    elsewhere, foreign = "a form from elsewhere is refused: ", "did not come from a page of this router"
    rows = [
        ("no origin", {"Origin": None}, {}, 403, elsewhere + "no origin"),
        ("another port", {"Origin": f"http://127.0.0.1:{port + 1}"}, {}, 403, elsewhere + "origin"),
        ("another port by referrer", {"Origin": None, "Referer": f"http://127.0.0.1:{port + 1}/x"},
         {}, 403, elsewhere + "origin"),
        ("a page that hides", {"Origin": "null"}, {}, 403, elsewhere + "origin"),
        ("another site", {"Origin": "http://evil.example"}, {}, 403, foreign),
        ("the host in another's name", {"Origin": ORIGIN + ".evil.example"}, {}, 403, foreign),
        ("another scheme", {"Origin": ORIGIN.replace("http:", "https:")}, {}, 403,
         elsewhere + "session"),
        ("a rebound name", {"Host": rebound, "Origin": "http://" + rebound}, {}, 403,
         elsewhere + "host"),
        ("the browser knows", {"Sec-Fetch-Site": "same-site"}, {}, 403, elsewhere + "site"),
        ("no token", {}, {"token": ""}, 403, "too old"),
        ("an invented token", {}, {"token": "0" * 32}, 403, "too old"),
        ("the cookie as token", {}, {"token": visitor.cookies["zarnsession"]}, 403, "too old"),
        ("another's token", {}, {"token": other.token()}, 403, "too old"),
        ("no session", {"Cookie": ""}, {}, 403, "<h1>Sign in"),
        ("an invented session", {"Cookie": "zarnsession=" + "0" * 32}, {}, 403, "<h1>Sign in"),
        ("SQL for a session", {"Cookie": "zarnsession=' or 1 --"}, {}, 403, "<h1>Sign in"),
        ("SQL for a value", {}, {"network": "1 or 1"}, 422, "choose from the list"),
    ]
    before = stored(), sql("select count(*) from event")
    for what, headers, fields, status, reason in rows:
        position = os.path.getsize(LOG)
        answer = visitor.post("settings.htm", {"token": token, "version": 1, **FORM,
                                               "hostname": "evil", **fields}, headers)
        check(what, (status, True), (answer.status, reason in answer.text + log_since(position)))
    link = visitor.ask(f"settings.htm?typed=1&reveal=1&token=zzz&hostname=evil&flash=evil&sid=1")
    check("a link fills nothing", (200, []),
          (link.status, re.findall("evil|zzz|birch-heron-7-lantern", link.text)))
    check("a link signs nobody out", 200, visitor.ask("logout.htm?logout=1").status)
    check("nothing has changed", before, (stored(), sql("select count(*) from event")))
    stranger = Visitor()
    for page in ("", "overview.htm", "events.csv", "logout.htm", "reboot.htm"):
        answer = stranger.ask(page)
        check("a stranger's " + page, (200 if page == "logout.htm" else 403, "Sign in", []),
              (answer.status, answer.heading, re.findall("FJ4|fjord|192.168", answer.text)))


def check_login():
    first = Visitor()
    check("first visit", (403, True),
          (lambda a: (a.status, "choose a password" in a.text))(first.ask("devices.htm")))
    check("short", (422, ["password"]),
          (lambda a: (a.status, a.marked()))(first.login("1234567")))
    check("weak", [["password"]] * 3, [first.login(word).marked() for word in ("Password1", "INTERNET", "hallo123")])
    check("repeat differs", ["repeat"], first.login(repeat="other").marked())
    answer = first.login(back="devices.htm", method="get", net="2", find="a&b ü")
    check("password set", (303, "devices.htm?net=2&find=a%26b%20%C3%BC"),
          (answer.status, answer.headers["Location"]))
    check("cookie", True, bool(re.fullmatch(
        "zarnsession=[0-9a-f]{32}; Path=/; HttpOnly; SameSite=Strict",
        answer.headers["Set-Cookie"])))
    check("hash", True, sql("select password from account")[0][0].startswith("$y$"))
    for back in ("//evil.example/", "http://evil.example/a.htm", "../x.htm", "header.frm"):
        check("back " + back, "overview.htm", Visitor().login(back=back).headers["Location"])

    # Wrong passwords make the next try wait, whatever it is; the owner comes in after that. For a
    # minute, where three would do so for two seconds: the test may take longer than those.
    guesser = Visitor()
    says = [guesser.login("guess").marked() for _ in range(3)]
    check("wrong password", [["password"]] * 3, says)
    sql("create trigger sessions.minute after update on login_failure when new.failures = 3 begin update login_failure set failures = 9; end")
    sql("update login_failure set at = unixepoch()")
    check("even the right one", (422, True),
          (lambda a: (a.status, "Please wait" in a.text))(guesser.login()))
    sessions = sql("select count(*) from session")
    for failures, answered in ((9, 1), (0, 3)) + ((0, 3),) * 9:
        sql("delete from login_failure")
        sql("insert into login_failure select '127.0.0.1', ?, unixepoch() - 61", failures)
        with concurrent.futures.ThreadPoolExecutor(8) as pool:
            says = collections.Counter(pool.map(lambda _: Visitor().login("guess").text
                                                .count("password is wrong"), range(8)))
        check(f"many guesses at once after {failures}", answered, says[1])
    check("none has signed in", sessions, sql("select count(*) from session"))
    sql("update login_failure set at = unixepoch() - 61")
    owner = guesser
    check("the owner", 303, owner.login().status)
    check("forgotten", [], sql("select * from login_failure"))
    wait = "select count(*) from event where code = 'login' union all select count(*) from waiting_event where code = 'login'"
    check("a stranger's guesses are not in the log yet", [(0,), (34,)], sql(wait))
    owner.ask("overview.htm")
    check("they are one event", [(1,), (0,), (34,)],
          sql(wait + " union all select count from event where code = 'login'"))

    # What ends a session.
    for column, age in (("used", 901), ("started", 43201)):
        visitor = signed_in()
        number = sql("select max(number) from session")[0][0]
        sql(f"update session set {column} = unixepoch() - {age - 5} where number = ?", number)
        check(column + " before the end", 200, visitor.ask("overview.htm").status)
        sql(f"update session set {column} = unixepoch() - {age} where number = ?", number)
        check(column + " at the end", 403, visitor.ask("overview.htm").status)
    visitor = signed_in()
    sql("update session set used = unixepoch() - 800")
    visitor.ask("overview.htm", "GET", None, {"Sec-Fetch-Mode": "cors"})
    check("a script keeps no session", True,
          sql("select unixepoch() - used from session order by number desc")[0][0] > 700)
    other = signed_in()
    visitor.ask("overview.htm")
    old = dict(visitor.cookies)
    for fields, marked in ((("wrong", "new-password", "new-password"), ["old"]),
                           ((PASSWORD, "short", "short"), ["password"]),
                           ((PASSWORD, "new-password", "x"), ["repeat"])):
        answer = visitor.post("password.htm", dict(zip(("old", "password", "repeat"), fields),
                                                   token=visitor.token()))
        check(("password", fields), (422, marked), (answer.status, answer.marked()))
    change = {"old": PASSWORD, "password": "new-password", "repeat": "new-password"}
    old_token = visitor.token()
    third = signed_in()
    numbers = re.findall('name="session" value="([0-9]+)"', visitor.ask("password.htm").text)
    check("sessions are listed", sql("select count(*) from session join account using (password)")[0][0], len(numbers))
    answer = visitor.post("logout.htm", {"token": old_token, "session": numbers[0]})
    check("one is ended", (303, "password.htm", 403, 200), (answer.status, answer.headers["Location"],
          third.ask("overview.htm").status, visitor.ask("overview.htm").status))
    answer = visitor.post("password.htm", {**change, "token": old_token})
    check("password changed", (303, True),
          (answer.status, "has been changed" in visitor.ask("password.htm").text))
    check("others are out", [403, 403], [other.ask("overview.htm").status,
                                         Visitor().ask("overview.htm", "GET", None, {
                                             "Cookie": "zarnsession=" + old["zarnsession"]}).status])
    stored, second = sql("select password from account"), Visitor()
    for what, cookies, fields, status in (
            ("a second click", old, change, 303),
            ("a second click, late", visitor.cookies, {**change, "token": old_token}, 303),
            ("no session", {}, change, 403), ("an invented one", {"zarnsession": "0" * 32}, change, 403),
            ("another new one", old, {**change, "password": PASSWORD, "repeat": PASSWORD}, 403),
            ("no repeat", visitor.cookies, {**change, "repeat": "x"}, 422)):
        second.cookies = dict(cookies)
        answer = second.post("password.htm", {"token": old_token, **fields})
        said = "has been changed" in second.ask("password.htm").text
        check(what, (status, status == 303, stored, 200),
              (answer.status, said, sql("select password from account"), visitor.ask("overview.htm").status))
    check("one guess", [(1,)], sql("select failures from login_failure"))
    check("old password", 422, Visitor().login().status)
    again = {**visitor.cookies}, {"token": visitor.token()}
    answer = visitor.post("logout.htm", again[1])
    check("signed out", (303, 403), (answer.status, visitor.ask("overview.htm").status))
    visitor.cookies = again[0]
    for said in (answer, visitor.ask("logout.htm"), visitor.post("logout.htm", again[1])):
        check("the cookie goes", "zarnsession=; Path=/; Max-Age=0; HttpOnly; SameSite=Strict",
              said.headers["Set-Cookie"])
        visitor.cookies = again[0]
    check("signed out already", (200, {"back": "overview.htm", "method": "get"}, True),
          (said.status, said.hidden(), "You are signed out." in said.text))
    visitor.login("new-password")
    visitor.post("password.htm", {"old": "new-password", "password": PASSWORD, "repeat": PASSWORD,
                                  "token": visitor.token()})
    return visitor


def check_settings(visitor):
    wrong = [("hostname", "Fjord"), ("hostname", "-a"), ("hostname", "a" * 33), ("first", "0x1"),
             ("first", ""), ("last", "255"), ("last", "8"), ("lease", "169"), ("network", "7"), ("channel", "2"),
             ("security", ""), ("ssid", "\n"), ("ssid", "ä" * 17), ("ssid", ""),
             ("nameserver", "1.2.3"), ("nameserver", "1.2.3.256"), ("nameserver", "1.2.3.04"),
             ("passphrase", "1234567"), ("passphrase", "passwörter")]
    before = stored()
    box = ('role="alert">\n<h2>This did not work</h2>\n'
           "<p>Please look at the marked fields. Nothing has been saved.</p>\n</div>")
    for field, value in wrong:
        answer = visitor.save(**{field: value})
        check((field, value), (422, [field], value, True),
              (answer.status, answer.marked(), value if field in ("network", "channel", "security")
               else answer.value(field), box in answer.text and "<title>This did not work" in answer.text))
    check("nothing was stored", before, stored())
    events = sql("select count(*) from event")[0][0]
    version = revision()
    answer = visitor.save(guests="1", nameserver=" 192.0.2.1 ", passphrase="with blanks ~")
    check("saved", (303, "settings.htm"), (answer.status, answer.headers["Location"]))
    check("stored", ["new", "192.0.2.1", "0", "9", "99", "1", "\"a'<b>", "36", "wpa3", "with blanks ~",
                     "0", "1", "24"], stored()[:13])
    answer = visitor.save(guests="1", nameserver=" 192.0.2.1 ", passphrase="with blanks ~", version=version)
    check("a second click", (303, version + 1), (answer.status, revision()))
    visitor.ask("settings.htm", "HEAD")  # nobody has seen the message by that
    page = visitor.ask("settings.htm")
    check("told once", [1, 0], [page.text.count("have been saved"),
                                visitor.ask("settings.htm?saved=1").text.count("have been saved")])
    check("the passphrase is hidden", False, "with blanks" in page.text)
    for _ in range(5):
        visitor.save(guests="1", passphrase="with blanks ~")  # no change
        visitor.save(passphrase="with blanks ~")
        visitor.save(guests="1", passphrase="with blanks ~")
    check("changes are counted", [(events + 1,), (11,)],
          sql("select count(*) from event union all select count from event where code = 'changed'"))
    sql("create trigger sessions.full before update on session begin select raise(fail, 'full'); end")
    answer = visitor.ask("overview.htm")  # with a flash that cannot be taken off
    check("shown elsewhere, on a full disk", (200, True),
          (answer.status, "&quot;a'&lt;b&gt;" in answer.text))
    sql("drop trigger sessions.full")

    # What was typed comes back: asked to show the passphrase, in another language, when
    # another tab was faster, when the session is another or has ended.
    typed = {**FORM, "ssid": "typed & kept", "hidden": "1",
             "version": revision()}
    token = visitor.token()
    for what, fields, status, text in (
            ("passphrase", {"reveal": "1"}, 200, 'value="with blanks ~"'),
            ("language", {"lang": "de"}, 200, "Einstellungen"),
            ("language of an error", {"lang": "de", "first": "x"}, 422, "Diese Nummer"),
            ("version", {"version": "1"}, 422, "changed from elsewhere"),
            ("token", {"token": "0" * 32}, 403, "too old")):
        visitor.cookies["zarnlang"] = "en"
        answer = visitor.post("settings.htm", {"token": token, **typed, **fields})
        check(what, (status, True, "typed & kept", True), (
            answer.status, text in answer.text, answer.value("ssid"),
            bool(re.search('name="hidden"[^>]* checked', answer.text))))
    visitor.cookies["zarnlang"] = "en"
    sql("delete from session")
    answer = visitor.post("settings.htm", {"token": token, **typed, "ssid": 'a"\'<&\r\nb'})
    check("asked to sign in", (403, "Sign in"), (answer.status, answer.heading))
    answer = visitor.post("login.htm", {**answer.hidden(), "password": "wrong"})
    check("wrong password", (422, ["password"]), (answer.status, answer.marked()))
    answer = visitor.post("login.htm", {**answer.hidden(), "password": PASSWORD})
    check("typed values after that", (200, 'a"\'<&\r\nb', True),
          (answer.status, answer.value("ssid"), "Nothing has been saved yet" in answer.text))
    answer = visitor.post("settings.htm", {"token": answer.value("token"), **typed,
                                           "version": revision()})
    check("and saved at last", 303, answer.status)

    # What the login page keeps never makes of signing in what it is for another page, and a
    # link fills no form.
    sql("delete from session")
    rows = [("POST", "settings.htm", {**typed, "reveal": "1"}, 200, 'value="with blanks ~"'),
            ("POST", "password.htm", {"old": PASSWORD, "password": "x"}, 200, "<h1>Password"),
            ("GET", "settings.htm?reveal=1", {}, 303, "settings.htm?reveal=1"),
            ("GET", "login.htm?back=settings.htm&method=post&ssid=evil&reveal=1", {}, 303, "overview.htm")]
    for method, path, fields, status, text in rows:
        owner = Visitor()
        kept = (owner.post(path, fields) if method == "POST" else owner.ask(path)).hidden()
        owner.cookies["zarnlang"] = "en"
        answer = owner.post("login.htm", {**kept, "password": PASSWORD, "lang": "de"})
        check("no try: " + path, (200, kept, "Anmelden", None),
              (answer.status, answer.hidden(), answer.heading, owner.cookies.get("zarnsession")))
        owner.cookies["zarnlang"] = "en"
        answer = owner.post("login.htm", {**kept, "password": PASSWORD})
        check("signs in: " + path, (status, True, False),
              (answer.status, text in answer.text + str(answer.headers["Location"]), PASSWORD in str(kept)))
    check("and no passphrase by a link", "", owner.ask("settings.htm?reveal=1").value("passphrase"))
    visitor.login()

    # Who renames the device goes on where it was visited, and is told the new name.
    renamer = Visitor()
    name = f"{stored('hostname')[0]}.lan:{ORIGIN.rsplit(':', 1)[1]}"
    renamer.headers = {"Origin": "http://" + name, "Host": name}
    check("renamed, twice", [303] * 4, [renamer.login().status, renamer.save(hostname="cellar").status,
          renamer.save().status, renamer.post("logout.htm", {"token": renamer.token()}).status])
    visitor.save(hostname="cellar", ssid="typed & kept")
    check("the new name", True, f'href="//cellar.lan:{name.rsplit(":", 1)[1]}/"' in visitor.ask("settings.htm").text)

    # Backup and restore, all or nothing.
    def keep(password=PASSWORD, **more):
        return visitor.post("backup.htm", {"token": visitor.token(), "keep": "1", "password": password, **more})
    answer = keep("wrong", secrets="1")
    check("a backup for nobody", (422, ["password"]), (answer.status, answer.marked()))
    check("no secrets", ([], True), (re.findall("with blanks|passphrase", keep().text), "typed & kept" in keep().text))
    backup = keep(secrets="1")
    good = json.loads(backup.text)
    check("backup", ("typed & kept", "with blanks ~", "Fjord R4", 'attachment; filename="settings.json"'),
          (good["ssid"], good["passphrase"], good["kind"], backup.headers["Content-Disposition"]))
    check("for which there is a file type", "application/json", backup.headers["Content-Type"])

    def restore(text):
        parts = {"token": visitor.token(), "file": text}
        body = "".join(f'--b\r\nContent-Disposition: form-data; name="{name}"; filename="x"\r\n'
                       f'\r\n{value}\r\n' for name, value in parts.items()) + "--b--\r\n"
        return visitor.ask("backup.htm", "POST", body.encode(),
                           {"Content-Type": "multipart/form-data; boundary=b; charset=UTF-8"})
    before = stored()
    for text in ("", "{", "[]", '"x"', '{"kind": "Fjord R3"}', json.dumps({**good, "channel": 2}),
                 json.dumps({**good, "hostname": "x", "guests": 2}),
                 *(json.dumps({**good, "hostname": "x", "fixed": wrong}) for wrong in (
                     ["a"], [["02:00:5e:10:00:05", "5"]], [["02:00:5e:10:00:05", 5], ["02:00:5e:10:00:06", 5]],
                     [["02:00:5e:10:00:05", 50]], [["x", 5]])),
                 json.dumps({**good, "hostname": "x", "ssid": ["a"], "hidden": None})):
        answer = restore(text)
        check("restore " + text, (422, ["file"]), (answer.status, answer.marked()))
    for size, by in ((20000, "file"), (2 << 20, "router")):
        answer = restore("x" * size)
        check(("too large", by), (413, True, ["file"] if by == "file" else [], True), (
            answer.status, by in answer.text, answer.marked(), "default-src 'none'" in answer.text + str(answer.headers)))
    check("nothing is restored", before, stored())
    check("restored", (303, ["attic", "~" * 63]),
          (restore(json.dumps({**good, "hostname": "attic", "passphrase": "~" * 63})).status,
           stored("hostname", "passphrase")))
    restore(json.dumps({**good, "fixed": good["fixed"][:1]}))
    check("the list is restored", ([["02:00:5e:10:00:05", 5], ["02:00:5e:10:00:06", 6]], [("02:00:5e:10:00:05", 5)]),
          (good["fixed"], sql("select mac, host from fixed")))
    restore(json.dumps({**good, "passphrase": "~" * 63}))
    old = {name: good[name] for name in ("kind", "ssid", "first")}
    check("an older file, marked", (303, ["fjord", "30", "~" * 63, "24"]),
          (restore("\ufeff" + json.dumps({**old, "first": 30})).status, stored("hostname", "first", "passphrase", "lease")))
    events = {row[0]: row[1] for row in sql("select code, detail from event union all select code, detail from waiting_event")}
    check("who has done what", {"127.0.0.1"}, {events[code] for code in ("login", "signin", "signout", "backup", "restored")})
    table = visitor.ask("events.csv?level=info&source=devices").text.splitlines()
    check("events to keep", (4, '"Information","Devices","New device","<b>""&\' (Guests)","1"'),
          (len(table), table[1].split(",", 1)[1]))
    visitor.post("reboot.htm", {"token": visitor.token()})
    page = visitor.ask("reboot.htm").text
    check("restart", (True, True), ("goes on by itself" in page, 'http-equiv="refresh"' in page))
    sql("update status set started = unixepoch()")
    check("restarted", True, "0 days, 0 hours, 0 minutes" in visitor.ask("overview.htm").text)


def check_list(visitor):
    """The list that is edited row by row, in two windows and by second clicks; and the way back to
    the factory's settings."""
    mac, free = "02:00:5e:10:00:05", "02:00:5E:99:00:01 "
    def send(**fields):
        return visitor.post("addresses.htm", {"token": visitor.token(), "id": "", "was": "", **fields})
    def rows():
        return sql("select mac, host from fixed order by host")
    before = rows()
    number = sql("select id from fixed where mac = ?", mac)[0][0]
    was = {"id": number, "was": mac + " 5"}
    for fields, wrong in (({"mac": "02:00:5e:10:00", "host": "7"}, "mac"), ({"mac": "02-00-5e-10-00-05", "host": "7"}, "mac"),
                          ({"mac": mac, "host": "7"}, "mac"), ({"mac": free, "host": "5"}, "host"), ({"mac": free}, "host"),
                          ({"mac": free, "host": "30"}, "host"), ({"mac": free, "host": "255"}, "host"),
                          ({**was, "mac": mac, "host": "6"}, "host"), ({**was, "mac": "02:00:5e:10:00:06", "host": "5"}, "mac"),
                          ({**was, "was": mac + " 4", "mac": free, "host": "5"}, "changed from elsewhere"),
                          ({**was, "id": "99", "mac": free, "host": "9"}, "changed from elsewhere")):
        answer = send(**fields)
        check(fields, (422, True, before), (answer.status, wrong in answer.marked() or wrong in answer.text, rows()))
    for what, fields, left in (("add", {"mac": free, "host": "7"}, before + [(free.strip().lower(), 7)]),
                               ("change", {**was, "mac": mac, "host": "8"}, [before[1], (free.strip().lower(), 7), (mac, 8)]),
                               ("delete", {"delete": number}, [before[1], (free.strip().lower(), 7)])):
        check((what, "twice"), [(303, left)] * 2, [(send(**fields).status, rows()) for _ in range(2)])
    check("settings meet the list", ["first"], visitor.save(first="6").marked())
    sql("update setting set stored = '0' where name = 'guests'")
    check("no guests, none online", [(0, 0)], sql("select enabled, cast(online as integer) from network_list where name = 'Guests'"))
    reset = {"token": visitor.token(), "factory": "1"}
    check("no reset for nobody", ["password"], visitor.post("reboot.htm", {**reset, "password": "wrong"}).marked())
    visitor.post("reboot.htm", {**reset, "password": PASSWORD})
    check("as from the factory", (403, True, [(None, 0, 0)]), (
        visitor.ask("overview.htm").status, "choose a password" in visitor.ask("").text,
        sql("select password, (select count(*) from fixed), (select count(stored) from setting) from account")))
    check("and begun anew", 303, visitor.login().status)
    sql("update status set started = unixepoch()")


def check_direct(work):
    os.mkdir(work + "/root")
    with open(work + "/out.htm", "w", encoding="utf-8") as file:
        file.write("secret")
    root = {"ZARN_DOCROOT": work + "/root"}
    os.symlink("../out.htm", root["ZARN_DOCROOT"] + "/link.htm")
    post = {"REQUEST_METHOD": "POST"}
    rows = [(404, b"", {"PATH_INFO": path})
            for path in ("/../site/login.htm", "/./login.htm", "/login.htm/", "/..", "//login.htm")]
    rows += [
        (500, b"", {**root, "PATH_INFO": "/link.htm"}),  # there is no error page in that root
        (400, b"a=b", {**post, "CONTENT_LENGTH": "9"}),
        (400, b"a=b", {**post, "CONTENT_LENGTH": "-1"}),
        (413, b"", {**post, "CONTENT_LENGTH": "9" * 20}),
        (422, b"a=b&[", {**post, "CONTENT_LENGTH": "3"}),
        (403, b"a=b", {**post, "HTTP_HOST": ""}),
        (403, b"a=b", {**post, "HTTP_HOST": "a b", "HTTP_ORIGIN": "http://a b"}),
        (403, b"a=b", {**post, "HTTP_HOST": "[::1]x", "HTTP_ORIGIN": "http://[::1]x"}),
        (422, b"a=b", {**post, "HTTP_HOST": "[::1]:80", "HTTP_ORIGIN": "http://[::1]:80"}),
        *((422, b"a=b", {**post, "HTTP_HOST": name, "HTTP_ORIGIN": "http://" + name})
          for name in ("safe.lan", "safe.local", "safe.lan.", "safe:8080")),
        (403, b"a=b", {**post, "HTTP_HOST": "safe.lan:80x", "HTTP_ORIGIN": "http://safe.lan:80x"}),
        (422, b"a=b", {**post, "HTTP_HOST": "r4", "HTTP_ORIGIN": "http://r4", "ZARN_NAMES": "x r4"}),
        *((400, b"", {"QUERY_STRING": "a=" + end}) for end in ("%z4", "%4z", "%4", "%")),
        (404, b"", {"PATH_INFO": "/nothere.htm"}),
        (415, b"{}", {**post, "CONTENT_LENGTH": "2", "CONTENT_TYPE": "text/json"}),
        (405, b"", {"REQUEST_METHOD": "GET X"}),
        (500, b"", {"ZARN_DB": "/nothere/x"}),
        (500, b"", {"ZARN_DB": ""}),
        (200, b"", {"QUERY_STRING": "lang=de%0D%0AX-Evil:1", "HTTP_COOKIE": "zarnlang=a\r\nX-Evil:1"}),
    ]
    for status, body, more in rows:
        sql("delete from login_failure")
        answer = run_zarn(ZARN, body, **more).communicate(body)[0].decode()
        lacking = [name for name, value in HEADERS.items() if f"{name}: {value}\r\n" not in answer and name != "Content-Type"]
        check(more, (f"Status: {status} {REASONS[str(status)]}", False, []),
              (answer.splitlines()[0], "\r\nX-Evil" in answer, lacking))


def check_proxy(work):
    """HTTPS in front: the cookie is for HTTPS alone, and an address of HTTP is another's."""
    port = int(ORIGIN.rsplit(":", 1)[1]) + 1
    subprocess.run(["openssl", "req", "-x509", "-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:P-256",
                    "-nodes", "-subj", "/CN=127.0.0.1", "-addext", "subjectAltName=IP:127.0.0.1",
                    "-keyout", work + "/key", "-out", work + "/cert"], check=True,
                   stderr=subprocess.DEVNULL)
    with open(work + "/proxy.conf", "w", encoding="utf-8") as file:
        file.write(f'''server.modules = ("mod_openssl", "mod_proxy")
server.bind = "127.0.0.1"
server.port = {port}
server.document-root = "{work}"
ssl.engine = "enable"
ssl.pemfile = "{work}/cert"
ssl.privkey = "{work}/key"
proxy.server = ("" => (("host" => "127.0.0.1", "port" => {port - 1})))
''')
    program = shutil.which("lighttpd", path=os.environ["PATH"] + ":/usr/sbin")
    with open(work + "/log", "w") as log, subprocess.Popen(
            [program, "-D", "-f", work + "/proxy.conf"], stderr=log) as proxy:
        try:
            visitor = Visitor(f"https://127.0.0.1:{port}", ssl.create_default_context(cafile=work + "/cert"))
            for _ in range(100):
                try:
                    visitor.ask("login.htm")
                    break
                except ConnectionRefusedError:
                    time.sleep(0.05)
            answer = visitor.login()
            check("HTTPS", (303, True), (answer.status, answer.headers["Set-Cookie"].endswith("; Secure")))
            check("saved by HTTPS", 303, visitor.save(hostname="safe").status)
            visitor.headers["Origin"] = visitor.origin.replace("https", "http")
            check("HTTP's page is another's", 403, visitor.save(hostname="evil").status)
        finally:
            proxy.terminate()


def check_load(visitor):
    def fetch(page):
        return visitor.ask(page + ".htm").text.endswith("</html>\n\n")
    pages = ["overview", "devices", "traffic", "events", "settings"] * 20
    with concurrent.futures.ThreadPoolExecutor(8) as pool:
        check("many at a time", 100, sum(pool.map(fetch, pages)))


def check_log():
    with open(LOG, encoding="utf-8") as log:
        logged = log.read()
    check("the log has no form", [], re.findall(
        rf"{PASSWORD}|zarnsession|typed( |\+)(&|%26)|with( |\+)blanks", logged))
    check("no sanitizer complains", [], COMPLAINT.findall(logged))


with tempfile.TemporaryDirectory() as folder:
    try:
        owner = check_login()
        check_requests(owner)
        check_attacks(owner)
        check_settings(owner)
        check_list(owner)
        check_proxy(folder)
        check_load(owner)
        check_direct(folder)
    finally:
        check_log()
sys.exit(bool(failed))
