#!/usr/bin/python3
"""tests/device/device.py IMAGE [GROUP]... - starts the virtual device, several times, and tests
what runs there, beside the demo site that scripts/serve.sh runs on this machine. GROUPS, at the
end, has the names; without one all are tested."""
import base64, collections, concurrent.futures, contextlib, http.client, pathlib, random, re, shutil, signal
import socket, sqlite3, subprocess, sys, threading, time, urllib.request
import visitor
from visitor import DB, FORM, SESSIONS, Visitor

SOURCE = pathlib.Path(__file__).resolve().parents[2]
BUILD = SOURCE / "build/device"
IMAGE = pathlib.Path(sys.argv[1])
SITE = SOURCE / "examples/site"
PAGES = sorted(page.name for kind in ("htm", "csv", "json") for page in SITE.glob("*." + kind))
LANGUAGES = sorted(texts.stem for texts in SITE.glob("texts/*.po"))
LOG = "/var/log/zarn_interpreter.log"
started = time.monotonic()
machine = None


def free_port():
    with socket.socket() as probe:
        probe.bind(("127.0.0.1", 0))
        return probe.getsockname()[1]


WEB, SHELL = free_port(), free_port()
Visitor.timeout = 120  # the device is emulated, and may be busy
here = visitor.signed_in()
there = Visitor(f"http://127.0.0.1:{WEB}")
there.cookies = here.cookies  # one session, which is in both databases
owner = Visitor(there.origin)  # with a session that may change settings there


def check(what, expected, got):
    visitor.check(what, expected, got)
    if expected == got:
        print(f"{time.monotonic() - started:4.0f} s  ok: {what}", flush=True)


def start(options="", memory=128):
    """Starts the device with these kernel options; returns when it answers."""
    global machine
    forwards = f",hostfwd=tcp:127.0.0.1:{WEB}-:80,hostfwd=tcp:127.0.0.1:{SHELL}-:81"
    arguments = subprocess.run(
        ["bash", "-c", '. device/machine.sh; machine_arguments "$@"', "bash", IMAGE,
         str(memory), options, forwards], cwd=SOURCE, stdout=subprocess.PIPE, text=True, check=True)
    machine = subprocess.Popen(["qemu-system-arm", *arguments.stdout.splitlines(), "-serial",
                                f"file:{BUILD}/console.log"], stdin=subprocess.DEVNULL)
    end = time.monotonic() + 180
    while True:
        try:
            return there.ask("login.htm")
        except (OSError, http.client.HTTPException):
            if machine.poll() is not None or time.monotonic() > end:
                sys.exit("the device does not answer, see build/device/console.log")
            time.sleep(0.3)


def cut_power():
    if machine:
        machine.kill()
        machine.wait()


def run(script):
    """Runs it in a shell of the device, as root. Returns its status and what it printed."""
    url = f"http://127.0.0.1:{SHELL}/cgi-bin/run"
    with urllib.request.urlopen(url, script.encode(), timeout=3000) as answer:
        text, status = answer.read().decode(errors="replace").rsplit("status ", 1)
    return int(status), text


def share_database():
    """The device gets this machine's databases, and the session in them."""
    for file, place in ((DB, "/data/zarn/router.db"), (SESSIONS, "/tmp/sessions/sessions.db")):
        with contextlib.closing(sqlite3.connect(file)) as db:
            copy = base64.encodebytes(db.serialize()).decode()
        run(f"umask 077; rm -f {place}-*; base64 -d >{place} <<END\n{copy}END\n"
            f"chown www:www {place}; sync")


def start_signed_in(*arguments):
    start(*arguments)
    share_database()
    check("signed in on the device", 303, owner.login().status)


def is_same(page):
    """Asks for it here and there; random numbers, such as a form's token, may differ. So may
    what tells the time, until both answers come from one second."""
    def text(site):
        answer = site.ask(page)
        return answer.status, re.sub(r"\b[0-9a-f]{32,}\b", "random", answer.text)
    return any(text(here) == text(there) for _ in range(20))


def check_pages(mode):
    """With the tooltip switch on the device's own kernel command line."""
    command_line = pathlib.Path(DB).parent / "root/proc/cmdline"
    command_line.parent.mkdir(exist_ok=True)
    command_line.write_text(mode + "\n")
    share_database()
    pages = [f"{page}?lang={language}" for page in PAGES for language in LANGUAGES]
    check(f"{len(pages)} pages are the same here and there, {mode or 'no switch'}", [],
          [page for page in pages if not is_same(page)])
    marked = "site.overview.title" in there.ask("overview.htm").text
    check(f"texts are marked: {marked}", mode in ("tooltip=1", "tooltip=2"), marked)
    told = run(f"grep TOOLTIPS {LOG} | tail -n 1")[1].strip()
    wanted = f"TOOLTIPS is set to {mode[-1]}" if mode else "No such file or directory"
    check(f"log: {told}", True, told.endswith(wanted))


