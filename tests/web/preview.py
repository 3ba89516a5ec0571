#!/usr/bin/python3
"""tests/web/preview.py ORV-PREVIEW ORV-TEXTDB ORV-CHECK SITE NAMES AXE-FOLDER one|slow|keys|others|hardships - the preview of
a copy of the demo site, asked by its protocol and by headless Chromium, while the site's files change; its bar by keys
alone; of other sites; or what needs no browser. NAMES is the list of the variables that the site's web program sets."""
import contextlib, ctypes, errno, glob, html, http.client, http.server, json, mimetypes, os, platform, re, select, shutil, signal, socket, sqlite3
import struct, subprocess, sys, tempfile, threading, time, urllib.error, urllib.request
from chromium import device, find_barriers, install_axe, press, resize, run, send, show, with_browser
from visitor import check, failed, COMPLAINT

BAR = "const bar = document.querySelector('orv-preview').shadowRoot;"
# What an eye sees at once: a bar that is hidden, or lets the page through, a focus that is not shown, a text that is too small,
# is cut, out of its ground or of the window, runs into another, or stands lower.
SOUND = BAR + r"""const box = bar.querySelector('.bar').firstElementChild, rect = one => one.getBoundingClientRect(), bad = [];
const say = (what, one) => bad.push(`${what}: ${one.className} ${one.textContent}`), {left, right, top, bottom} = rect(box);
const isOpaque = one => !/, 0\)/.test(getComputedStyle(one).backgroundColor);
const light = color => color.match(/[0-9.]+/g).slice(0, 3).reduce((sum, one, i) => sum + [.21, .72, .07][i] * (one / 255) ** 2.2, .05);
const floors = [innerHeight, document.documentElement.clientHeight]; // with a scroll bar, and without
if (!isOpaque(box) || left < 0 || right > innerWidth || top < 0 || bottom < Math.min(...floors) - 12
|| Math.max(bottom, rect(box.lastElementChild).bottom - 1) > Math.max(...floors)
|| document.elementFromPoint((left + right) / 2, (top + bottom) / 2) !== bar.host) say('hidden', box);
const {outlineStyle, outlineWidth} = bar.activeElement ? getComputedStyle(bar.activeElement) : {};
if (bar.activeElement && (outlineStyle !== 'solid' || outlineWidth < '2')) say('no focus', bar.activeElement);
[...bar.querySelectorAll('span:empty, .grip')].filter(one => one.offsetWidth && !isOpaque(one)).forEach(one => say('empty', one));
let former = {};
for (const walk = document.createTreeWalker(bar, NodeFilter.SHOW_TEXT); walk.nextNode();) {
  const text = walk.currentNode, one = text.parentElement, style = getComputedStyle(one), range = document.createRange();
  range.selectNodeContents(text);
  const [now] = text.data.trim() ? range.getClientRects() : [], scroller = one.closest('.rows, .source, .tabs');
  if (!now) continue;
  const isCut = one.scrollWidth > one.clientWidth + 1 && style.overflowX === 'hidden', clip = scroller || (isCut && one);
  const end = clip ? Math.min(now.right, rect(clip).right) : now.right, size = parseInt(style.fontSize);
  let ground = one;
  while (ground !== box && !isOpaque(ground)) ground = ground.parentElement;
  const isOut = now.left < rect(ground).left + ground.clientLeft + 3 || now.top < rect(ground).top || end > innerWidth;
  const shades = [style.color, getComputedStyle(ground).backgroundColor].map(light).sort((a, b) => b - a);
  if (shades[0] / shades[1] < 4.5 || size < 11 || size > 15 || !scroller && isOut || isCut && style.textOverflow !== 'ellipsis') say('text', one);
  if (one !== former.one && !one.closest('.source, .hint, .log') && now.top < former.bottom && former.top < now.bottom
  && (now.left < former.end + 3 && /^\S/.test(text.data)
  || Math.abs(now.top + now.bottom - former.top - former.bottom) > 8)) say('beside', one);
  former = {one, end, top: now.top, bottom: now.bottom};
}
return bad;"""
BADGE = BAR + "return bar.querySelector('.badge').className"
SAID = BAR + """return [...bar.querySelectorAll('.badge :is(.count, .where)')].map(part =>
part.textContent).join(' ')"""
ENTRIES = BAR + """return [...bar.querySelectorAll('.entry')].map(entry => ['.place', '.text'].map(
part => entry.querySelector(part)?.textContent).join(' '))"""
OPEN = BAR + "return bar.querySelector('.panel') !== null"
FOCUS = "return document.querySelector('orv-preview').shadowRoot.activeElement?.id"
STATUS = BAR + "return bar.querySelector('.status').textContent"
TITLE = "return document.querySelector('h1').textContent"
ANSWER = "return document.querySelector('p')?.textContent"
POLICY = """<meta http-equiv="Content-Security-Policy" content="default-src 'none';
require-trusted-types-for 'script'; base-uri 'none'; form-action 'none'">"""
TAB, ENTER, ESCAPE, END, HOME = "\ue004", "\ue007", "\ue00c", "\ue010", "\ue011"
LEFT, UP, RIGHT, DOWN, BACKSPACE = "\ue012", "\ue013", "\ue014", "\ue015", "\ue003"


def wait(script, expected, *args):
    """The result of a script, or of a function of ours, once it is the expected one, or what it
    is after a while. A page may be on its way out, and fail."""
    deadline = time.monotonic() + 60  # sanitizers and other work take their time
    while True:
        try:
            got = script(*args) if callable(script) else run(script, *args)
        except urllib.error.HTTPError:
            got = None
        if got == expected or time.monotonic() > deadline:
            return got
        time.sleep(0.03)


def tab_to(selector):
    """Goes on by the tabulator to an element of the bar."""
    wait(BAR + "return !!bar.querySelector('.badge, .panel')", True)
    for _ in range(80):
        if run(BAR + "return !!bar.activeElement?.matches(arguments[0])", selector):
            return
        press(TAB)
    check("reached by the keyboard", selector, None)


def write(path, text):
    os.makedirs(os.path.dirname(path) or ".", exist_ok=True)
    with open(path, "w", encoding="utf-8") as file:
        file.write(text)


def edit(path, old, new):
    with open(path, encoding="utf-8") as file:
        text = file.read()
    assert old in text, f"{path} has no {old}"
    write(path, text.replace(old, new, 1))


def sql(statement):
    with sqlite3.connect("router.db") as db:
        db.execute(statement)


class Preview:
    """The program, started with some arguments, in a with statement that ends it by Ctrl-C."""

    def __init__(self, *args, program=("bin/orv-preview",), **options):
        others = set(glob.glob(tempfile.tempdir + "/orv-preview-*"))
        self.process = subprocess.Popen([*program, *args], stdout=subprocess.PIPE,
                                        stderr=subprocess.STDOUT, text=True, **options)
        self.lines = []
        self.until(" - Ctrl-C ends it.")
        self.work = (set(glob.glob(tempfile.tempdir + "/orv-preview-*")) - others).pop()
        self.url = self.lines[-1].split(" ")[0]
        self.port = int(self.url.split(":")[2].strip("/"))

    def __enter__(self):
        return self

    def __exit__(self, *_):
        for name in glob.glob(tempfile.tempdir + "/*/server.log"):
            with open(name, encoding="utf-8") as log:
                check("no sanitizer complains", [], COMPLAINT.findall(log.read()))
        self.process.send_signal(signal.SIGINT)
        check("status after Ctrl-C", 0, self.process.wait(10))

    def until(self, end):
        late = threading.Timer(60, self.process.terminate)  # a line may not come at all
        late.start()
        for line in self.process.stdout:
            self.lines.append(line.rstrip("\n"))
            if line.rstrip("\n").endswith(end):
                return late.cancel()
        late.cancel()
        sys.exit(f"the preview has ended: {self.lines}")

    def ask(self, path, data=None, **headers):
        request = urllib.request.Request(self.url + path, data, {
            name.replace("_", "-"): value for name, value in headers.items()})
        try:
            with urllib.request.urlopen(request, timeout=60) as answer:
                return answer.status, answer.headers["content-type"], answer.read().decode()
        except urllib.error.HTTPError as error:
            return error.code, error.headers["content-type"], error.read().decode()

    def report(self, path, data=None):
        page = self.ask(path, data)[2]
        return json.loads(re.search(r'id="orv-preview">(.*?)</script>', page, re.S)[1])

    def settle(self, since):
        """Waits until a change after that time is known, and no other comes."""
        seen, generation, late = time.monotonic(), 0, time.monotonic() + 60
        while generation < since * 1000 or time.monotonic() < seen + 0.2:
            assert time.monotonic() < late, "a change is not noticed"
            with open(self.work + "/changes", encoding="utf-8") as changes:
                newest = int(json.load(changes)["generation"])
            if newest != generation:
                seen, generation = time.monotonic(), newest
            time.sleep(0.01)

    def put(self, files):
        """Writes files, and waits until that is known."""
        start = time.time()
        for path, text in files.items():
            write(path, text)
        self.settle(start)

    def messages(self, path):
        return [(m["severity"], ":".join(str(m[key]) for key in ("file", "line", "column") if m.get(key)),
                 m["text"]) for m in self.report(path)["messages"]]


def check_refusals():
    with socket.create_server(("127.0.0.1", 0)) as busy:
        port = str(busy.getsockname()[1])
        rows = [
            (["--port", "65536"], "--port needs a number from 1 to 65535, or 0 for any, not '65536'"),
            (["--port", port], f"port {port} is in use by another program; choose another with --port"),
            (["router.db"], "cannot show 'router.db': it is no folder"),
            (["--texts", "router.db"], "--texts needs a file whose name tells its language, "
             "such as de.po or de.db, not 'router.db'"),
            (["--root", "router.db"], "cannot use root 'router.db': it is no folder"),
            (["--set", "a"], "--set needs NAME=VALUE, not 'a'"),
            (["a", "b"], "one folder at a time, see --help"),
        ]
        for args, message in rows:
            done = subprocess.run(["bin/orv-preview", *args], capture_output=True, text=True, timeout=20, check=False)
            check(args, (2, f"orv-preview: {message}\n"), (done.returncode, done.stderr))


