#!/usr/bin/python3
"""tests/web/trouble.py ZARN - the web program where clocks jump and calls fail. Runs under
scripts/serve.sh for its data; the program answers without the web server."""
import collections, concurrent.futures, contextlib, fcntl, os, shutil, sqlite3, subprocess, sys, tempfile, time
from visitor import *

ZARN = sys.argv[1]


def at(second):
    """The program with a clock that stands still: what the test takes does not count."""
    return f"env FAKETIME_FMT=%s faketime -f {second} {ZARN}"


def tries(program, *passwords):
    visitor = Direct(program)
    return [visitor.login(password).status for password in passwords]


def check_waits():
    """How long the next try must wait after each."""
    def guess(second):
        return Direct(at(second)).login("guess").text
    second = 2 ** 31
    for failures, wait in enumerate([0, 0, 0, 2, 4, 8, 16, 32] + [60] * 9):
        if wait:
            check((failures, wait - 1), True, "Please wait" in guess(second + wait - 1))
        second += wait
        check((failures, wait), True, "password is wrong" in guess(second))
    sql("delete from login_failure")


def check_clocks():
    """Times that lie ahead are void. What is done by a clock, and when it has jumped."""
    now, day = int(time.time()), 86400
    for what, first, jump, page, signs_in in (
            ("no jump", now, 0, 200, 422), ("a second", now, 1, 200, 422), ("a minute", now, 61, 200, 303),
            ("the end", now, 901, 403, 303), ("a clock that was ahead", now + day, -day, 403, 303),
            ("a clock set back", now, -3600, 403, 303), ("back to 1970", now, -20000 * day, 403, 303)):
        visitor = Direct(at(first))
        visitor.login()
        visitor.program = at(first + jump)
        check("a session, " + what, page, visitor.ask("overview.htm").status)
        check("wrong, " + what, [422] * 4, tries(at(first), *["guess"] * 4))
        check("a wait, " + what, [signs_in], tries(at(first + jump), PASSWORD))
        sql("delete from login_failure")
    visitor = Direct(at(now + day))
    visitor.login()
    visitor.post("reboot.htm", {"token": visitor.token()})
    visitor = Direct(ZARN)
    visitor.login()
    check("a restart that lies ahead", "token", [*visitor.ask("reboot.htm").hidden()][0])


def check_hashes():
    """Without memory or randomness nobody is told a lie, and nothing is counted."""
    owner = Direct(ZARN)
    owner.login()
    change = {"old": PASSWORD, "password": "new-password", "repeat": "new-password",
              "token": owner.token()}
    def state():
        return sql("select password from account"), sql("select sum(count) from event where code = 'login'")
    got = collections.Counter()
    limits = [f"prlimit --as={size << 20} {ZARN}" for size in range(4, 99, 2)]
    for program in [f"strace -qq -o /dev/null -e inject=getrandom:error=EAGAIN:when=2+ {ZARN}", *limits]:
        before = state()
        stranger, owner.program = Direct(program), program
        status = stranger.login().status
        if status == 303:
            break  # there is enough memory
        told = "zarn: " in stranger.log
        sql("update account set password = null")
        first = stranger.login().status
        sql("update account set password = ?", before[0][0][0])
        changed = owner.post("password.htm", change).status
        got[status] += 1
        # Where there is too little for the program itself, the web server says so.
        check(program, ({0, 500, 503}, before, True), (
            {0, 500, 503, status, first, changed}, state(), told or status != 503))
    check("some memory, but not enough", True, got[503] > 3)
    check("enough", 303, status)
    check("nothing is counted", [303], tries(ZARN, PASSWORD))
    for length in (511, 512, 2048):  # of which some are too long to be hashed
        check(f"{length} characters", [422], tries(ZARN, "a" * length))
    sql("delete from login_failure")


