#!/usr/bin/python3
"""tests/device/device.py IMAGE [GROUP]... - starts the virtual device, several times, and tests
what runs there, beside the demo site that scripts/serve.sh runs on this machine. GROUPS, at the
end, has the names; without one all are tested."""
import base64, collections, concurrent.futures, contextlib, http.client, os, pathlib, random, re, shutil, signal
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


WEB, SHELL, CONSOLE, DHCP = (free_port() for _ in range(4))
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
    forwards = f",hostfwd=tcp:127.0.0.1:{WEB}-:80,hostfwd=tcp:127.0.0.1:{SHELL}-:81" \
               f",hostfwd=udp:127.0.0.1:{DHCP}-:67"
    arguments = subprocess.run(
        ["bash", "-c", '. device/machine.sh; machine_arguments "$@"', "bash", IMAGE,
         str(memory), options, forwards], cwd=SOURCE, stdout=subprocess.PIPE, text=True, check=True)
    machine = subprocess.Popen(["qemu-system-arm", *arguments.stdout.splitlines(), "-serial",
                                "chardev:console", "-chardev", f"socket,id=console,host=127.0.0.1,port={CONSOLE},"
                                f"server=on,wait=off,logfile={BUILD}/console.log"], stdin=subprocess.DEVNULL)
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


def share_figures():
    """This machine gets what the device measures, which stands still from then on."""
    run("""mkdir /tmp/still && cp -L /tmp/figures/* /tmp/still/ && cd /tmp/still || exit
        printf '%-18s%-16s%-20s%s\n' 02:00:5e:00:00:07 10.0.2.31 '<lamp>' 1900000000 >>leases
        awk '{ print $1 + 3600, $2 + 9000000, $3 + 70000 }' minutes >hours; cat hours >>minutes
        mount -o bind . /tmp/figures; mount -o remount,ro,bind /tmp/figures""")
    folder = pathlib.Path(os.environ["SITE_FIGURES"])
    shutil.rmtree(folder, ignore_errors=True)
    folder.mkdir()
    for name in run("ls /tmp/figures")[1].split():
        (folder / name).write_text(run(f"cat /tmp/figures/{name}")[1])


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
    share_figures()
    check("a device of the figures", True, "&lt;lamp&gt;" in here.ask("devices.htm").text)
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
            $(ls /proc/[0-9]*/fd 2>/dev/null | grep -c "^[0-9]") \
            $(ls -l /proc/[0-9]*/exe 2>/dev/null | grep -c -e "->")""")[1].split()]


def console(password):
    """Types Enter and a password at the device's console. Returns the user's number in its shell, or
    what is said instead of one."""
    with socket.create_connection(("127.0.0.1", CONSOLE), timeout=60) as line:
        for text, answer in (("\n", r"continue\): "), (password + "\n", r"(?s)# |incorrect.*continue\): "), ("id -u; exit\n", r"(?s)\n[0-9]+\s.*activate")):
            time.sleep(1)  # what is typed before a prompt is thrown away
            line.sendall(text.encode())
            said = ""
            while not re.search(answer, said):
                said += line.recv(100).decode()
            if "incorrect" in answer and "incorrect" in said:
                return "incorrect"
    return re.search(r"\n([0-9]+)\s", said)[1]


def ask_for_address(mac, name, address):
    """As a device does that has come into the network, by the protocol DHCP (RFC 2131)."""
    with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as client:
        for kind, server in ((1, b""), (3, bytes([54, 4, 10, 0, 2, 15]))):  # discover, request
            options = bytes([53, 1, kind, 50, 4, *address, 12, len(name)]) + name + server + b"\xff"
            client.sendto(bytes([1, 1, 6, 0, 7, 7, 7, 7]) + bytes(20) + mac + bytes(202) + b"\x63\x82\x53\x63" + options,
                          ("127.0.0.1", DHCP))
            time.sleep(1)


def rows_of(page):
    """The rows of the page's tables, as text."""
    return [" ".join(re.sub("<[^>]*>", " ", row).split()) for row in re.findall("<tr>(.*?)</tr>", owner.ask(page).text, re.S)]