def words(text):
    """What a page of the preview's says, a | between its elements."""
    text = re.sub(r"(?s)<(script|style).*?</\1>", "", text)
    return html.unescape(re.sub(r"\s*\|[|\s]*", "|", re.sub("<[^>]*>", "|", text)))


ENDLESS = "with recursive c(i) as (select 1 union all select i + 1 from c) select count(*) from c"


class Stopped(threading.Thread):
    """Asks for a page without end, while other things are looked at. Once it waits for its query, its
    process is held up until its time is over, so that it takes none of the processor's."""

    def __init__(self, preview):
        super().__init__()
        self.preview, self.page = preview, None
        write("site/forever.htm", f"<!DOCTYPE html>\n<?querytext '{ENDLESS}'?>")
        self.start()
        while not (pid := asked_by(preview, "forever.htm")) or processor_time(pid) < 0.5:
            time.sleep(0.01)
        os.kill(pid, signal.SIGSTOP)
        threading.Timer(21, os.kill, (pid, signal.SIGCONT)).start()

    def run(self):
        self.page = self.preview.ask("forever.htm")


def check_files(preview):
    """What is sent and what is not."""
    for path in "site/out.txt", "site/some-device.htm", "site/out":
        os.symlink("/etc" if path == "site/out" else "/etc/passwd", path)
    os.symlink("style.css", "site/in.css")
    write("site/.hidden", "secret")
    os.mkdir("site/two words?%")
    page = "text/html; charset=utf-8"
    mend, folder = "Mend it and save: this page loads itself again.|", os.path.realpath("site")
    here, refused = f"|The folder that is shown is {folder}.|", " The web program refuses such a request.|" + mend
    write("site/list.csv", "<?repeat [ 1 2 ] '\"$0\",'?>")
    write("site/plain.csv", "<?xml ?><?echoes")
    rows = [
        ("list.csv", 200, "text/csv; charset=utf-8", '"1","2",'),
        ("plain.csv", 200, "text/csv; charset=utf-8", "<?xml ?><?echoes"),
        ("", 200, page, "|settings.htm|traffic.htm|Folders|texts/|two words?%/|Pieces of pages|error.frm|"),
        ("texts/", 200, page, "|Other files|de.po|el.po|en.po|"),
        ("overview.htm", 200, page, "<h1>Overview</h1>"),
        ("style.css", 200, "text/css; charset=utf-8", "body"),
        ("in.css", 200, "text/css; charset=utf-8", "body"),
        ("icon.svg", 200, "image/svg+xml", "<svg"),
        ("device.htm", 404, page, "|There is no page device.htm|No such file or directory" + here
         + "Was one of these meant?|devices.htm|" + mend),
        ("no%3Cb%3E.htm", 404, page, "There is no page no&lt;b&gt;.htm"),
        ("out.txt", 404, page, "|There is no file out.txt|not below the document root" + here + mend),
        ("out/", 404, page, "not below the document root"),
        (".hidden", 404, page, "|There is no file .hidden|Names with a dot in front are not shown." + here + mend),
        ("%2e%2e/router.db", 404, page, "There is no file router.db"),
        ("overview.htm?ok=1&a%5Bb%5D=1", 400, page, "|The request is refused|The field "
         "'a[b]' has a name that is not made of letters and digits alone." + refused),
        ("two%20words%3F%25", 200, page, "|site/two words?%/|← The folder above|No pages here yet. A page is a file whose name "
         "ends in|.htm|or|.html|.|"),  # a folder, to which it is led
        ("favicon.ico", 204, "image/x-icon", ""),
    ]
    for path, *expected, part in rows:
        status, kind, text = preview.ask(path)
        check(path, (*expected, True), (status, kind, part in text or part in words(text)))
    for form, kind, said in (
            (b"a=1&b=%FF", "x-www-form-urlencoded", "The field 'b' has a value that is no text in UTF-8." + refused),
            (b"a=1&" * 70, "x-www-form-urlencoded", "There are too many fields, or a name or a value is too long." + refused),
            (b"a=1", "json", "What was sent is in none of the encodings of a form.|" + mend)):
        text = words(preview.ask("overview.htm", form, Content_Type="application/" + kind)[2])
        check(said, True, f"|The request is refused|{said}" in text)
    check("a language that there is not", "", preview.report("overview.htm?lang=xx")["language"])
    link = http.client.HTTPConnection("127.0.0.1", preview.port)
    link.request("PUT", "/overview.htm")
    answer = link.getresponse()
    check("PUT", (405, "GET, HEAD, POST"), (answer.status, answer.headers["Allow"]))
    asked = urllib.request.Request(preview.url + "style.css", None, {"Cookie": f"orvtab{preview.port}=marks=0", "Sec-Fetch-Dest": "document"})
    check("an answer to the tab takes its cookie", f"orvtab{preview.port}=; Path=/; Max-Age=0", urllib.request.urlopen(asked).headers["set-cookie"])
    asked = urllib.request.Request(preview.url + "overview.htm", None, dict(asked.headers, Cookie=f"orvtab{preview.port}=language=de"))
    check("what a page asks for is as it is", f"orvpage{preview.port}=language=de&marks=0&error=; Path=/; SameSite=Strict",
          urllib.request.urlopen(asked).headers.get_all("set-cookie")[-1])
    check("another site's name for this machine", 403, preview.ask("", Host="evil.example")[0])
    for headers in ({"Sec_Fetch_Site": "cross-site"}, {"Origin": "http://evil.example"}):
        check("another site opens no file", 403, preview.ask(".orv-preview/open", b"file=style.css&line=1", **headers)[0])


MISTAKES = {
    "broken/page.htm": """<!DOCTYPE html>
<?echo?>

<p>
<?query 'select nope
 from device' '$1'?>
<?include part.frm?>
<?include ../../router.db?>
{?missing.text?}
<?calc + x 1?>
<?base64 /etc/hostname?>
<?multiquery 'select 1, 2' '$3'?>
<?multiquery 'select id from network' `<?include broken/row.frm?>`?>
""", "broken/row.frm": "<?setvariable var:a[1] x?><?setvariableonce var:a[1] y?>\n<?ECHO x?>",
    "broken/two.htm": "<!DOCTYPE html><?Echo?>\n<?echo 'never\n", "broken/first.htm": "<?echo a b?>lost", "broken/empty.htm": "",
    "broken/large.htm": f"<!DOCTYPE html>\n<?repeat [ 1 9999 ] '{8000 * 'x'}'?>",
    "broken/cut.htm": "<!DOCTYPE html>\n<title><?setvariable var:a b?>\n<?echo 'never\nended\n",
}


def check_mistakes(preview):
    """Each with its place, on a site that has nothing else."""
    for path, text in MISTAKES.items():
        write("site/" + path, text)
    here = "broken/page.htm:"
    expected = [
        ("error", here + "2:1", "Unknown Cmd"),
        ("error", here + "5:1", "Query failed: no such column: nope"),
        ("error", here + "7:1", "Cannot include 'part.frm': No such file or directory"),
        ("error", here + "8:1", "Cannot include '../../router.db': not below the document root"),
        ("error", here + "11:1", "base64 cannot read '/etc/hostname': not below the document root"),
        ("error", "broken/row.frm:2:1", "Unknown Cmd"),
        ("warning", here + "9:1", "There is no text {?missing.text?}"),
        ("warning", here + "5:1", "There is no column $1 here"),
        ("warning", here + "10:1", "The 1st operand of calc is no number: x"),
        ("warning", here + "12:1", "There is no column $3 here"),
    ]
    got = preview.messages("broken/page.htm?name=Ann")
    check("mistakes", sorted(expected), sorted(got))
    report = preview.report("broken/page.htm", b"name=Ann")
    hints = {message["hint"] for message in report["messages"]}
    check("a hint", True, "The texts have no entry of that id, and the page shows nothing there." in hints)
    check("what a form sets", ("name", "Ann", "the form"), tuple(report["variables"][0][key] for key in ("name", "value", "by")))
    for path, said in (
            ("first", "The page breaks off|The interpreter gave up here, and the rest of the page is lost.|broken/first.htm, "
             "line 1, column 1|<?echo a b?>lost|A command with too many arguments breaks the page off where it is the first thing "
             "in it. Put quotes around its text, or any page text, such as <!DOCTYPE html>, in front."),
            ("cut", "The page breaks off|The template ends inside a command: its ?> is missing.|broken/cut.htm, line 3, column 1|"
             "<!DOCTYPE html>|<title><?setvariable var:a b?>|<?echo 'never|ended|The page up to there|<!DOCTYPE html>\n<title>"),
            ("large", "The page has more than 64 megabytes, and was stopped|It was at the place below.|broken/large.htm, line 2, column 1|"
             f"<!DOCTYPE html>|<?repeat [ 1 9999 ] '{219 * 'x'}|A repeat with a very great number, or one within another, is the usual cause."),
            ("empty", "broken/empty.htm is empty|An empty template makes no page.")):
        status, _, text = preview.ask(f"broken/{path}.htm")
        check(path, (500, True), (status, f"|{said}|Mend it and save: this page loads itself again.|" in words(text)))