def check_turns():
    """Two passwords are looked at at a time. Who gets no turn is not told a lie."""
    guesser, owner = Direct(ZARN), Direct(ZARN)
    guesser.login("guess")
    with open(SESSIONS + "-turns", "r+b") as turns:
        fcntl.lockf(turns, fcntl.LOCK_EX, 1, 0)
        check("one is left", 303, owner.login().status)
        fcntl.lockf(turns, fcntl.LOCK_EX, 1, 1)
        check("none is left", (503, True, 200), (
            guesser.login("guess").status, "zarn: a statement has failed: too many passwords are looked at\n" in guesser.log,
            owner.ask("overview.htm").status))
    check("again", 303, owner.login().status)
    with concurrent.futures.ThreadPoolExecutor(16) as pool:
        got = collections.Counter(pool.map(lambda _: Direct(ZARN).login("guess").status, range(60)))
        check("many strangers", {422: 60}, dict(got))
    sql("delete from login_failure")


def check_scripts(work):
    """What a script says of which a part is missing is not what it would have said."""
    before = stored()
    site = os.path.realpath(os.path.dirname(__file__) + "/../../examples/site")
    owner = Direct(ZARN)
    owner.login()
    token = owner.token()
    for name, call in (("settings.sql", "openat:error=EACCES"), ("settings.sql", "read:error=EIO:when=1"),
                       ("settings.sql", "read:error=EIO:when=2"), ("candidate.sql", "openat:error=ENOENT"),
                       ("candidate.sql", "read:error=EIO:when=2")):
        owner.program = f"strace -qq -o /dev/null -P {site}/{name} -e inject={call} {ZARN}"
        answer = owner.post("settings.htm", {"token": token, **FORM, "version": revision()})
        check((name, call), (503, True, True, before), (
            answer.status, "nothing has been changed" in answer.text,
            f"zarn: cannot read file '{name}': " in owner.log, stored()))
    # Calls that fail: the program, the page, the status, and the line that names what failed.
    with open(work + "/full", "w", encoding="utf-8") as file:
        file.write(f"exec {ZARN} >/dev/full")
    fail = "strace -qq -o /dev/null -e inject="
    for program, page, status, said in (
            (f"{fail}openat:error=EMFILE -P {site}/events.htm {ZARN}", "events.htm", 500, "zarn: cannot open template 'events.htm': Too many open files\n"),
            (f"{fail}openat:error=EMFILE:when=1 -P {site}/footer.frm {ZARN}", "settings.htm", 500, "zarn: the page settings.htm cannot be made (0)\n"),
            (f"env -u ZARN_SESSIONS {fail}/mkdir:error=EACCES {ZARN}", "login.htm", 500, f"zarn: cannot use /tmp/zarn-{os.geteuid()}/sessions.db: Permission denied\n"),
            *((f"{fail}getrandom:error=ENOSYS:when={first}+2 {ZARN}", "logout.htm", 503, "zarn: there is no randomness: Function not implemented\n") for first in (1, 2)),
            (f"sh {work}/full", "devices.htm", 0, "zarn: the page devices.htm was not sent whole: No space left on device\n")):
        owner.program = program
        answer = owner.post(page, {"token": token}) if status == 503 else owner.ask(page)
        check(said, (status, True, True), (answer.status, said in owner.log,
                                           status != 500 or "cannot make this page" in answer.text))
    # A save reaches the device by a program; what it does not do is told, and tried again.
    for what, script, said in (
            ("applied", "sed -n 's/^hostname=/name: /p'; exit 0", "have been saved. From now on the router is called <bdi>name: h0 </bdi>"),
            ("refused", "printf '<no>\\0more\\n'; exit 1", "does not follow them yet: <bdi>&lt;no&gt; more </bdi>"),
            ("tried again", "cat", "<bdi>hostname=h1 ssid=again </bdi>"), ("only what is new", "cat", "<bdi>channel=6 </bdi>"),
            ("too long", "sleep 99 & echo wait; wait", "yet: <bdi>wait </bdi>"), ("none", None, "does not follow them yet")):
        owner = Direct(ZARN, ZARN_APPLY=work + "/apply")
        if not script:
            os.remove(work + "/apply")
        owner.login()  # which tries again what is left to do
        if script:
            with open(work + "/apply", "w", encoding="utf-8") as file:
                os.fchmod(file.fileno(), 0o700)
                file.write("#!/bin/sh\n" + script)
        number, began = {"applied": 0}.get(what, 1), time.monotonic()
        answer = owner.save(hostname=f"h{number}", **({"ssid": "again"} if what not in ("applied", "refused") else {}),
                            **({"channel": "6"} if what == "only what is new" else {"lease": "5"} if what in ("too long", "none") else {}))
        check(what + ", in time", True, time.monotonic() - began < 60)
        check(what + ", in the log", what in ("refused", "too long"),
              re.search("apply has failed, or took longer than [0-9]+ seconds: ", owner.log) is not None)
        page = owner.ask("settings.htm").text
        check(what, (303, True), (answer.status, said in page or re.findall("saved.*|yet.*", page)))
    # So does a password, as its hash, which stands in no argument and no environment; once, at a second click.
    with open(work + "/apply", "w", encoding="utf-8") as file:
        file.write(f"#!/bin/sh\nsleep 0.5; echo $# $(env | grep -c -F '$y$') >>{work}/runs; cat >>{work}/runs")
    os.chmod(work + "/apply", 0o700)
    owner = Direct(ZARN, ZARN_APPLY=work + "/apply")
    owner.login()
    os.truncate(work + "/runs", 0)  # of what the removed program has left
    changed = "select sum(count) from event where code = 'newpassword'"
    before = sql(changed)[0][0]
    change = {"old": PASSWORD, "password": "new-password", "repeat": "new-password", "token": owner.token()}
    second = Direct(ZARN, ZARN_APPLY=work + "/apply")
    second.cookies.update(owner.cookies)
    with concurrent.futures.ThreadPoolExecutor(2) as pool:
        check("two clicks", [303] * 2, [*pool.map(lambda click: click.post("password.htm", change).status, (owner, second))])
    stored_hash, applied = sql("select password, applied from account")[0]
    with open(work + "/runs", encoding="utf-8") as file:
        check("the password's hash", f"0 0\npassword={stored_hash}\n", file.read())
    check("applied", (stored_hash, before + 1), (applied, sql(changed)[0][0]))
    owner.post("password.htm", {**change, "old": "new-password", "password": PASSWORD, "repeat": PASSWORD, "token": owner.token()})
    subprocess.run(f"cp -r {site} {work}/wrong; sed -i 's/<table/<?oops?>&/' {work}/wrong/login.htm"
                   f"; for i in $(seq 99); do echo '<?oops?>'; done >>{work}/wrong/login.htm", shell=True, check=True)
    logs = [visitor.ask("login.htm") and visitor.log for visitor in (Direct(ZARN, ZARN_DOCROOT=work + "/wrong"), Direct(ZARN, ZARN_LOG="0"))]
    check("problems alone, some KiB at most; or all", (True, [False, True], True), (
        "zarn: login.htm, line " in logs[0], ["Real Time" in log for log in logs], 999 < len(logs[0]) < 4096))


