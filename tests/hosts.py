#!/usr/bin/python3
"""tests/hosts.py HOSTS README PROGRAMS TEXTDB - the example hosts, and the web servers that run them
by the configurations of the examples, make the same pages for the same visitors. What
is not installed is left out, by name."""
import os, pathlib, re, shutil, socket, subprocess, sys, tempfile, time, urllib.error, urllib.request

hosts, readme, programs, textdb = (pathlib.Path(argument).resolve() for argument in sys.argv[1:])
work = pathlib.Path(tempfile.mkdtemp())
os.environ["PATH"] += ":/usr/sbin"
environment = dict(os.environ, PAGES=str(hosts / "pages"), ROOT=str(work))
failed = False
running = []


def check(what, expected, got):
    global failed
    if expected != got:
        failed = True
        print(f"{what}\n  expected: {expected!r}\n  got:      {got!r}", file=sys.stderr)


def left_out(*names):
    """Whether one of the programs is missing, which is told."""
    missing = [name for name in names if not shutil.which(name)]
    for name in missing:
        print(f"left out: {pathlib.Path(name).name}")
    return missing


def ask(address, language=""):
    request = urllib.request.Request(address, headers={"Accept-Language": language})
    try:
        with urllib.request.urlopen(request, timeout=20) as answer:
            return answer.status, answer.headers["Content-Type"], answer.read().decode()
    except urllib.error.HTTPError as error:
        return error.code, error.headers["Content-Type"], ""


def visit(what, address):
    """One visitor after another: none sees the other's fields or language."""
    for path, language, status, title, greeting in (
            ("index.htm?name=A%3Cn+%C3%A9&lang=en&x[1]=y", "de-AT,de", 200, "Eine Seite eines Geräts",
             "<p>Guten Tag A&lt;n é!</p>"),
            ("index.htm?x&=1&name", "xy", 200, "A page of a device", ""),
            ("index.htm?name=Bob", "en", 200, "A page of a device", "<p>Good day Bob!</p>"),
            ("none.htm", "", 404, "", ""), ("index.txt", "", 404, "", ""), ("x%2findex.htm", "", 404, "", ""),
            ("index.htm", "de", 200, "Eine Seite eines Geräts", "")):
        got, kind, page = ask(address + path, language)
        said = re.search("<p>G.*</p>", page)
        parts = got, re.sub("<[^>]*>", "", (re.search("<title>.*", page) or [""])[0]), said[0] if said else ""
        if got == 404 and parts[0] == status:
            continue
        check(f"{what} {path}", (status, title, greeting), parts)
        check(f"{what} {path}", "text/html; charset=utf-8", kind)
        check(f"{what} {path}", True, bool(re.search(r": \d+\.</p>\n</html>\n$", page)))


def start(command, **more):
    running.append(subprocess.Popen([str(part) for part in command], env=environment, **more))
    return running[-1]


def configuration(name, port):
    """An example's, for the folders and the port of this test."""
    text = (hosts / "servers" / name).read_text()
    for mine, here in (("/usr/lib/hosts", programs), ("/srv/pages", hosts / "pages"),
                       ("/srv/static", work / "static"), ("/run/", f"{work}/"), ("8080", port),
                       ('ROOT" => ""', f'ROOT" => "{work}"'), ('ROOT ""', f"ROOT {work}")):
        text = text.replace(mine, str(here))
    (work / name).write_text(text)
    return work / name


def free_port():
    with socket.socket() as listening:
        listening.bind(("127.0.0.1", 0))
        return listening.getsockname()[1]


def wait_for(port):
    for _ in range(200):
        with socket.socket() as client:
            if client.connect_ex(("127.0.0.1", port)) == 0:
                return
        time.sleep(0.05)


def serve_from(path):
    """A socket's descriptor, as a FastCGI program gets it."""
    listening = socket.socket(socket.AF_UNIX)
    listening.bind(str(path))
    listening.listen()
    return listening


def check_smallest():
    page = subprocess.run([programs / "smallest"], cwd=hosts / "smallest", capture_output=True, text=True)
    check("the smallest host", "<p>This page is made for Ann.", page.stdout.splitlines()[3])
    code = (hosts / "smallest/host.c").read_text().split("*/\n", 1)[1]
    check("the README's host", True, code in readme.read_text())


def check_cgi():
    # Memory ends in the middle of the page.
    page = subprocess.run(["bash", "-c", "trap '' XFSZ; ulimit -f 1; exec $0", programs / "cgi"], capture_output=True,
                          env=dict(environment, QUERY_STRING="name=" + "x" * 1000), text=True)
    check("a page without room", ["Status: 503 Service Unavailable", "Content-Type: text/plain", "Content-Length: 18", "",
                                      "Please try again."],
          page.stdout.split("\n")[:-1])


def check_server():
    if left_out(programs / "server"):
        return
    server = start([programs / "server", "0"], stdout=subprocess.PIPE, text=True)
    address = server.stdout.readline().strip()
    visit("server", address)
    check("server", 200, ask(address)[0])


def check_lighttpd():
    if left_out("lighttpd", programs / "fastcgi"):
        return
    port = free_port()
    start(["lighttpd", "-D", "-f", configuration("lighttpd.conf", port)])
    wait_for(port)
    visit("lighttpd", f"http://127.0.0.1:{port}/")
    visit("lighttpd, cgi", f"http://127.0.0.1:{port}/cgi/")


def check_nginx():
    if left_out("nginx", "fcgiwrap", programs / "fastcgi"):
        return
    port = free_port()
    own = "".join(f"{kind}_temp_path {work};" for kind in ("client_body", "fastcgi", "proxy", "scgi", "uwsgi"))
    path = configuration("nginx.conf", port)
    path.write_text(path.read_text().replace("http {", f"http {{ access_log off; {own}"))
    user = "user root;" if os.geteuid() == 0 else ""
    with serve_from(work / "hosts.socket") as fast, serve_from(work / "fcgiwrap.socket") as wrap:
        start([programs / "fastcgi"], stdin=fast)
        start(["fcgiwrap"], stdin=wrap)
    start(["nginx", "-p", work, "-c", path, "-e", "stderr",
           "-g", f"{user} daemon off; master_process off; pid {work}/nginx.pid;"])
    wait_for(port)
    visit("nginx", f"http://127.0.0.1:{port}/")
    visit("nginx, cgi", f"http://127.0.0.1:{port}/cgi/")


def check_busybox():
    if left_out("busybox"):
        return
    port = free_port()
    (work / "static/cgi-bin/page").symlink_to(programs / "cgi")
    start(["busybox", "httpd", "-f", "-p", f"127.0.0.1:{port}", "-h", work / "static", "-c",
           configuration("httpd.conf", port)])
    wait_for(port)
    visit("busybox httpd", f"http://127.0.0.1:{port}/cgi-bin/page/")


(work / "etc").mkdir()
(work / "var").mkdir()
(work / "static/cgi-bin").mkdir(parents=True)
for language in ("en", "de"):
    subprocess.run([textdb, "build", "-o", work / f"etc/htmltext_{language}.db", hosts / f"texts/{language}.po"],
                   check=True, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
(work / "var/htmltext.db").symlink_to("../etc/htmltext_en.db")
try:
    for part in (check_smallest, check_cgi, check_server, check_lighttpd, check_nginx, check_busybox):
        part()
finally:
    for process in running:
        process.terminate()
        process.wait()
    shutil.rmtree(work)
sys.exit(failed)