# Typical mistakes of authors: where the headline stands, what it says, and the spot that is marked.
CAUSES = [
    ("2:8", "quote that opens here", "'", "<?echo 'Ann?>\n<p>more <?echo b?>\n"),
    ("2:10", "this > has lost its ?", ">", "<?echo a >\n<p>1\n<p>2\n<p>3\n<p>4\n<p>5\n<p title=\"<?echo b?>\">it's</p>\n<?echo 'c'?>\n<?echo d?>\n"),
    ("2:1", "echo has no ?>", "<?echo ", "<?echo a\n<p>\n<?echo b?>\n"),
    ("3:15", "if eq has no ?>, which belongs here", "", "<?if eq $var:user Ann\n  '<b>Ann</b>'\n<p>more\n<?echo c?>\n"),
    ("2:1", "Unknown command: keywords are written in lower case: echo", "<?Echo", "<?Echo a?>\n"),
    ("2:608", "did you mean 'title'", "$var:titel", 600 * "x" + "<?echo $var:titel?><?setvariable var:title x?>\n"),
    ("2:11", "no 'part.frm'", "part.frm", "<?include part.frm?>\n"),
    ("2:1", "did you mean 'greeting'", "{?greting?}", "{?greting?}\n"),
    ("2:17", "no such column: nmae; did you mean 'name'?", "nmae", "<?query 'select nmae from device' '$1'?>\n"),
    ("2:8", "$var:user", "$user", "<?echo $user?>\n"),
    ("2:1", "<?echo $var:NAME?>", "<?=", "<?= $var:user ?>\n"),
    ("2:31", "text with blanks needs quotes", "no", "<?if eq $var:user Ann Lee yes no?>\n"),
    ("2:1", "if eq A B, not A == B", "<?if", "<?if $var:user == Ann yes?>\n"),
    ("2:32", "put between others", "'", "<?if eq $var:user Ann '<a href='x'>y</a>'?>\n"),
    ("2:83", "did you mean $11", "$1", "<?multiquery 'select name from device' "
     "`<?multiquery 'select id from network' '<b>$1</b>'?>`?>\n"),
    ("2:47", "$02p", "$2px", "<?query 'select id, name from device' 'width: $2px'?>\n"),
    ("2:1", "nothing closes the comment", "<?--", "<?-- note\n<p>\n<?echo c?>\n"),
    ("2:23", "between backquotes: Good day", "{?hello?}", "<?if eq $var:user Ann {?hello?}?>\n"),
    ("2:45", "no variable idd is set anywhere, so :idd is NULL", ":idd",
     "<?query 'select name from device where id = :idd' '$1'?>\n"),
    ("2:85", ":id is NULL; a number can stand in the query as $var:id", ":id", "<?setvariable var:id 1?><?echo $var:id?><?query 'select name from device where id = :id'?>\n"),
]


TEXTS = """msgid ""
msgstr "Language: en\\nContent-Type: text/plain; charset=UTF-8\\n"

msgid "greeting"
msgstr "Hi"

msgid "hello"
msgstr "Good day"
"""


def check_causes():
    """Each is told once, by its cause, and its spot is seen on a small screen; the log's words are behind it."""
    for i, row in enumerate(CAUSES):
        write(f"causes/{i}.htm",
              '<!DOCTYPE html><meta name="viewport" content="width=device-width"><title>x</title>\n' + row[-1])
    first = BAR + """const entry = bar.querySelector('.entry');
const mark = entry.querySelector('mark');
return [entry.querySelector('.place').textContent,
mark?.getBoundingClientRect().right < innerWidth && mark.offsetWidth > 2 && mark.textContent,
entry.querySelector('.text').textContent, bar.querySelectorAll('.entry').length]"""
    resize(360, 740)
    with Preview("--port", "0", "--db", "router.db", "--texts", "causes/en.po", "--set", "user=Ann", "causes") as preview:
        for i, (place, words, mark, template) in enumerate(CAUSES):
            show(f"{preview.url}{i}.htm")
            start = f"{i}.htm:{place} "
            said = wait(SAID + f".match(/{i}.htm:[^ ]* /)?.[0]", start)
            check(f"the headline of {template}", start, said)
            tab_to("#badge")
            press(ENTER)
            got = run(first)
            check(template, [f"{i}.htm:{place}", mark, True],
                  [*got[:2], words in got[2] and not re.search("[cC]md", got[2])])
            check(f"told once: {template}", (1, []), (got[3], run(SOUND)))
            press(ESCAPE)
            if "The page breaks off" in (run("return document.body.textContent") or ""):
                check("on the page", [got[2], mark, int(place.split(":")[0])], run("""return [...['.what', 'mark'].map(name =>
document.querySelector(name).textContent), document.querySelector('.here').value]"""))
    resize(1280, 740)


def check_marks():
    """Marks break commands in which a text stands without quotes; they are named as the cause."""
    write("causes/whole.htm", "<!DOCTYPE html><title>x</title><?echo {?greeting?}?><?Echo?><?if eq $var:part own `<?include own.frm?>`?>\n")
    write("causes/own.frm", "\n<?Echo?>")
    write("causes/lost.htm", "<?echo {?greeting?}?>")
    write("causes/failed.htm", "<p><?error message ?></p>")
    said = BAR + "return bar.querySelector('.where').textContent"
    run("sessionStorage.clear()")
    with Preview("--port", "0", "--texts", "causes/en.po", "--error", "no route", "--set", "part=own", "causes") as preview:
        check("--error", True, "<p>no route</p>" in preview.ask("failed.htm")[2])
        show(preview.url + "whole.htm")
        tab_to("#badge")
        press(ENTER)
        run("window.isFormer = true")
        tab_to("#marks")
        press("e")
        check("each is told once", "3no route", wait("if (window.isFormer) return 0;" + BAR + """return bar.querySelectorAll('.entry').length
+ bar.querySelector('#error').value""", "3no route"))
        check("the mistakes of its own", ["own.frm:2:1", "whole.htm:1:53"], sorted(
            entry.split(" ")[0] for entry in run(ENTRIES) if "marks" not in entry))
        press(ESCAPE)
        for page, expected in (("whole", "whole.htm:1:32 The marks for translators break this command"),
                ("lost", "The page breaks off. The marks for translators break this command.")):
            show(f"{preview.url}{page}.htm")
            check(page, expected, wait(said + f".slice(-{len(expected)})", expected))
    check("the badge tells the end", "Preview has ended", wait(said.replace("where", "more"), "Preview has ended"))


def check_site_file():
    """What orv-check.json says needs no option, and counts at once when it is changed."""
    said = """{"docroot": "www", "texts": ["en.po"], "variables": {"set": ["user=Ann", "other"]},
 "databases": {"main": "mak*.sql", "log": "log.db"}, "functions": {"uptime(0)": "number"}}"""
    page = """<!DOCTYPE html><title>x</title><h1>{?hello?} <?echo $var:user?></h1><?query 'select name,
(select n from log.l), uptime() from t' '<p>$1 $2 $3</p>'?>"""
    shutil.copy("causes/en.po", "en.po")
    for path, text in (("orv-check.json", said), ("www/p.htm", page), ("en.po", None), ("make.sql",
                       "create table t (name text); insert into t values ('made');")):
        if text is None:
            os.rename("en.po", "own/en.po")
        else:
            write("own/" + path, text)
    with sqlite3.connect("own/log.db") as db:
        db.executescript("create table l (n); insert into l values (7)")
    for arguments, folder in ((["own"], None), ([], "own"), (["own/www"], None)):
        with Preview("--port", "0", *arguments, cwd=folder, program=[os.path.realpath("bin/orv-preview")]) as preview:
            check(f"{arguments} in {folder}", ([], True), ([line for line in preview.lines if "given" in line],
                  "Good day Ann</h1><p>made 7 0</p>" in preview.ask("p.htm")[2]))
            if folder:
                continue
            said, script = "orv-check.json", "make.sql"
            for path, old, new, shown, line, message in (
                    (said, "Ann", "Bob", "Good day Bob</h1><p>made 7 0</p>", "", None),
                    (said, '"texts"', '"txets"', "Good day Bob</h1><p>made 7 0</p>", ":1", "there is no setting 'txets'"),
                    (said, '"txets"', '"texts"', "Good day Bob</h1><p>made 7 0</p>", "", None),
                    (said, "Bob", "Ann", "Good day Ann</h1>", "", None),
                    (script, "'made'", "'anew'", "<p>anew 7 0</p>", "", None),
                    (script, "insert", "isnert", "<p>anew 7 0</p>", "", 'near "isnert": syntax error'),
                    (script, "isnert", "insert", "<p>anew 7 0</p>", "", None),
                    (script, "'anew'", "'made'", "<p>made 7 0</p>", "", None)):
                start = time.time()
                edit("own/" + path, old, new)
                preview.settle(start)
                told = preview.messages("p.htm")
                check(new, (True, [message and ("error", os.path.realpath("own/" + path) + line)]),
                      (shown in preview.ask("p.htm")[2], [told[0][:2] if told else None]))
                check(f"{new} is told", True, not message or message in told[0][2])
    # A device's own texts; and a preview that has neither of the other programs beside it.
    for path in "device/etc", "device/var", "alone":
        os.makedirs(path)
    subprocess.run(["bin/orv-textdb", "build", "-o", "device/etc/htmltext_en.db", "causes/en.po"], check=True)
    shutil.copy("bin/orv-preview", "alone/orv-preview")
    os.symlink("../etc/htmltext_en.db", "device/var/htmltext.db")
    program = [os.path.realpath("alone/orv-preview")]
    with Preview("--port", "0", "--root", "device", "own/www", program=program, env={**os.environ, "PATH": ""}) as preview:
        check("a device's texts", True, "<h1>Good day" in preview.ask("p.htm")[2])
        check("no orv-check", False, preview.report("p.htm")["checks"])
    with Preview("--port", "0", "--texts", "causes/en.po", "own/www", program=program, env={**os.environ, "PATH": ""}) as preview:
        told = os.path.realpath("causes/en.po"), "orv-textdb, which makes texts of it, is not installed"
        check("no orv-textdb", ("error", *told), preview.messages("p.htm")[0])
        check("told at the start", 1, preview.lines.count(":0: ".join(told)))