def check_calls(work):
    """Each call of a page and of a save fails in turn. Nothing crashes; what is not as without the
    failure is told in the log; a page is whole, and what is said to be saved is, and nothing else."""
    owner, met = Direct(ZARN), collections.Counter()
    owner.login()
    token = owner.token()
    sql("drop view clock")  # by which devices come and go, each ten minutes
    sql("create view clock as select 0 as now, 0 as span, 0 as hour, 0 as day, 0.5 as day_part")
    def ask(saves, call=""):
        sql("update setting set stored = 'old' where name = 'hostname'")
        sql("update session set flash = ''")
        owner.program = f"strace -o {work}/trace {call} {ZARN}"
        answer = (owner.post("settings.htm", {**FORM, "token": token, "version": revision()}) if saves
                  else owner.ask("devices.htm"))
        return answer.status, re.sub('[0-9]+|base64,[^"]*', "", answer.text), stored("hostname")[0]
    for saves in (False, True):
        ask(saves)
        expected = ask(saves)
        with open(work + "/trace", encoding="utf-8", errors="replace") as trace:
            made = [line.partition("(")[0] for line in trace]
        loaded = made[:made.index("prlimit64")]  # the loader's own
        check("the folder is synced, too", saves, "unlink openat fdatasync" in " ".join(made))
        for calls, error in (("openat", "EMFILE"), ("memfd_create", "EMFILE"), ("read", "EIO"), ("pread64", "EIO"),
                             ("write", "ENOSPC"), ("pwrite64", "ENOSPC"), ("fdatasync", "EIO"), ("brk,mmap", "ENOMEM+")):
            first, behind = (sum(all_.count(call) for call in calls.split(",")) + 1 for all_ in (loaded, made))
            for nth in range(first, behind):
                got = ask(saves, f"-f --seccomp-bpf -etrace={calls} -einject={calls}:error={error.strip('+')}:when={nth}{'+' * error.endswith('+')}")
                met[calls] += 1
                # Of headers alone a web server makes its 500; a template that is not mapped is the log's.
                cut = re.search("not sent whole|mmap[(][)] on file", owner.log)
                # Where no page can be made, and where the folder is not synced, no more can be known.
                sound = ["new"] if got[0] == 303 else ["old"] + ["new"] * (got[0] in (0, 500) or calls == "fdatasync")
                check((saves, calls, nth), (True, True, True, True), (
                    owner.code in (0, 1), got == expected or "zarn: " in owner.log,
                    got[0] != 200 or got[1] == expected[1] or cut is not None, got[2] in sound))
    sql("update setting set stored = 'old' where name = 'hostname'")
    # The database is free while a slow browser takes the page.
    page = run_zarn(ZARN, pipesize=4096, HTTP_COOKIE="zarnsession=" + owner.cookies["zarnsession"], PATH_INFO="/devices.htm")
    text = os.read(page.stdout.fileno(), 1)  # no more: the second half would find room
    with contextlib.closing(sqlite3.connect(DB, timeout=0)) as db:
        db.execute("update setting set stored = 'slow' where name = 'hostname'")
        check("while it is sent", (None, None), (db.commit(), page.poll()))
    check("and whole", True, (text + page.communicate()[0]).decode().endswith("</html>\n\n"))
    check("calls", True, len(met) == 8 and sum(met.values()) > 150)