def check_own_language(code):
    run(f"ln -sfn /etc/htmltext_{code}.db /data/zarn/htmltext.db")
    check(f"the device's own language: {code}", code,
          re.search('<html lang="(..)', Visitor(there.origin).ask("login.htm").text)[1])


def test_pages():
    start()
    check("the machine", (0, "armv7l\n"), run("uname -m"))
    check_pages("")
    for code in ("de", "en"):
        check_own_language(code)


def load(count, at_once=1):
    """Asks for that many pages. Returns how often there was what: a whole page, a status, or
    no answer."""
    def ask(number):
        try:
            site = Visitor(there.origin)
            site.cookies = dict(there.cookies)
            answer = site.ask(("overview.htm", "devices.htm", "events.htm")[number % 3])
        except (OSError, http.client.HTTPException):
            return "none"
        whole = answer.status == 200 and answer.text.rstrip().endswith("</html>")
        return "page" if whole else str(answer.status)

    with concurrent.futures.ThreadPoolExecutor(at_once) as pool:
        return dict(collections.Counter(pool.map(ask, range(count))))


def held():
    """Memory in KB, open descriptors and processes, without caches and the kernel's own."""
    return [int(word) for word in run(
        """sync; echo 3 >/proc/sys/vm/drop_caches
        echo $(sed -n 's/^MemAvailable: *\\([0-9]*\\).*/\\1/p' /proc/meminfo) \
            $(ls /proc/[0-9]*/fd | grep -c "^[0-9]") \
            $(ls -l /proc/[0-9]*/exe 2>/dev/null | grep -c -e "->")""")[1].split()]


def test_settings():
    """What is saved reaches the device, at once and after a restart."""
    start_signed_in()
    def state():
        return run("hostname; sed -n 's/^\\(start\\|end\\|option\\) //p' /tmp/apply/udhcpd.conf; ls -d /proc/$(cat /tmp/apply/udhcpd.pid)/fd"
                   " >/dev/null && echo runs")[1].split("\n")[:-1]
    hidden = owner.ask("settings.htm").hidden()
    check("saved", 303, owner.post("settings.htm", {**FORM, **hidden, "hostname": "attic", "first": "20",
                                                    "last": "40", "lease": "2", "dhcp": "1"}).status)
    check("what the device says", True, "Name attic. Addresses 20 to 40." in owner.ask("settings.htm").text)
    wanted = ["attic", "10.0.2.20", "10.0.2.40", "lease 7200", "runs"]
    check("what the device is", wanted, state())
    run("sync")
    cut_power()
    start()
    check("after a restart", wanted, state())


def test_leaks():
    start_signed_in()
    load(50)  # what is made once
    available, *before = held()
    check("500 requests in a row", {"page": 500}, load(500))
    left, *after = held()
    check(f"no descriptor and no process is left: {after}", before, after)
    # Each page of memory that a request left would be 2000 KB.
    check(f"no memory is left: {available} KB were free, {left} are", True, available - left < 1000)


def named(number):
    return {"hostname": f"test{number}", "ssid": f"test{number}", "nameserver": f"192.0.2.{number}"}


def stored():
    page = owner.ask("settings.htm")
    return {name: page.value(name) for name in named(0)} if page.status == 200 else page.status


def save(number, before_post=lambda: None):
    """Returns whether the site says that it saved the settings."""
    hidden = owner.ask("settings.htm").hidden()
    before_post()
    return owner.post("settings.htm", {**FORM, **hidden, **named(number)}).status == 303


def check_save(what, number, spoil, mend):
    """The site may store it or not, but must say which. Returns whether it said so."""
    before = stored()
    saved = save(number, lambda: check(what, 0, run(spoil)[0]))
    owner.post("logout.htm", {"token": owner.token()})
    check(f"signed out and in again, {what}", (403, 303),
          (owner.ask("overview.htm").status, owner.login().status))
    got = load(20)
    check(f"pages or a clear status, {what}: {got}", set(), set(got) - {"page", "500", "503"})
    run(mend)
    check(f"a save, {what}: {'saved' if saved else 'refused'}", named(number) if saved else before,
          stored())
    return saved