def check_stopped(stopped):
    """A run that was ended after 20 seconds tells its query, in the bar as well."""
    stopped.join()
    text = stopped.page[2]
    report = json.loads(re.search(r'id="orv-preview">(.*?)</script>', text, re.S)[1])
    check("the page", (True, True), tuple(part in words(text) for part in (
        "|The page was not done after 20 seconds, and was stopped|", "|Look at the query: tables that nothing joins, or a column "
        "that is compared in each row and has no index, make one slow.|Mend it and save")))
    check("its query", (True, True), tuple(f"It waited for the answer to the query: {ENDLESS}" in said
                                           for said in (text, report["messages"][0]["text"])))
    check("the query's sheet", ("It was not done when the page was stopped.", True),
          (report["queries"][0]["problem"], report["queries"][0]["microseconds"] > 19e6))
    check("its place", ("forever.htm", 2, 1), tuple(report["messages"][0][key] for key in ("file", "line", "column")))


def check_changes(preview):
    """Each change comes to the browser by itself: in place, by a new page, or not at all."""
    show(preview.url + "devices.htm")
    run("scrollTo(0, 150)")
    edit("site/devices.htm", "<table", "<table data-edited")
    check("template", True, wait("return !!document.querySelector('[data-edited]')", True))
    edit("site/texts/en.po", '"Devices"', '"Gadgets"')
    check("text", "Gadgets", wait(TITLE, "Gadgets"))
    run("window.isSame = true")
    sql("update device set name = 'AAA' where id = 1")
    name = "return document.querySelector('tbody').textContent.includes('AAA')"
    check("database", True, wait(name, True))
    check("by a new page, not by the site's own script", False, run("return window.isSame === true"))
    check("scroll position", 150, wait("return scrollY", 150))
    check("nothing is wrong", "badge", run(BADGE))
    edit("site/devices.htm", "<table data-edited", "<?echo?><table")
    check("an error", "badge error", wait(BADGE, "badge error"))
    check("its place", True, bool(re.search(r"devices.htm:\d+", run(SAID))))
    edit("site/devices.htm", "<?echo?>", "<?echo 'mended'?>")
    check("mended", "badge", wait(BADGE, "badge"))
    edit("site/texts/en.po", 'msgstr "Gadgets"', 'msgstr "Gadgets')
    check("a mistake in texts", "badge error", wait(BADGE, "badge error"))
    message = preview.report("devices.htm")["messages"][0]
    with open("site/texts/en.po", encoding="utf-8") as file:
        line = file.read().split("\n").index('msgstr "Gadgets') + 1
    check("its place, and the texts as they were", ("texts/en.po", line, "end-of-line within string", "Gadgets"),
          (*(message[part] for part in ("file", "line", "text")), run(TITLE)))
    edit("site/texts/en.po", 'msgstr "Gadgets', 'msgstr "Gadgets"')
    wait(BADGE, "badge")


def check_reload(preview):
    """A page is loaded again for what it is made of, and keeps what is typed."""
    preview.put({"site/own/page.htm": """<!DOCTYPE html><title>x</title><link rel="stylesheet" href="s.css">
<h1>v1</h1><?include own/piece.frm?><img src="i.svg"><form><input id="a"><textarea name="b"></textarea>
<select name="c"><option>1<option>2</select><label><input type="checkbox" name="d">d</label></form>""",
                 "site/own/piece.frm": "<p>p1", "site/own/s.css": "h1 { color: rgb(1, 2, 3) }",
                 "site/own/i.svg": '<svg xmlns="http://www.w3.org/2000/svg"/>', "site/own/other.htm": "<p>other"})
    show(preview.url + "own/page.htm")
    run("window.isSame = true")
    press(TAB + "typed" + TAB + "more" + TAB + "2" + TAB + " ")
    send("/actions", actions=[{"type": "key", "id": "keys", "actions": [  # with the shift key
        {"type": kind, "value": key} for kind, key in zip(("keyDown", "keyDown", "keyUp", "keyDown", "keyUp", "keyUp"),
                                                          ("\ue008", *4 * (TAB,), "\ue008"))]}])
    press(LEFT)
    typed = """const [a, b, c, d] = document.forms[0].elements;
return [a.value, b.value, c.value, d.checked, document.activeElement.name, b.selectionStart]"""
    expected = ["typed", "more", "2", True, "b", 3]
    check("typed", expected, run(typed))
    color = "return getComputedStyle(document.querySelector('h1')).color"
    same = "return window.isSame === true"
    for what, path, old, new, script, result, is_same in (
            ("a style sheet", "own/s.css", "2, 3", "2, 4", color, "rgb(1, 2, 4)", True),
            ("and again", "own/s.css", "2, 4", "2, 5", color, "rgb(1, 2, 5)", True),
            ("another page", "own/other.htm", "other", "edited", same, True, True),
            ("a piece", "own/piece.frm", "p1", "p2", ANSWER, "p2", False),
            ("a picture", "own/i.svg", "svg ", "svg id='x' ", same, False, False),
            ("the database", None, None, None, same, True, True)):
        run("window.isSame = true")
        start = time.time()
        if path:
            edit("site/" + path, old, new)
        else:
            sql("update device set name = name || '.' where id = 1")
        preview.settle(start)
        check(what, result, wait(script, result))
        check(what + " leaves the page", is_same, wait(same, is_same))
        check(what + " leaves what is typed", expected, wait(typed, expected))
    check("one style sheet", 1, run("return document.querySelectorAll('link').length"))
    os.remove("site/own/piece.frm")
    check("a piece that is gone", "badge error", wait(BADGE, "badge error"))
    write("site/own/piece.frm", "<p>p3")
    check("and is back", "p3", wait(ANSWER, "p3"))


def check_keys(preview):
    """The bar without a mouse."""
    language = "return document.documentElement.lang"
    show(preview.url + "devices.htm")
    tab_to("#badge")
    press(ENTER)
    check("opened", (True, "messages"), (run("scrollTo(0, 99);" + OPEN), run(FOCUS)))
    for keys, tab in ((RIGHT, "queries"), (RIGHT * 2, "variables"), (LEFT, "templates"), (END, "site"),
                      (RIGHT, "messages"), (LEFT, "site"), (HOME, "messages")):
        press(keys)
        check(f"tabs by keys {keys!r}", [tab, tab, 99], run(BAR + """return [bar.activeElement.id,
bar.querySelector('[aria-selected=true]').id, scrollY]"""))
    height = BAR + """return [100 * bar.querySelector('.panel').offsetHeight / innerHeight,
bar.querySelector('#grip').ariaValueNow, scrollY].map(Math.round)"""
    tab_to("#grip")
    grip = run("scrollTo(0, 99);" + BAR + "return bar.activeElement")
    for key, percent in ((UP, 54), (UP, 62), (DOWN, 54), ("drag", 50), (HOME, 95)):
        if key == "drag":
            send("/actions", actions=[{"type": "pointer", "id": "mouse", "actions": [
                {"type": "pointerMove", "x": 0, "y": 0, "origin": grip}, {"type": "pointerDown", "button": 0},
                {"type": "pointerMove", "x": 9, "y": run("return innerHeight / 2")}, {"type": "pointerUp", "button": 0}]}])
        else:
            press(key)
        check(f"height by {key!r}", [percent, percent, 99], run(height))
    tab_to("#language")
    press("d")
    check("language", "de", wait(language, "de"))
    check("the focus stays", "language", wait(FOCUS, "language"))
    check("the height stays", [95, 95], run(height)[:2])
    lose = "addEventListener('beforeunload', () => { document.cookie = `orvtab${location.port}=; path=/; max-age=0`; });"
    for act, shown in (("location.reload()", "detrue"), ("document.body.innerHTML = '<form method=post>'; document.forms[0].submit()", "entrue")):
        run(f"window.isFormer = true; {lose} setTimeout(() => {{ {act} }})")
        bar = "return !window.isFormer && document.documentElement.lang + !!document.querySelector('orv-preview')"
        check(f"without its cookie: {act}", (shown, shown), (wait(bar, shown), press(TAB) or run(bar)))
    show(preview.url + "devices.htm")
    check("what is switched outlives its cookie", "de", wait(language, "de"))
    first = send("/window", "GET")
    send("/window", handle=send("/window/new", type="tab")["handle"])
    show(preview.url + "devices.htm")
    check("another tab", "en", run(language))
    send("/window", "DELETE")
    send("/window", handle=first)
    write("site/german.htm", "<?setvariable var:x 1?><?echo $var:lang?>")
    press(TAB)
    check("what the page fetches", "de", run("return fetch('german.htm').then(answer => answer.text())"))
    run("document.querySelector('.languages [lang=en]').click()")
    check("the page's own link", "en", wait(language, "en"))
    marks = "return document.querySelectorAll('main [title]').length > 5"
    for key, are_shown in (("a", True), ("o", False)):
        tab_to("#marks")
        press(key)
        check("marks", are_shown, wait(marks, are_shown))
    show(preview.url + "overview.htm")
    wait(OPEN, True)
    alert = "return document.querySelector('[role=alert]:not([hidden])')?.textContent.split('work')[1].trim()"
    for keys, text in (("<b>no route</b>" + ENTER, "<b>no route</b>"), (END + BACKSPACE + TAB, "<b>no route</b"),
                       (END + 20 * BACKSPACE + ENTER, None)):
        tab_to("#error")
        press(keys)
        check("error text", text, wait(alert, text))
    tab_to("#queries, #messages")
    press(ENTER)
    tab_to("#error")
    press("not meant" + ESCAPE)
    check("closed", (False, "badge", "badge"), (run(OPEN), run(BADGE), run(FOCUS)))
    show(preview.url + "overview.htm")
    check("what Escape leaves is not taken", None, run(alert))