def check_folders(work):
    """The sessions are in a folder that nobody else has a hand in, or nowhere. What is made of
    the folders out/in, and what the log says of it."""
    def in_it(change):
        return f"mkdir -m 700 out/in; {change}"
    rows = [
        ("", ""), (in_it(""), ""), (in_it("chmod 1777 out"), ""), (in_it(": >out/in/sessions.db; chmod 600 out/in/*"), ""),
        (in_it("chmod 777 out"), "the folder around it lets others"),
        (in_it("chmod 755 out/in"), "other users may use it"),
        ("mkdir -m 700 x; ln -s ../x out/in", "Not a directory"),
        (": >out/in", "Not a directory"), ("rmdir out", "No such file"),
        (in_it(": >x; chmod 600 x; ln -s ../../x out/in/sessions.db"), "Too many levels of symbolic links"),
        (in_it(": >x; chmod 600 x; ln x out/in/sessions.db"), "it is something else"),
        (in_it("mkfifo -m 600 out/in/sessions.db"), "it is something else"),
        (in_it(": >out/in/sessions.db; chmod 644 out/in/*"), "other users may use it")]
    if os.geteuid() == 0:
        rows += [(in_it("chown 12345 out/in"), "it is another user's"),
                 (in_it("chown 12345 out; chmod 1777 out"), "the folder around it is another user's"),
                 (in_it(": >out/in/sessions.db; chmod 600 out/in/*; chown 12345 out/in/*"), "it is another user's")]
    for number, (made, problem) in enumerate(rows):
        folder = f"{work}/folder{number}"
        subprocess.run(f"umask 022; mkdir -p {folder}/out; cd {folder}; {made}", shell=True, check=True)
        visitor = Direct(ZARN, ZARN_SESSIONS=f"{folder}/out/in/")
        check(made, (500 if problem else 303, True), (visitor.login().status, not problem or f"zarn: cannot use {folder}/out/in/sessions.db: {problem}" in visitor.log))
        if not problem:
            check(made, ["700", "600"], [f"{os.stat(folder + '/out/in' + name).st_mode & 0o777:o}"
                                         for name in ("", "/sessions.db")])
    with concurrent.futures.ThreadPoolExecutor(8) as pool:  # all at once make it
        env = {"ZARN_SESSIONS": work + "/together"}
        statuses = pool.map(lambda _: Direct(ZARN, **env).ask("overview.htm").status, range(24))
        check("the first request of many", [403] * 24, [*statuses])