def await_row(page, wanted):
    """What a collector finds out is there after some seconds."""
    for _ in range(60):
        found = [row for row in rows_of(page) if re.search(wanted, row)]
        if found:
            return found
        time.sleep(1)
    return rows_of(page)


def check_figures():
    """The pages have what the device measures, and say what they do not know."""
    uptime, total, load, bytes_in = run("""cut -d. -f1 /proc/uptime; sed -n 's/MemTotal: *\\([0-9]*\\) .*/\\1/p' /proc/meminfo
        cut -d' ' -f1 /proc/loadavg; sed -n 's/ *eth0: *\\([0-9]*\\) .*/\\1/p' /proc/net/dev""")[1].split()
    page = rows_of("overview.htm")
    def row(name):
        return next((row for row in page if row.startswith(name)), "none")
    minutes = int(row("Running for").split()[-2])
    check(f"uptime: {row('Running')}", True, int(uptime) // 60 <= minutes <= int(uptime) // 60 + 2)
    check(f"memory: {row('Free')}", True, f"/ {int(total) // 1024} MiB" in row("Free"))
    check(f"load: {row('Load')}, {load}", True, abs(float(row("Load").split()[5][:-1]) - float(load)) < 1)
    check("the way out", ["Internet connected", "Address 10.0.2.15", "Gateway 10.0.2.2"],
          [row(name) for name in ("Internet", "Address", "Gateway")])
    check(f"counters: {row('eth0')}", True, 0 <= float(row("eth0").split()[1]) - int(bytes_in) / 2**20 < 1)
    ask_for_address(bytes([2, 0, 0x5e, 0, 0, 7]), b"<i>lamp", [10, 0, 2, 25])
    check("a device has an address", [".i.lamp Home 10.0.2.25 02:00:5e:00:00:07 offline"],
          [row.partition(" 20")[0] for row in await_row("devices.htm", "10.0.2.25")])
    check("it is counted", ["Known devices 1", "Devices online 0"],
          [row for row in rows_of("overview.htm") if "evices" in row][-2:])
    run("rm /tmp/figures/loadavg")
    check("what is not there is unknown", ["Load (1, 5, 15 minutes) unknown"], await_row("overview.htm", "Load"))


def check_password():
    """The console's password is that of the pages, and nobody else learns even its hash."""
    new = "heron-birch-8"
    change = {"old": visitor.PASSWORD, "password": new, "repeat": new, "token": owner.token()}
    check("at the console", ("0", "incorrect"), (console(visitor.PASSWORD), console(new)))
    check("changed", 303, owner.post("password.htm", change).status)
    check("what the device says", True, "Password of the console." in owner.ask("password.htm").text)
    check("at the console", ("incorrect", "0"), (console(visitor.PASSWORD), console(new)))
    check("nobody else sees it", (0, "600 0\n0\n"), run(
        "stat -Lc '%a %u' /etc/shadow; (logread; cat /data/log/* /proc/[0-9]*/environ) 2>/dev/null | grep -c -F '$y$'; true"))
    check("back", 303, owner.post("password.htm", {**change, "old": new, "token": owner.token(), "password": visitor.PASSWORD,
                                                   "repeat": visitor.PASSWORD}).status)


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
    check_password()
    check_figures()
    run("sync")
    cut_power()
    start()
    check("after a restart", (wanted, "0"), (state(), console(visitor.PASSWORD)))


def test_leaks():
    start_signed_in()
    # The collector starts programs of its own.
    check("the collector stands still", 0, run(
        "for file in /proc/[0-9]*/comm; do ! grep -qx collector $file || { kill -STOP $(echo $file | cut -d/ -f3) && sleep 11; exit; }; done; exit 1")[0])
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
