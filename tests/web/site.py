#!/usr/bin/python3
"""tests/web/site.py BUILD DOCUMENT CHECKER - does what "A site of your own" says, with the library of
BUILD: writes the files that the document has, builds the program, and uses the site."""
import os, re, shutil, sqlite3, subprocess, sys, tempfile, time
from visitor import *

build, document, checker = map(os.path.realpath, sys.argv[1:])
with open(document, encoding="utf-8") as file:
    blocks = re.findall(r"^```([a-z0-9-]+\.[a-z]+)\n(.*?)^```$", file.read(), re.M | re.S)
port = 20000 + os.getpid() % 10000
with tempfile.TemporaryDirectory() as work:
    os.chdir(work)
    os.makedirs("site/more")
    for name, text in blocks:
        place = "" if name in ("lamp.c", "lighttpd.conf") else "site/"
        with open(place + name, "w", encoding="utf-8") as file:
            file.write(text.replace("/srv/lamp", work).replace("8000", str(port)))
    shutil.copy("site/index.htm", "site/more/index.htm")
    shutil.copy("site/index.sql", "site/more/index.sql")
    subprocess.run(["cc", "-Wall", "-Werror", "lamp.c", f"-I{build}/include", f"-L{build}/host", f"-L{build}",
                    "-lorvhost", "-lorvinterpreter", f"-Wl,-rpath,{build}/host:{build}", "-o", "lamp"], check=True)
    program = shutil.which("lighttpd", path=os.environ["PATH"] + ":/usr/sbin")
    with subprocess.Popen([program, "-D", "-f", "lighttpd.conf"]) as server:
        try:
            owner = Visitor(f"http://127.0.0.1:{port}")
            for _ in range(100):
                try:
                    owner.ask("")
                    break
                except ConnectionRefusedError:
                    time.sleep(0.05)
            check("the first visit", (403, "Sign in"), (lambda a: (a.status, a.heading))(owner.ask("")))
            check("a weak password", True, "tried first" in owner.login("password1").text)
            check("chosen", (303, "index.htm"), (lambda a: (a.status, a.headers["Location"]))(owner.login()))
            check("the lamp", ("Kitchen", "50"), (lambda a: (a.value("name"), a.value("level")))(owner.ask("")))
            for page, back in (("index.htm", "index.htm"), ("more/index.htm", "../more/index.htm")):
                answer = owner.post(page, {"token": owner.token(), "name": "Hall <1>", "level": "101"})
                check("wrong", (422, "Hall <1>", True), (answer.status, answer.value("name"), "0 to 100" in answer.text))
                answer = owner.post(page, {"token": owner.token(), "name": "Hall <1>", "level": "7"})
                check("saved", (303, back), (answer.status, answer.headers["Location"]))
                check("told", True, "It has been saved." in owner.ask(page).text)
            with sqlite3.connect("lamp.db") as db:
                check("stored", [("Hall <1>", 7)], db.execute("select name, level from lamp").fetchall())
            check("no page", (404, '"../index.htm"'), (lambda a: (a.status, re.search('"[^"]*index.htm"', a.text)[0]))(
                owner.ask("more/none.htm")))
            check("signed out", (303, 403), (owner.post("logout.htm", {"token": owner.token()}).status, owner.ask("").status))
        finally:
            server.terminate()
    check("the log", "", "".join(line for line in open("error.log", encoding="utf-8") if "lamp: " in line))
    shutil.rmtree("site/more")  # whose links lead to nothing
    names = os.path.dirname(document) + "/../examples/zarn/variables.txt"
    said = subprocess.run([checker, "--db", "lamp.db", "--set-from", names, "--docroot", "site"], capture_output=True, text=True, check=False)
    check("checked", (0, True), (said.returncode, "nothing found" in said.stderr + said.stdout))
sys.exit(bool(failed))