def check_versions(work):
    """A database of the first version is carried to the last by one of many requests, whole or not
    at all; what a script leaves undone, and a newer one, are named. An empty file is a database."""
    site = os.path.realpath(os.path.dirname(__file__) + "/../../examples/site")
    copy, old, name = work + "/site", work + "/old.db", work + "/router.db"
    last = len([script for script in os.listdir(site) if script.startswith("database-")])
    subprocess.run(f"cp -r {site} {copy}; sqlite3 {old} <{site}/database-01.sql", shell=True, check=True)
    def query(text):
        with contextlib.closing(sqlite3.connect(name, isolation_level=None)) as db:
            return db.execute(text).fetchall()
    def state():
        return query("pragma user_version") + query("select count(stored), count(*) > 12 from setting")
    def start(program=ZARN, **env):
        visitor = Direct(program, ZARN_DB=name, ZARN_SESSIONS=work + "/upgraded", ZARN_DOCROOT=copy, **env)
        return visitor.ask("overview.htm").status, visitor.log if "zarn: " in visitor.log else ""
    def renew():
        subprocess.run(["cp", old, name], check=True)
        query("update setting set stored = 'attic' where name = 'hostname'")
    renew()
    before, after = state(), [(last,), (1, 1)]
    check("the first version", [(1,), (1, 0)], before)
    with concurrent.futures.ThreadPoolExecutor(8) as pool:
        check("many at once", {(403, "")}, set(pool.map(lambda _: start(), range(24))))
    check("the last version", after, state())
    for number in range(1, 99):
        renew()
        killed = start(f"strace -qq -o /dev/null -e inject=pwrite64:signal=KILL:when={number} {ZARN}")[0] == 0
        check("killed", True, state() in (before, after))
        check("and again", (403, after), (start()[0], state()))
        if not killed:
            break
    check("kills", True, number > 4)
    for what, script, said in (("a mistake", "update setting set stored = 'x'; create x;", 'zarn: a statement has failed: near "x": syntax error\n'),
                               ("no number", "select 1 where 0;", f"zarn: the scripts behind version {last} lead to no other\n")):
        with open(f"{copy}/database-{last + 1:02}.sql", "w", encoding="utf-8") as file:
            file.write(script)
        check(what, (500, True, after), (lambda a: (a[0], said in a[1], state()))(start()))
    os.remove(file.name)
    query("pragma user_version = 77")
    check("a newer one", (500, True), (lambda a: (a[0], "zarn: the database is of version 77, of a newer program\n" in a[1]))(start()))
    # What is missing or locked: a page in the site's look all the same, in a language that is there.
    root = work + "/texts"
    os.makedirs(root + "/etc")
    shutil.copy(os.path.join(os.path.dirname(DB), "root", "etc", "htmltext_de.db"), root + "/etc")
    with contextlib.closing(sqlite3.connect(work + "/locked", isolation_level=None)) as locked:
        locked.execute("begin exclusive")
        for env, status, said, logged in (
                ({"ZARN_DB": name}, 500, "by a newer firmware", "zarn: the database is of version 77, of a newer program\n"),
                ({"ZARN_DB": "/nothere/x"}, 500, "cannot make this page", "zarn: cannot use the database: unable to open database file\n"),
                ({"ZARN_DB": ""}, 500, "cannot make this page", "zarn: no database is named\n"),
                ({"ZARN_DB": work + "/locked"}, 500, "cannot make this page", "zarn: cannot use the database: database is locked\n"),
                ({"ZARN_ROOT": root}, 403, "<h1>Anmelden", ""),
                ({"ZARN_ROOT": work}, 500, "kann diese Anfrage", "zarn: there are no texts in any language\n")):
            visitor = Direct(ZARN, **env)
            answer = visitor.ask("a/b.htm" if status == 500 else "overview.htm")
            check(env, (status, True, True, "text/html; charset=utf-8", logged), (
                answer.status, said in answer.text, "style.css" in answer.text, answer.headers["Content-Type"], visitor.log))
    for make in ("", f": >{name}"):
        subprocess.run(f"rm {name}; {make}", shell=True, check=True)
        check("none", (403, "", [(last,), (0, 1)]), (*start(), state()))