def test_disks():
    start_signed_in()
    check("there are settings", "fjord", stored()["hostname"])
    check_save("a full file system", 7, """cd /data; dd if=/dev/zero of=fill bs=64k
        dd if=/dev/zero of=rest bs=1k; sync; df /data | grep ' 100% '""",
               "rm /data/fill /data/rest; sync")
    check("it is saved", True, check_save("room again", 8, "true", "true"))
    check("nothing is saved", False, check_save(
        "a read-only file system", 9, "mount -o remount,ro /data", "mount -o remount,rw /data"))


def cut_power_while_saving():
    """Returns the settings that were stored, and those whose save the cut ended."""
    posting, saves = threading.Event(), [0]

    def save_on():
        try:
            while save(saves[0] + 1, posting.set):
                saves[0] += 1
        except (OSError, ValueError, http.client.HTTPException):
            pass  # the device is gone

    thread = threading.Thread(target=save_on)
    thread.start()
    while saves[0] < 3 and thread.is_alive():
        time.sleep(0.01)
    posting.clear()
    check("a save is on its way", True, posting.wait(60))
    check("saves are stored", True, thread.is_alive())
    time.sleep(random.random())  # about what a save takes, or the time after it
    cut_power()
    thread.join()
    return named(saves[0]), named(saves[0] + 1)


def test_switch():
    """Each start but the first comes after a power cut."""
    start_signed_in()
    for mode in range(3):
        old, new = cut_power_while_saving()
        start(f"tooltip={mode}")
        check("a restart ends sessions", (403, 303),
              (owner.ask("overview.htm").status, owner.login().status))
        got = stored()
        check(f"after a power cut in a save: {'new' if got == new else 'old'}",
              new if got == new else old, got)
        check_pages(f"tooltip={mode}")
        owner.login()


def test_memory():
    # What its kernel leaves of 32 MB: Debian's own, made for all boards, does not start in so
    # little.
    start("mem=50M", 64)
    share_database()  # to sign in takes long: a password's hash wants memory
    memory = int(re.search(r"MemTotal: *(\d+)", run("cat /proc/meminfo")[1])[1])
    check(f"{memory} KB of memory", True, memory <= 32768)
    check("pages, one at a time", {"page": 10}, load(10))
    got = load(16, 4)
    check(f"pages or a clear status, 4 at once: {got}", set(), set(got) - {"page", "500", "503"})
    check("pages afterwards", {"page": 10}, load(10))


def run_test(program, options):
    return run(f"/test/unit '{SOURCE}' '{BUILD}/programs' {program} --gtest_brief=1 {options}")


def test_library():
    start()
    for name in ("orv_tests", "tiny_tests", "fault_tests"):
        status, text = run_test(name, "")
        (BUILD / f"{name}.log").write_text(text)
        check(f"{name}: {(re.findall('PASSED.*', text) or ['none'])[-1]}", 0, status)


NOT_THERE = {"OrvRender.Rows": "sqlite3", "TextDbTool.FollowsTheSource": "msginit",
             "TextDbTool.KeepsWhatTranslatorsHaveMade": "msgfmt",
             "TextDbFile.KeepsTheLimitsOfTheFormat": "a GB of memory"}


def test_tools():
    """A process for each test, as on the build machine: they leave files behind."""
    start(memory=256)
    suite, tests = "", []
    for line in run_test("tool_tests", "--gtest_list_tests")[1].splitlines():
        if line.startswith("  "):
            tests.append(suite + line.split()[0])
        else:
            suite = line.split()[0] if line.endswith(".") else ""
    (BUILD / "tool_tests.log").unlink(missing_ok=True)
    for name in tests:
        if name in NOT_THERE:
            print(f"left out: {name}, the device has not {NOT_THERE[name]}")
            continue
        status, text = run_test("tool_tests", f"--gtest_filter={name}")
        with (BUILD / "tool_tests.log").open("a") as log:
            log.write(text)
        check(name, 0, status)


GROUPS = {"settings": test_settings, "pages": test_pages, "switch": test_switch, "disks": test_disks,
          "leaks": test_leaks, "memory": test_memory, "library": test_library, "tools": test_tools}


def main():
    signal.signal(signal.SIGTERM, lambda *_: sys.exit(143))  # the machine ends with the tests
    for group in sys.argv[2:] or GROUPS:
        shutil.copy(BUILD / "image/data.ext4", IMAGE)  # the factory's settings
        try:
            GROUPS[group]()
        finally:
            cut_power()
    print(f"{len(visitor.failed)} checks failed")
    return bool(visitor.failed)


sys.exit(main())
