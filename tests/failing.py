#!/usr/bin/python3
"""tests/failing.py PROGRAMS - each program's main job with each of its calls failing in turn, by
strace. It must not crash; where anything is not as without the failure it says so in a line and
ends with a status that tells; and its file is the former one or the whole new one, and alone."""
import collections, os, re, shutil, signal, sqlite3, subprocess, sys, tempfile

PROGRAMS = os.path.realpath(sys.argv[1])
FILES = {
    "site/t.htm": "<?include head.frm?><?multiquery 'select name from d' `<p>$1 {?a?}`?>" + 9000 * "x",
    "site/head.frm": "<!DOCTYPE html><title>{?b?}</title>",
    "en.po": 'msgid "a"\nmsgstr "Text"\n\nmsgid "b"\nmsgstr "Title"\n',
    "de.po": 'msgid "a"\nmsgstr "Wort"\n', "page.htm": "former",
}
# The job, and the file that it replaces.
JOBS = [
    ("orv-render --docroot site --db r.db --root . --lang en --output page.htm t.htm", "page.htm"),
    ("orv-render --log --docroot site --db r.db --root . --lang en t.htm", ""),
    ("orv-check --docroot site --db r.db --texts en.po --texts de.po", ""),
    ("orv-textdb build -o etc/htmltext_en.db de.po", "etc/htmltext_en.db"),
    ("orv-textdb update en.po de.po", "de.po"),
    ("orv-textdb pot en.po site/t.htm site/head.frm", ""),
    ("orv-textdb dump etc/htmltext_en.db", ""),
    ("orv-preview --port 0 --db r.db --texts en.po site", ""),
]
ERRORS = {"openat": "EMFILE", "memfd_create": "EMFILE", "read": "EIO", "pread64": "EIO",
          "write": "ENOSPC", "fsync": "EIO", "fchmod": "EPERM", "linkat": "EIO", "rename": "EIO",
          "getdents64": "EIO", "mmap": "ENOMEM", "brk,mmap": "ENOMEM"}


def prepare():
    for name in os.listdir():
        shutil.rmtree(name) if os.path.isdir(name) else os.remove(name)
    for name, text in FILES.items():
        os.makedirs(os.path.dirname(name) or ".", exist_ok=True)
        with open(name, "w", encoding="utf-8") as file:
            file.write(text)
    shutil.copytree(kept, ".", dirs_exist_ok=True)


def files():
    paths = (os.path.join(folder, name) for folder, _, names in os.walk(".") for name in names)
    return {path[2:]: open(path, "rb").read() for path in paths}


def run(job, *options):
    """Returns status, output, messages and the files afterwards; the trace is in ../trace."""
    prepare()
    threads = [] if "preview" in job else ["-f", "--seccomp-bpf"]
    command = ["timeout", "60", "strace", *threads, "-o", "../trace", *options, *f"{PROGRAMS}/{job}".split()]
    with subprocess.Popen(command, stdout=subprocess.PIPE, stderr=subprocess.PIPE) as process:
        # The preview goes on until it is ended.
        lines = []
        for line in process.stdout:
            lines.append(line)
            if b"ends it" in line:
                os.kill(child(child(process.pid)), signal.SIGTERM)
                lines.append(b"ended")
        messages = process.stderr.read()
    output = re.sub(rb"Date: [0-9]+-[-0-9 :+]+", b"Date: ", b"".join(lines))  # the minute may pass
    return process.returncode, output, messages, files()


def child(pid):
    with open(f"/proc/{pid}/task/{pid}/children", encoding="ascii") as file:
        return int(file.read().split()[0])


def calls_of(job):
    """How often the job makes each call, of which the loader's own do not count."""
    with open("../trace", encoding="utf-8", errors="replace") as file:
        names = [line.partition("(")[0].split(" ")[-1] for line in file]
    loaded = names.index("prlimit64") if "prlimit64" in names else 0
    return collections.Counter(names[:loaded]), collections.Counter(names)


def judge(job, target, expected, got):
    """Returns what is wrong, or nothing."""
    status, output, messages, after = got
    wrong = []
    if status < 0 or status > 3 or b"terminate" in messages:
        wrong.append("crash")
    if "preview" in job:
        return wrong + ["no line"] * (b"ended" not in output and b"orv-preview: " not in messages)
    if (output, after) != (expected[1], expected[3]) and status in (0, expected[0]):
        wrong.append("status")
    if (status, output, after) != (expected[0], expected[1], expected[3]) and not messages.strip():
        wrong.append("no line")
    prepare()
    before = files()
    for name in after.keys() | before.keys():
        new = [before.get(name)] + [expected[3].get(name)] * (name == target)
        if after.get(name) not in new:
            wrong.append("file " + name)
    return wrong


def sweep(job, target):
    expected = run(job)
    loaded, made = calls_of(job)
    for names, error in ERRORS.items():
        calls = names.split(",")
        if "mmap" in calls and "--output" in job:
            continue  # of an included template the log alone tells
        first, behind = (sum(all_[c] for c in calls) + 1 for all_ in (loaded, made))
        step = 4 if "preview" in job and behind - first > 12 else 1  # each starts a web server
        for nth in range(first, behind, step):
            onward = "+" if len(calls) > 1 else ""
            got = run(job, f"-etrace={names}", f"-einject={names}:error={error}:when={nth}{onward}")
            wrong = judge(job, target, expected, got)
            wrong += ["left"] * any(not left.endswith(".gone") for left in os.listdir(tempfile.gettempdir()))
            wrong += ["words"] * (names == "memfd_create" and "render" in job and b"no memory for the page or the log: " not in got[2])
            if names == "fsync" and got[0] == expected[0] and "preview" not in job:
                wrong.append("not told")  # though the file is there
            counts[bool(wrong)] += 1
            if wrong:
                print(job, f"{names} {nth}{onward}: {error}:", *wrong, got[0], got[2].decode()[:200])


if subprocess.run(["strace", "-o", "/dev/null", "true"], check=False).returncode:
    sys.exit(77)  # where nothing may be traced
counts = [0, 0]
with tempfile.TemporaryDirectory() as folder:
    kept = folder + "/kept"
    os.makedirs(kept + "/etc")
    os.mkdir(folder + "/work")
    os.mkdir(folder + "/tmp")
    os.environ["TMPDIR"] = tempfile.tempdir = folder + "/tmp"
    os.chdir(folder + "/work")
    with sqlite3.connect(kept + "/r.db") as db:
        db.executescript("create table d(name); insert into d values ('a'), ('b')")
    prepare()
    subprocess.run([PROGRAMS + "/orv-textdb", "build", "-o", kept + "/etc/htmltext_en.db", "en.po"],
                   check=True, capture_output=True)
    for job, target in JOBS:
        sweep(job, target)
    os.chdir("/")
print(counts[0], "failures went well,", counts[1], "did not")
sys.exit(counts[1] > 0 or counts[0] < 200)