def check_disks(work):
    """With the settings' disk full or read-only the owner signs in, looks and signs out, nothing
    is saved, and nothing is said to be."""
    disk = work + "/disk"
    os.mkdir(disk)
    def run(script):
        subprocess.run(script, shell=True, check=True)
    def query(text, *values):
        with contextlib.closing(sqlite3.connect(disk + "/router.db", isolation_level=None)) as db:
            return db.execute(text, values).fetchall()
    def stored():
        return [query("select * from " + name) for name in ("revision", "account", "event", "setting")]
    run(f"mount -t tmpfs -o size=256k none {disk}; cp {DB} {disk}/router.db")
    query("delete from event")
    try:
        for what, spoil, mend in (
                ("full", f"cat /dev/zero >{disk}/fill 2>&1 || :", f"rm {disk}/fill"),
                ("read-only", f"mount -o remount,ro {disk}", f"mount -o remount,rw {disk}")):
            run(f"rm -rf {work}/visits")  # as after a restart
            for named in ("", "a restart "):
                run(spoil)
                before = stored()
                owner = Direct(ZARN, ZARN_DB=disk + "/router.db", ZARN_SESSIONS=work + "/visits")
                statuses = [owner.login("guess").status, owner.login().status,
                            *(owner.ask(page).status for page in ("overview.htm", "settings.htm", "events.csv"))]
                check((what, named, "sign in and look"), [422, 303, 200, 200, 200], statuses)
                token = owner.token()
                change = {"old": PASSWORD, "password": "new-password", "repeat": "new-password"}
                for page, fields in (("settings.htm", {**FORM, "version": before[0][0][-1]}),
                                     ("password.htm", change), ("reboot.htm", {})):
                    answer = owner.post(page, {"token": token, **fields})
                    check((what, page), (503, True, True, before), (
                        answer.status, "nothing has been changed" in answer.text,
                        "zarn: a statement has failed: " in owner.log, stored()))
                check((what, "sign out"), (303, 403), (owner.post("logout.htm", {"token": token}).status,
                                                       owner.ask("overview.htm").status))
                run(mend)
                owner.login()
                owner.ask("overview.htm")
                events = [row for row in stored()[2] if row not in before[2]]
                check((what, "the guess comes into the log"), ["login", "signin", "signout"], [row[4] for row in events])
            query("update account set password = null")
            run(spoil)
            first = Direct(ZARN, ZARN_DB=disk + "/router.db", ZARN_SESSIONS=work + "/visits")
            check((what, "first visit"), (503, None), (first.login().status, first.cookies.get("zarnsession")))
            run(mend)
            query("update account set password = ?", before[1][0][1])
    finally:
        run(f"umount {disk}")