def check_room(preview):
    """Nothing of the page is covered for good, at any width; the head of the panel takes one row."""
    lines = "".join(f"<p>{i}</p>" for i in range(60))
    preview.put({"site/long.htm": f"""<!DOCTYPE html><meta name="viewport" content="width=device-width">
<title>x</title>{lines}<p id="last">last</p><p style="position: fixed; inset: 0; z-index: 9">over all</p>"""})
    clear = BAR + """scrollTo(0, 1e6); const top = bar.querySelector('.bar').firstElementChild.getBoundingClientRect().top;
return document.getElementById('last').getBoundingClientRect().bottom <= top
&& Math.abs(document.querySelector('orv-preview').offsetHeight - (innerHeight - top)) <= 1"""
    for width, height in ((320, 400), (1280, 740)):
        resize(width, height)
        show(preview.url + "long.htm")
        wait(BADGE, "badge")
        check(f"badge at {width}", (True, []), (run(clear), run(SOUND)))
        device("setEmulatedMedia", media="print")
        check("not on paper", "none", run("return getComputedStyle(document.querySelector('orv-preview')).display"))
        device("setEmulatedMedia", media="")
        tab_to("#badge")
        press(ENTER)
        check(f"panel at {width}", True, wait(clear, True))
        check(f"its head at {width}", (True, width < 600, True, []), (*run(BAR + """return [bar.querySelector('.top').offsetHeight < 50,
bar.querySelector('.second').offsetHeight > 50, bar.querySelector('#close').getBoundingClientRect().right > innerWidth - 30]"""), run(SOUND)))
        press(ESCAPE + TAB + ENTER)
        check(f"put away at {width}", [0, 0], run(BAR + """return [bar.querySelector('.bar').childElementCount,
document.querySelector('orv-preview').offsetHeight]"""))
    show(preview.url + "long.htm")
    check("back with the next page", "badge", wait(BADGE, "badge"))


def check_barriers(preview):
    """An accessibility checker looks at the open panel, each sheet of it reached by keys."""
    for page in ("overview.htm", "broken/cut.htm"):
        show(preview.url + page)
        tab_to("#badge")
        device("setEmulatedMedia", features=[{"name": "prefers-color-scheme", "value": "dark"}])
        check(f"{page} closed", [True], find_barriers(axe) + run(SOUND))
        device("setEmulatedMedia", features=[])
        press(ENTER + HOME)
        for _ in range(6):
            check(f"{page} {run(FOCUS)}", [True], find_barriers(axe) + run(SOUND))
            press(RIGHT)
        press(HOME + ESCAPE)


def check_findings(preview):
    """What orv-check finds in the templates of the shown page, and in others."""
    preview.put({"site/piece.frm": "<?echo $var:hostnmae?>", "site/misspelt.htm":
                 "<!DOCTYPE html>\n<?include ./piece.frm?><?if eq $var:lang xx `<?echo $var:xyzzy?>`?>\n"})
    show(preview.url + "misspelt.htm")
    check("counted", "2 errors", wait(SAID + ".slice(0, 8)", "2 errors"))
    check("its badge", ("badge error", "Show"), (run(BADGE), run(BAR + "return bar.querySelector('.more').textContent")))
    tab_to("#badge")
    press(ENTER)
    check("told", ["misspelt.htm:2:53 $var:xyzzy is not set anywhere", "piece.frm:1:8 $var:hostnmae is not set anywhere"],
          sorted(entry.split(";")[0] for entry in run(ENTRIES)))
    check("included", "Included at misspelt.htm:2:1", run(BAR + """return [...bar.querySelectorAll('.hint')]
.map(hint => hint.textContent).find(text => text.startsWith('Included'))"""))
    press(END)
    other = run(ENTRIES)
    check("elsewhere", [], [entry for entry in other if re.match("misspelt|piece", entry)])
    check("by their causes, as a page's own", ["Unknown command: keywords are written in lower case: echo"],
          [entry.split(" ", 1)[1] for entry in other if entry.startswith("broken/row.frm:2:1 ")])
    check("without the log's words", [], [entry for entry in other if re.search("[cC]md|Too few", entry)])
    press(HOME + ESCAPE)


def check_editor():
    """A click on a place opens the author's editor there."""
    write("edited/a b.htm", "<!DOCTYPE html>\n<title>x</title><?ehco a?>" + POLICY)
    write("bin/edit", f"""#!/bin/sh
printf '%s ' "$@" $(($(cut -d' ' -f5 /proc/$$/stat) == $$)) $(sed -n 's/SigBlk:.//p' /proc/self/status) >{os.getcwd()}/told.new
mv {os.getcwd()}/told.new {os.getcwd()}/told
""")
    os.chmod("bin/edit", 0o755)
    for name in "vim", "code", "x-terminal-emulator":
        os.symlink("edit", "bin/" + name)
    path = os.path.realpath("edited/a b.htm")
    env = {**os.environ, "PATH": os.path.realpath("bin") + ":" + os.environ["PATH"], "DISPLAY": ""}
    for args, variables, told in (
            (["--editor", "edit -x '{line} {column}' {file}"], {}, f"-x 2 17 {path} "),
            ([], {"VISUAL": "code -n", "EDITOR": "edit"}, f"-n -g {path}:2:17 "),
            ([], {"VISUAL": "", "EDITOR": "edit"}, f"{path} ")):
        with Preview("--port", "0", *args, "edited", env={**env, **variables}) as preview:
            show(preview.url + "a%20b.htm")
            wait(SAID + ".slice(0, 7)", "1 error")
            tab_to("#badge")
            press(ENTER)
            tab_to("button.place")
            press(ENTER)
            check("opened", "Opened in the editor.", wait(STATUS, "Opened in the editor."))
            wait(os.path.exists, True, "told")
            with open("told", encoding="utf-8") as file:
                # Ctrl-C in the preview's terminal is not the editor's; and no signal is held back.
                check(f"{args} {variables}", f"{told}1 {0:016x} ", file.read())
            os.remove("told")
            preview.ask(".orv-preview/open", b"file=../bin/edit&line=1")  # not of the site
            press(ESCAPE)
    check("nothing else is opened", False, os.path.exists("told"))
    with Preview("--port", "0", "--editor", "vim", "edited", env={**env, "DISPLAY": ":0"}) as preview:
        preview.ask(".orv-preview/open", b"file=a+b.htm&line=2")
        wait(os.path.exists, True, "told")
        with open("told", encoding="utf-8") as file:
            check("in a terminal's window", f"-e {os.path.realpath('bin')}/vim +2 {path}", file.read().rsplit(" ", 3)[0])
    for editor, said, link in (
            ("vim", ["'vim' needs the window of a terminal"], None),
            ("nothere", ["'nothere' is not installed"], None),
            ("vscode://file{file}:{line}:{column}", [], f"vscode://file{path}:2:17".replace(" ", "%20"))):
        with Preview("--port", "0", "--editor", editor, "edited", env=env) as preview:
            check(editor, said, [part for line in preview.lines for part in said if part in line])
            show(preview.url + "a%20b.htm")
            wait(SAID + ".slice(0, 7)", "1 error")
            tab_to("#badge")
            press(ENTER)
            check(editor, link, run(BAR + "return bar.querySelector('a.place')?.href"))
            if link:
                tab_to("a.place")
                press(ENTER)  # the last key: a question of the browser's takes others
                edit("edited/a b.htm", "<title>x", "<title>y")
                check("what is saved there is shown", "y", wait("return document.title", "y"))
            press(ESCAPE)


TOLD = {"t.htm": """<!DOCTYPE html><title>{?hello?}</title><?setvariable var:a 1?><?setvariableonce var:a 2?>
<?include t.frm?><?include nothere.frm?>{?hello?} {?nowhere?}<?setvariable var:b ''?>
<?multiquery 'select 1 as one, null as none, "" as empty' '$1'?>
<?query 'select 2 where 2 = :id or 2 = :a or 2 = :no or 2 = :void' '$1'?>
<?query 'select 2' '$1'?><?query 'select 2' '$1'?><?query 'select nope' '$1'?><?multiquerycount 'select 4'?>
<?multiquery 'select id from device where id < 23' '$1 '?>
<?multiquery 'select id from network where id < 3' `<?include u.frm?>`?>
<?querytext 'with recursive c(i) as (select 1 union all select i + 1 from c where i < 1500000) select max(i) from c'?>
""", "t.frm": "{?greeting?}<?include u.frm?><?repeat [ 1 3 ] `<?calc + x 1?>`?>", "u.frm": "u<?setvariable var:c[1] <b>?>",
        "plain.htm": "<!DOCTYPE html><title>x</title>"}
HEAD = ("section orv-preview|Drag, or press the arrow keys: makes the panel taller or lower|div Height of the panel|div Sheets|"
        "Close (Escape)|button Close|Each piece of a page is a write call of its own, unless the web program gathers them.|Language|default|de|de|en|en|"
        "Marks|off|0|as tooltips|1|everywhere|2|Error|What the page's error commands find. Enter shows it.|none")