def check_kills():
    """The program is killed at each call by which it changes files. The next request finds both
    databases as they were before or as they were to become."""
    stored = sql("select password from account")[0][0]
    change = {"old": PASSWORD, "password": "new-password", "repeat": "new-password"}
    ended, first = collections.Counter(), Direct(ZARN)
    sql("delete from session")
    first.login()
    token, session = first.token(), sql("select * from session")[0]
    def one_of(what, state, *sound):
        check("killed: " + what, True, state in sound)
        ended[what, sound.index(state) if state in sound else -1] += 1
    for what, page, fields in (("save", "settings.htm", FORM), ("change", "password.htm", change),
                               ("first visit", "login.htm", {"password": PASSWORD, "repeat": PASSWORD})):
        for call in ("openat", "pwrite64", "fdatasync", "unlink"):
            for number in range(1, 99, 3 if call in ("openat", "pwrite64") else 1):
                sql("delete from session")
                sql("delete from waiting_event")
                sql("update account set password = ?", stored)
                sql("update setting set stored = 'old' where name = 'hostname'")
                owner = Direct(ZARN)
                if page == "login.htm":
                    sql("update account set password = null")
                else:
                    sql(f"insert into session values (?{', ?' * (len(session) - 1)})", *session)
                    owner.cookies = dict(first.cookies)
                    fields = {**fields, "token": token, "version": revision()}
                began = sql("select secret, flash from session")
                owner.program = f"strace -qq -o /dev/null -e inject={call}:signal=KILL:when={number} {ZARN}"
                status = owner.post(page, fields).status
                secret = began[0][0] if began else ""
                is_in = Direct(ZARN)
                is_in.cookies["zarnsession"] = secret
                is_in = is_in.ask("overview.htm", headers={"Sec-Fetch-Mode": "cors"}).status == 200
                hostname, password, flash, count = sql(
                    "select value, password, (select flash from session where secret = ?),"
                    " (select count(*) from session join account using (password)) from account, setting where name = 'hostname'", secret)[0]
                if page == "settings.htm":
                    one_of(what, (hostname, flash, is_in), ("old", "", True), ("new", "", True),
                           ("new", "site.settings.renamed", True))
                elif page == "password.htm":
                    one_of(what, (password == stored, is_in), (True, True), (False, False))
                else:
                    one_of(what, (password is None, count), (True, 0), (False, 1))
                check("integrity", [("ok",)], sql("pragma integrity_check"))
                check("no file is left", [], [name for name in os.listdir(os.path.dirname(DB))
                                              if name not in ("root", "router.db", "router.db-journal")])
                if status != 0:
                    break  # there was no such call any more
    check("kills before and behind", True, min(ended.values()) > 1 and len(ended) == 7)
    sql("update account set password = ?", stored)


FIGURES = {
    "uptime": "93784.01 7.5\n", "loadavg": "0.07 0.50 1.25 1/99 7\n", "meminfo": "MemTotal: 65536 kB\nMemFree: 1 kB\nMemAvailable: 40960 kB\n",
    "dev": "Inter-| Receive\n face |bytes\n    lo: 9 9 0 0 0 0 0 0 9 9 0 0 0 0 0 0\n  eth0: 3145728 7 2 0 0 0 0 0 1572864 5 1 0 0 0 0 0\n  odd0: 1 2\n",
    "arp": "IP address HW type\n192.0.2.9 0x1 0x2 02:00:5e:00:00:09 * eth0\n",
    "routes": "default via 192.0.2.1 dev eth0 \n192.0.2.0/24 dev eth0 scope link  src 192.0.2.2 \n",
    "leases": f"{'Mac Address':18}{'IP Address':16}{'Host Name':20}Expires at\n" + "".join(
        f"02:00:5e:00:00:{int(address[8:]):02x} {address:16}{name:20}{ends}\n" for address, name, ends in (
            ("192.0.2.9", "<b>\udcff\x1b", 1e9), ("192.0.2.10", "", "expired"))),
    "minutes": "1000 0 0\n1120 30000000 15000000\n1240 0 0\n", "hours": "3600 0 0\n7200 450000000 45000000\n"}