SHEETS = [  # what each says whole, but for its times
    ("queries", "Queries11", "11 queries in T. Open one to see its rows. select 1 as one, null as none, \"\" as empty 1 row T "
     "t.htm:3:1 $0 $1 one $2 none $3 empty 0 1 NULL select 2 where 2 = :id or 2 = :a or 2 = :no or 2 = :void 0 rows T "
     "t.htm:4:1 Parameter Value Set by :id 3 the address :a NULL a template, which counts for templates alone "
     ":no NULL nobody :void empty the address No rows. select 2 asked 2 times 1 row T t.htm:5:1 $0 $1 2 0 2 "
     "select 2 asked 2 times 1 row T t.htm:5:26 $0 $1 2 0 2 select nope failed T t.htm:5:51 no such column: nope "
     "select 4 1 row T t.htm:5:79 Only counted. select id from device where id < 23 22 rows T t.htm:6:1 $0 $1 id "
     + " ".join(f"{i} {i + 1}" for i in range(20)) + " and 2 more rows select id from network where id < 3 2 rows T "
     "t.htm:7:1 $0 $1 id 0 1 1 2" + " select id from network where id < 3 again 2 rows T t.htm:7:1 $0 $1 id 0 1 1 2" * 2
     + " with recursive c(i) as (select 1 union all select i + 1 from c where i < 1500000) select max(i) from c slow 1 row T "
     "t.htm:8:1 $0 $1 max(i) 0 1500000", "This page asks for no data."),
    ("templates", "Includes6", "Template Included in Time, with its own includes t.htm the page T .└ t.frm t.htm:2:1 T ..└ u.frm "
     "t.frm:1:13 T .└ nothere.frm t.htm:2:18 No such file or directory .└ u.frm t.htm:7:53 T .└ u.frm t.htm:7:53 T",
     "Template Included in Time, with its own includes plain.htm the page T"),
    ("variables", "Variables11", "Variable Value Set by user Ann --set lang de the language switch lang de the address id 3 the "
     "address void empty the address a 1 t.htm:1:40 a 2 t.htm:1:63 (it kept its former value) c[1] <b> u.frm:1:2 b empty "
     "t.htm:2:62 c[1] <b> u.frm:1:2 c[1] <b> u.frm:1:2", "Variable Value Set by user Ann --set"),
    ("texts", "Texts2", "4 text fields, 2 texts that the language lacks: Text Used in What the page shows {?nowhere?} t.htm:2:51 "
     "nothing: no language has it {?greeting?} t.frm:1:1 the text of the fallback", "This page has no text fields."),
    ("site", "Other pages0", "orv-check finds nothing wrong in what this page does not use.", None),
    ("messages", "Messages13", "WARNING t.frm:1:57 'x' is no number: nothing is printed 3 times 1 {?greeting?}<?include u.frm?><?repeat "
     "[ 1 3 ] `<?calc + x 1?>`?> Included at t.htm:2:1 [calc-number] · t.frm, near line 1: Warning: 1st operator x of calc "
     "is no valid number in current context", "Nothing to report: every command of this page did what it was asked.")]


def check_sheets():
    """All that a page's sheets say, of a page that has some of each and of one that has nothing."""
    for path, text in TOLD.items():
        write("sheets/" + path, text)
    with open("causes/en.po", encoding="utf-8") as file:
        write("causes/de.po", file.read().replace(": en", ": de").replace("greeting", "other"))
    said = BAR + """return bar.querySelector('.sheet').innerText.replace(/(?<![0-9.])([0-9]{1,3} µs|[0-9][.][0-9] ms|[0-9]{2,} ms)/g, 'T').replace(/\\u00a0{4}/g, '.').replace(/\\s+/g, ' ')"""
    run("sessionStorage.clear()")
    with Preview("--port", "0", "--db", "router.db", "--texts", "causes/en.po", "--texts", "causes/de.po", "--set", "user=Ann",
                 "sheets") as preview:
        for page, own in (("t.htm?lang=de&id=3&void=", True), ("plain.htm", False)):
            show(preview.url + page)
            if own:
                wait(SAID + ".slice(0, 5)", "7 err")
            tab_to("#badge")
            press(ENTER + HOME + RIGHT)
            if own:
                tab_to("summary")
                press(ENTER)
                check("words of its head", HEAD, run(BAR + """return [...bar.querySelectorAll('.bar *')].filter(one => !one.closest(
'.sheet')).flatMap(one => [one.title, one.ariaLabel && `${one.localName} ${one.ariaLabel}`, one.placeholder, one.matches('option, label') && one.firstChild.data, one.index >= 0 && one.value])
.filter(Boolean).join('|')"""))
                check("opened", [1, "italic"], run(BAR + """return [bar.querySelectorAll('details[open]').length,
getComputedStyle(bar.querySelector('.null')).fontStyle]"""))
            wait(BAR + "return bar.querySelector('#site .number').textContent !== '0'", not own)
            tab_to("[aria-selected=true]")
            press(HOME + RIGHT)
            for sheet, number, text, nothing in SHEETS:
                run(BAR + "bar.querySelectorAll('details').forEach(one => { one.open = true; })")
                if own and sheet == "messages":
                    check("their order", "2:28 2:51 4:29 5:67 4:40 4:50 4:61".split(), [entry.split(" ")[0][6:] for entry in run(ENTRIES)][:7])
                    check("lines of the template", ["pre", True], run(BAR + """const style = getComputedStyle(
bar.querySelector('.source div')); return [style.whiteSpace, style.fontFamily.includes('monospace')]"""))
                    check("kinds are told apart", [3, 3], run(BAR + """return [['.number', 'backgroundColor'], ['.entry', 'borderLeftColor']]
.map(([name, kind]) => new Set([...bar.querySelectorAll(name)].map(one => getComputedStyle(one)[kind])).size)"""))
                    check("an entry", True, text in run(BAR + """return [...bar.querySelectorAll('.entry')].map(entry =>
[...entry.childNodes].map(part => (part.innerText ?? part.data).replace(/\\s+/g, ' ')).join(' '))"""))
                elif own or nothing:
                    check(sheet, (sheet, text if own else nothing), (run(FOCUS), run(said)))
                if own:
                    check(f"tab of {sheet}", (number, []), (run(BAR + f"return bar.querySelector('#{sheet}').textContent"), run(SOUND)))
                press(RIGHT)
            check("all of it", "t.htm: 128 bytes in 63 write calls, T" if own else "plain.htm: 31 bytes in 1 write call, T",
                  run(said.replace("sheet", "second .soft")))
            press(ESCAPE)
            run("sessionStorage.clear()")
        for kind in "css js mjs json webmanifest txt csv xml svg png jpg jpeg gif webp woff woff2 ttf otf pdf mp3 mp4 webm wasm".split():
            write("sheets/x." + kind, "")
            check(f"files that end in {kind}", mimetypes.guess_type("x." + kind)[0], preview.ask("x." + kind)[1].split(";")[0])


def check_fetch(preview):
    """What a page's script fetches is what the device sends."""
    write("site/status.htm", '{"names": [<?multiquery "select id from network where id < 3" \'"$1",\'?>0]}')
    show(preview.url + "overview.htm")
    check("as JSON", {"names": ["1", "2", 0]}, run("return fetch('status.htm').then(answer => answer.json())"))
    check("a missing one, by the older call", False, run("""const request = new XMLHttpRequest();
request.open('GET', 'nothere.htm', false);
request.send();
return request.responseText.includes('bar.js')"""))


def children(pid):
    with open(f"/proc/{pid}/task/{pid}/children", encoding="ascii") as file:
        return file.read().split()


def streams(preview):
    """How many requests the preview's server is at."""
    return sum(len(children(child)) for child in children(preview.process.pid))


def asked_by(preview, page):
    """The process of the preview's server that is at a page; None where there is none."""
    for server in children(preview.process.pid):
        for pid in children(server):
            try:
                with open(f"/proc/{pid}/environ", encoding="utf-8", errors="replace") as file:
                    if page in file.read():
                        return int(pid)
            except OSError:
                pass  # it has ended
    return None


def stop_at_once(preview, page):
    """Has a page's time be over, and the patience that comes then."""
    while not (pid := asked_by(preview, page)) or processor_time(pid) < 0.5:
        time.sleep(0.01)
    for _ in range(2):
        os.kill(pid, signal.SIGALRM)
        time.sleep(0.3)


def processor_time(pid):
    """In seconds."""
    with open(f"/proc/{pid}/stat", encoding="utf-8") as file:
        return sum(map(int, file.read().rsplit(")", 1)[1].split()[11:13])) / os.sysconf("SC_CLK_TCK")


def check_many(preview):
    """Many pages at once, in frames and in tabs, take one connection of the browser's."""
    preview.put({"site/many.htm": """<!DOCTYPE html><title>x</title><h1>many</h1>
<?repeat [ 1 8 ] `<iframe src="<?if eq $0 1 policy?><?if neq $0 1 one?>.htm"></iframe>`?>""",
                 "site/one.htm": "<!DOCTYPE html><title>x</title><h1>v1</h1>",
                 "site/policy.htm": f"<!DOCTYPE html><title>x</title>{POLICY}<h1>v1</h1>"})
    show(preview.url + "many.htm")
    frames = """return Array.from(frames).map(({document: page}) =>
page.querySelector('h1')?.textContent + !!page.querySelector('orv-preview')).join()"""
    check("frames", ",".join(8 * ["v1true"]), wait(frames, ",".join(8 * ["v1true"])))
    run("window.isSame = true")
    edit("site/one.htm", "v1", "v2")
    check("frames again", ",".join(["v1true"] + 7 * ["v2true"]), wait(frames, ",".join(["v1true"] + 7 * ["v2true"])))
    check("their page stays", True, run("return window.isSame === true"))
    first, tabs = send("/window", "GET"), []
    for _ in range(7):
        tabs.append(send("/window/new", type="tab")["handle"])
        send("/window", handle=tabs[-1])
        show(preview.url + "policy.htm")
        check("tab", "badge", wait(BADGE, "badge"))
    check("one stream for all", 1, wait(streams, 1, preview))  # pages have their own requests
    # A page that is stopped in the midst of something that nothing interrupts has no report.
    preview.put({"site/endless.htm": f"""<?querytext "select printf('%.*c', 1000000, 'a') like '%' || printf('%.*c', 49000, 'a')
|| 'b'"?>"""})
    stopping = threading.Thread(target=stop_at_once, args=(preview, "endless.htm"))
    stopping.start()
    show(preview.url + "endless.htm")
    stopping.join()
    said = "The page was not done after 20 seconds, and was stopped."
    check("a page that was stopped", (said, "It was at endless.htm, line 2. A repeat with a very great number, or a slow query, is the "
          "usual cause."), (run(TITLE), run(ANSWER)))
    write("site/endless.htm", "<!DOCTYPE html><h1>short</h1>")
    check("and is whole now", "short", wait(TITLE, "short"))
    show(preview.url + "policy.htm")
    edit("site/policy.htm", "<h1>v1", "<h1>v2")
    for tab in tabs:
        send("/window", handle=tab)
        check("tab again", "v2", wait(TITLE, "v2"))
        send("/window", "DELETE")
    send("/window", handle=first)


SLOW = "with recursive c(i) as (select 1 union all select i + 1 from c where i < 600000) select 1 from c where i < 0"


def hold(preview, page, change=None):
    """A thread that holds a page up for seven seconds more once it is made; something changes meanwhile."""
    def act():
        deadline = time.monotonic() + 20
        while not (pid := asked_by(preview, page)) and time.monotonic() < deadline:
            time.sleep(0.01)
        os.kill(pid, signal.SIGSTOP)
        if change:
            edit(*change)
        time.sleep(7)
        os.kill(pid, signal.SIGCONT)
    holding = threading.Thread(target=act)
    holding.start()
    return holding


def check_leaving(preview):
    """A file that is saved while a link's page is made does not hold up the link."""
    preview.put({"site/slow.htm": f"<h1>slow</h1><?query '{SLOW}' x?>",
                 "site/link.htm": "<!DOCTYPE html><h1>v1</h1><a href='slow.htm'>slow</a>"})
    show(preview.url + "link.htm")
    holding = hold(preview, "slow.htm", ("site/link.htm", "v1", "v2"))
    press(TAB + ENTER)
    check("left", ("slow", False), (wait(TITLE, "slow"), holding.is_alive()))


def check_waiting(preview):
    """What is done on a page while it is loaded again, which takes long, is not lost; nor is it begun anew."""
    preview.put({"site/wait.htm": f"<?query '{SLOW}' x?><!DOCTYPE html><title>x</title><h1>v1</h1><form><input></form>"})
    show(preview.url + "wait.htm")
    tab_to("#badge")
    press(ENTER + HOME)
    run("document.querySelector('input').focus()")
    press("x")
    holding = hold(preview, "wait.htm")
    edit("site/wait.htm", "v1", "v2")
    keys = [{"type": kind, "value": key} for key in "yz" + TAB * 2 + RIGHT + TAB * 3 + "a" for kind in ("keyDown", "keyUp")]
    send("/actions", actions=[{"type": "key", "id": "keys", "actions": [{"type": "pause", "duration": 2000}, *keys]}])
    check("it comes", ("v2", False), (wait(TITLE, "v2"), holding.is_alive()))
    left = BAR + """return [document.querySelector('input').value, bar.activeElement?.id,
bar.querySelector('[aria-selected=true]').id, bar.querySelector('#marks').value]"""
    check("as it was left", ["xyz", "marks", "queries", "1"], wait(left, ["xyz", "marks", "queries", "1"]))
    press("o")
    wait(left, ["xyz", "marks", "queries", "0"])
    press(ESCAPE)


def check_alone(preview):
    """In a browser without shared workers."""
    preview.put({"site/policy.htm": f"<!DOCTYPE html><title>x</title>{POLICY}<h1>v1</h1>"})
    show(preview.url + "policy.htm")
    check("no workers", "undefined", run("return typeof SharedWorker"))
    device("setFocusEmulationEnabled", enabled=False)
    send("/window/minimize")
    wait("return document.hidden", True)
    edit("site/policy.htm", "<h1>v1", "<h1>v2")  # the policy lets it open no other stream
    send("/window/rect", width=1000, height=700)
    check("changed", "v2", wait(TITLE, "v2"))
    preview.put({"site/alone.htm": "<!DOCTYPE html><title>x</title><h1>v1</h1>"})
    show(preview.url + "alone.htm")  # without a policy
    send("/window/minimize")
    wait("return document.hidden", True)
    edit("site/alone.htm", "v1", "v2")  # a change is sent to nobody
    check("out of sight, a page gives its stream back", 0, wait(streams, 0, preview))
    send("/window/rect", width=1000, height=700)
    check("seen again, it is a new one", ("v2", 1), (wait(TITLE, "v2"), wait(streams, 1, preview)))


def check_typing():
    """Findings that come while the bar is used: the check waits for its list until then."""
    os.mkfifo("bin/names")
    os.symlink("bin/names", "names")
    write("typed/t.htm", "<!DOCTYPE html><title>x</title><h1>v1</h1><p><?error found ?></p><?echo $var:nope?>")
    number = BAR + "return bar.querySelector('#messages .number').textContent"
    sheet = BAR + "return bar.querySelector('.sheet').textContent"
    with Preview("--port", "0", "--set-from", "names", "--editor", "edit://{file}", "typed") as preview:
        show(preview.url + "t.htm")
        tab_to("#badge")
        write("bin/names", "other")
        check("findings come late", "1 error", wait(SAID + ".slice(0, 7)", "1 error"))
        press(ENTER)
        check("the badge has kept the focus", True, run(OPEN))
        edit("typed/t.htm", "v1</h1>", "v2</h1><?ehco a?>")
        check("none of the former file", ("v2", "1"), (wait(TITLE, "v2"), wait(number, "1")))
        tab_to("a.place")
        place = run(BAR + "return bar.activeElement.textContent")
        write("bin/names", "other")
        check("findings come late again", "2", wait(number, "2"))
        check("its place has kept the focus", place, run(BAR + "return bar.activeElement?.textContent"))
        tab_to("#messages")
        press(END)
        tab_to("#error")
        press("no route")
        edit("typed/t.htm", "v2", "v3")
        wait(TITLE, "v3")
        check("at work", "orv-check is at work.", run(sheet))
        write("bin/names", "other")
        done = "orv-check finds nothing wrong in what this page does not use."
        check("the open sheet has them", done, wait(sheet, done))
        press(ENTER)
        typed = BAR + "return document.querySelector('p').textContent + bar.querySelector('#error').value"
        check("typed before and after", "1no route", wait(typed, "1no route"))
        edit("typed/t.htm", "v3</h1><?ehco a?>", "v4</h1>")
        wait(TITLE, "v4")
        while len(children(preview.process.pid)) < 2:
            time.sleep(0.01)
        os.kill(int(children(preview.process.pid)[-1]), signal.SIGKILL)
        tab_to("#messages, #site")
        press(END)
        ended = "orv-check has found nothing out: it has ended before its time"
        check("a check that has failed", ended, wait(sheet, ended))
    check("the page outlives it", "Preview has ended", wait(STATUS, "Preview has ended"))
    press(ESCAPE)
    edit("typed/t.htm", "v4", "v5")
    with http.server.HTTPServer(("127.0.0.1", preview.port), http.server.BaseHTTPRequestHandler) as other:
        other.handle_request()  # a stream that is refused ends; it is tried again
    with Preview("--port", str(preview.port), "typed"):
        check("and finds the next one", "v5", wait(TITLE, "v5"))


def check_troubles(preview):
    """Where there is no page, the badge says why."""
    for path, said in (("broken/first.htm", "broken/first.htm:1:10 "),
                       ("broken/cut.htm", "broken/cut.htm:3:1 "),
                       ("broken/two.htm", "broken/two.htm:2:1 "),
                       ("broken/empty.htm", "broken/empty.htm is empty."),
                       ("nothere.htm", "There is no page nothere.htm."),
                       ("overview.htm?a%5Bb%5D=1", "The request is refused.")):
        show(preview.url + path)
        expected = ["badge error", said]  # once the checker has had its say
        check(path, (expected, []), (wait(BAR + f"""return [bar.querySelector('.badge').className,
bar.querySelector('.where').textContent.slice(0, {len(said)})]""", expected), run(SOUND)))


def check_pages(preview):
    """Pages that make it hard, by their policy, style, unclosed elements or base."""
    wild = """<base href="http://127.0.0.1:9/"><style>* {
color: rgb(1, 2, 3) !important } html > * {
display: none !important; opacity: .1; top: 0 !important }</style>"""
    form = """<form method="post" action="form.htm"><input name="who" aria-label="who" value="Ann"></form>
<p><?echo $var:who?></p><div style="width: 3000px; height: 3000px"></div>"""
    run("sessionStorage.clear()")
    pages = (("policy", POLICY, ""), ("wild", wild, ""), ("form", "", form),
             ("text", "", "<textarea>"), ("comment", "", "<!-- <p>"), ("tag", "", "<a href=\"x"))
    preview.put({f"site/{name}.htm": f"<!DOCTYPE html>\n<title>x</title>{head}<h1>v1</h1>{body}\n" for name, head, body in pages})
    for name, *_ in pages:
        show(f"{preview.url}{name}.htm")
        is_open = name in ("text", "comment", "tag")
        expected = "badge error" if is_open else "badge"
        check(name, expected, wait(BADGE, expected))
        check(f"{name}: nothing of the bar's is in the page", 0, run(
            "return document.querySelectorAll('script, #orv-preview').length"))
        check(f"{name}: seen, in its own style", (f"rgb({'255, 255, 255' if is_open else '232, 235, 241'})", []),
              (run(BAR + "return getComputedStyle(bar.querySelector('.badge')).color"), run(SOUND)))
        if name == "form":
            run("setTimeout(() => document.forms[0].submit())")
            check("a form", "Ann", wait(ANSWER, "Ann"))
            wait(BADGE, "badge")
            run("scrollTo(7, 9)")
        edit(f"site/{name}.htm", "v1", "v2")
        check(f"{name}: changed", "v2", wait(TITLE, "v2"))
        if name == "form":
            check("the form is not sent again", "", run(ANSWER))
            check("the page is where it was", [7, 9], wait("return [scrollX, scrollY]", [7, 9]))
    known = re.compile("inline style|favicon|status of (400|404|500)")
    check("complaints", [], [line for line in
                             (entry["message"] for entry in send("/se/log", type="browser"))
                             if not known.search(line)])