def check_figures(work):
    """What a device measures, from made files. Each file in turn is not there, is empty, has other
    words, is a fifo, or a folder: its figures are unknown then and not 0, and the others stay."""
    os.mkdir(work + "/figures")
    owner = Direct(ZARN, ZARN_FIGURES=work + "/figures")
    owner.login()
    def write(name, text):
        subprocess.run(["rm", "-rf", f"{work}/figures/{name}"], check=True)
        with open(f"{work}/figures/{name}", "w", encoding="utf-8", errors="surrogateescape") as file:
            file.write(text)
    def figures():
        """The cells of the pages, those that are numbered by the clock left out."""
        pages = [owner.ask(page) for page in ("overview.htm", "devices.htm", "traffic.htm")]
        check("status", ({200}, ""), ({page.status for page in pages}, owner.log))
        text = re.sub(r"<option.*?</option>|<legend.*?</legend>|\[[0-9]+, ", " ", "".join(page.text[page.text.index("<h1>"):] for page in pages))
        return re.sub("<[^>]*>", " ", re.sub("</t[dh]>", "|", text)).split("\n")
    def lines(mark):
        return [" ".join(line.replace("|", " ").split()) for line in seen if mark in line]
    for name, text in FIGURES.items():
        write(name, text)
    whole = seen = figures()
    for mark, wanted in (
            ("Running", "Running for 1 days, 2 hours, 3 minutes"), ("Free", "Free memory 40 / 64 40 / 64 MiB"),
            ("Load", "Load (1, 5, 15 minutes) 0.07, 0.50, 1.25"), ("Gateway", "Gateway 192.0.2.1"), ("Address", "Address 192.0.2.2"),
            ("Internet", "Internet connected"), ("eth0", "eth0 3.0"), ("0/24", "192.0.2.0/24"), ("Known", "Known devices 2"),
            ("Devices online: ", "Devices online: 1 / 2"), ("&lt;b", "&lt;b&gt;?? Home 192.0.2.9"), (":0a|", "02:00:5e:00:00:0a offline"),
            ("2.0,", "2.0, 1.0]"), (time.strftime("%H:00|", time.localtime(3600)), time.strftime("%H:00 1.0 0.1", time.localtime(3600)))):
        check(mark, wanted, next(iter(lines(mark)), ""))
    marks = {"uptime": "Running", "loadavg": "Load", "meminfo": "Free", "routes": "Gateway", "leases": "found:"}
    for name in FIGURES:
        for spoil in ("", "x y\n", "mkfifo", "mkdir", "none"):
            write(name, spoil)
            if spoil in ("mkfifo", "mkdir", "none"):
                os.remove(f"{work}/figures/{name}")
                subprocess.run(["true" if spoil == "none" else spoil, f"{work}/figures/{name}"], check=True)
            seen = figures()
            if name in marks and not (spoil == "x y\n" and name in ("loadavg", "routes", "leases")):
                check((name, spoil), True, lines(marks[name])[0].endswith(" unknown"))
            others = [line for mark in marks.values() if mark != marks.get(name) for line in lines(mark)]
            check((name, spoil, "others"), False, any("unknown" in line for line in others))
        write(name, FIGURES[name])
    check("as before", whole, figures())
    write("leases", "\udcff" * 65536)
    owner.program = f"prlimit --cpu=1 {ZARN}"  # seconds
    check("strange bytes take no time", 200, owner.ask("devices.htm").status)


Direct(ZARN).login()  # the first visit
check_waits()
check_clocks()
check_hashes()
check_turns()
with tempfile.TemporaryDirectory() as folder:
    check_figures(folder)
    check_scripts(folder)
    check_calls(folder)
    check_folders(folder)
    check_versions(folder)
    check_disks(folder)
check_kills()
sys.exit(bool(failed))