def check_hardships():
    """A database that comes late and one that is locked, a folder that goes and comes back."""
    with Preview("--port", "0", "--db", "later.db", "site") as preview:
        def first():
            return preview.messages("overview.htm")[0][2].split(": ", 1)[-1]
        check("a missing database", "No such file or directory", first())
        os.mkdir("later.db")
        check("a folder", "unable to open database file", first())
        os.rmdir("later.db")
        shutil.copy("router.db", "later.db")
        preview.until("later.db")
        check("it has come", 0, len([m for m in preview.messages("overview.htm") if m[0] == "error"
                                     and not re.search("htmltext|second language", m[2])]))
        with sqlite3.connect("later.db", isolation_level=None, check_same_thread=False) as db:
            db.execute("begin exclusive")
            check("it is locked", "database is locked", first())
            threading.Timer(0.2, db.execute, ["rollback"]).start()
            check("not for long", False, first() == "database is locked")
        with Preview("--port", "0", "causes") as other:
            check("how to add them", ["A database and texts are not given: add --db FILE and --texts en.po, or say it in "
                "orv-check.json, which orv-check --init writes."], [line for line in other.lines if "given" in line])
        check("another preview leaves it", 200, preview.ask("overview.htm")[0])
        os.rename("site", "away")
        preview.until("it is shown again when it is back.")
        status, _, text = preview.ask("overview.htm")
        check("the folder is gone", (503, True, True), (status, "<h1>The folder is gone</h1>" in text,
                                                        "When it is back, this page shows it" in text))
        check("nothing more is told", [], select.select([preview.process.stdout], [], [], 1)[0])
        os.rename("away", "site")
        preview.until("The folder is back.")
        check("the folder is back", 200, preview.ask("overview.htm")[0])
        start = time.time()
        os.makedirs("site/new/deep")
        preview.settle(start)
        write("site/new/deep/new.htm", "new")
        preview.until("Changed: new/deep/new.htm")
        here = os.getcwd()
        check("all that is told", [
            f"orv-preview shows {here}/site to the browsers of this machine alone; it is no server for a device.",
            f"The database {here}/later.db cannot be read (No such file or directory): queries fail until it can.",
            "Texts are not given: add --texts en.po, or say it in orv-check.json, which orv-check --init writes.",
            preview.url + " - Ctrl-C ends it.", f"The folder {here}/site is gone; it is shown again when it is back.",
            "The folder is back."], [line for line in preview.lines if not line.startswith("Changed: ")])
        open_files = [os.readlink(path) for path in glob.glob(f"/proc/{preview.process.pid}/fd/*")]
        check("one watch", 1, open_files.count("anon_inode:inotify"))
        events = urllib.request.urlopen(preview.url + ".orv-preview/events", timeout=20)
    try:
        told = events.read()
    except http.client.IncompleteRead as ended:  # with the server
        told = ended.partial
    check("open pages are told of the start, and that the folder goes and comes", 3, told.count(b'"all":true'))
    check("nothing is left", [], [name for name in os.listdir(tempfile.gettempdir())
                                  if not name.startswith("org.chromium.")])
    with Preview("--port", str(preview.port), "site") as preview:
        check("a second start", 200, preview.ask("")[0])
    for cause, calls, said in (
            (errno.ENOSYS, (289, 294), "Changes cannot be watched (Function not implemented): load pages again by hand."),
            (errno.ENOSPC, (254,), "There are too many folders to watch all: load some pages again by hand.")):
        with Preview("--port", "0", "site", preexec_fn=lambda: refuse_calls(cause, calls)) as preview:
            check("changes that cannot be watched", (1, 200), (preview.lines.count(said), preview.ask("overview.htm")[0]))


def refuse_calls(cause, calls):
    """Lets calls fail in this process: signalfd4() and inotify_init1() as kernels without them do, or
    inotify_add_watch() as where there are too many already. They have the numbers of x86-64."""
    others = {"x86_64": {}, "aarch64": {289: 74, 294: 26, 254: 27}}[platform.machine()]
    rules = [(0x20, 0, 0, 0)]  # load the call's number; if it is one, fail
    for number in calls:
        rules += [(0x15, 0, 1, others.get(number, number)), (0x06, 0, 0, 0x50000 | cause)]
    rules.append((0x06, 0, 0, 0x7fff0000))
    code = ctypes.create_string_buffer(b"".join(struct.pack("HBBI", *rule) for rule in rules))
    filters = struct.pack("HP", len(rules), ctypes.addressof(code))
    libc = ctypes.CDLL(None, use_errno=True)
    if libc.prctl(38, 1, 0, 0, 0) != 0 or libc.prctl(22, 2, filters, 0, 0) != 0:
        raise OSError(ctypes.get_errno(), "no filter for system calls")


def folders():
    return len([name for name in os.listdir(tempfile.gettempdir()) if name.startswith("orv-")])


def is_served(preview):
    with socket.socket() as link:
        return link.connect_ex(("127.0.0.1", preview.port)) == 0


def check_ends():
    """Whatever ends it, the server ends too; and the next start removes what is left."""
    root = os.path.realpath(site + "/../..")
    os.makedirs("project/build/demo")
    for name in "scripts", "examples":
        os.symlink(f"{root}/{name}", f"project/{name}")
    shutil.copy(root + "/demo.sh", "project/demo.sh")
    os.symlink(os.path.realpath("bin"), "project/build/demo/tools")  # all is built already
    os.symlink("/bin/true", "bin/cmake")
    options = {"env": {**os.environ, "PATH": os.path.realpath("bin") + ":" + os.environ["PATH"]}}
    with contextlib.suppress(OSError):  # another program may have it
        busy = socket.create_server(("127.0.0.1", 8080))
    for program, number, status, left in (
            ("bin/orv-preview --port 0", signal.SIGHUP, 0, 0),
            ("project/demo.sh --preview", signal.SIGTERM, 0, 0),
            ("project/demo.sh --preview --port 0", signal.SIGKILL, -9, 1),
            ("nohup bin/orv-preview --port 0", signal.SIGINT, 0, 0),
            ("bin/orv-preview --port 0", None, 2, 0)):
        preview = Preview(program=program.split(), **options)
        said = f"Port 8080 is in use by another program; {preview.port} is taken instead."
        check("folders, and another port", (1, "--port" not in program), (folders(), said in preview.lines))
        if program.startswith("nohup"):
            preview.process.send_signal(signal.SIGHUP)
            time.sleep(0.3)
            check("nohup", None, preview.process.poll())
        if number:
            preview.process.send_signal(number)
        else:
            os.kill(int(children(preview.process.pid)[0]), signal.SIGTERM)
        check(f"{program} is ended by {number}", (status, left), (preview.process.wait(10), folders()))
        check("nobody serves", False, wait(is_served, False, preview))


def is_wanted(step):
    return not only or step.__name__ in only


def take(*steps, given=()):
    for step in filter(is_wanted, steps):
        step(*given)


def of_demo_site():
    return Preview("--port", "0", "--db", "router.db", "--texts", "site/texts/en.po", "--texts", "site/texts/de.po",
                   "--set-from", names, "site")


def preview_keys():
    with of_demo_site() as started:
        check_mistakes(started)
        with_browser(lambda: take(check_keys, check_room, check_barriers, check_findings, given=[started]))


def preview_one():
    """On one preview, while its site changes."""
    with of_demo_site() as started:
        check("all is watched, at any port", ([], True), ([line for line in started.lines if "by hand" in line], started.port > 8100))
        endless = Stopped(started) if is_wanted(check_stopped) else None
        check_files(started)
        check_mistakes(started)
        with_browser(lambda: take(check_changes, check_reload, check_troubles, check_fetch, check_pages,
                                  check_many, given=[started]))  # counts streams: no page is at work any more
        if endless:
            check_stopped(endless)


def preview_slow():
    """Pages that take long, and others in a browser without shared workers."""
    with of_demo_site() as started:
        with_browser(lambda: take(check_leaving, check_waiting, given=[started]))
        with_browser(lambda: take(check_alone, given=[started]), "--disable-blink-features=SharedWorker")


def preview_others():
    """Each on a preview of its own."""
    with_browser(lambda: take(check_causes, check_sheets, check_marks, check_typing, check_editor))


def preview_hardships():
    """Without a browser."""
    check_refusals()
    take(check_site_file, check_hardships, check_ends)


only = os.environ.get("STEPS", "").split()
programs = [os.path.realpath(path) for path in sys.argv[1:4]]
site, names, axe = (os.path.realpath(path) for path in sys.argv[4:7])
install_axe(axe)
with tempfile.TemporaryDirectory() as folder, tempfile.TemporaryDirectory() as tempfile.tempdir:
    os.environ["TMPDIR"] = tempfile.tempdir
    os.chdir(folder)
    os.mkdir("bin")
    shutil.copy(programs[0], "bin/orv-preview")  # it looks for the others beside it
    for program in programs[1:]:
        os.symlink(program, "bin/" + os.path.basename(program))
    shutil.copytree(site, "site")
    subprocess.run("cat site/database-*.sql | sqlite3 router.db", shell=True, check=True)
    write("causes/en.po", TEXTS)
    globals()["preview_" + sys.argv[7]]()
sys.exit(bool(failed))
