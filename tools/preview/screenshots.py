#!/usr/bin/python3
"""tools/preview/screenshots.py ORV-PREVIEW SITE FOLDER - pictures of the preview in FOLDER, of a
copy of the demo site with some mistakes. Needs tests/web in PYTHONPATH."""
import base64, os, shutil, sqlite3, subprocess, sys, tempfile, time
os.environ["SITE_URL"] = ""
from chromium import resize, run, send, show, with_browser

BAR = "const bar = document.querySelector('orv-preview').shadowRoot;"
program, site, folder = map(os.path.realpath, sys.argv[1:])


def edit(path, old, new):
    with open(path, encoding="utf-8") as file:
        text = file.read()
    with open(path, "w", encoding="utf-8") as file:
        file.write(text.replace(old, new))


def shoot(name, page, script=""):
    show(url + page)
    while not run("return !!document.querySelector('orv-preview')"):
        time.sleep(0.05)
    run(BAR + script)
    time.sleep(2)  # findings come behind the page
    with open(f"{folder}/preview-{name}.png", "wb") as file:
        file.write(base64.b64decode(send("/screenshot", "GET")))


def shoot_all():
    resize(1100, 720)
    shoot("page", "overview.htm")
    shoot("queries", "overview.htm", "bar.querySelector('#badge').click();"
          "bar.getElementById('queries').click();"
          "bar.querySelectorAll('details')[4].open = true;"
          "bar.querySelector('.under').scrollTop = 60; document.activeElement.blur()")
    run(BAR + "bar.querySelector('.close').click()")
    edit("site/overview.htm", "<?multiquerycount 'select id from device'?>",
         "<?multiquerycount 'select id from devices'?>")
    edit("site/header.frm", "menu.frm", "menus.frm")
    edit("site/header.frm", "{?site.skip?}", "{?site.skipp?}")
    shoot("error", "overview.htm")
    shoot("messages", "overview.htm", "bar.querySelector('#badge').click();"
          "document.activeElement.blur()")
    run(BAR + "bar.querySelector('.close').click()")
    with open("site/events.htm", "a", encoding="utf-8") as file:
        file.write("<p><?echo 'Seen: $var:seen</p>\n")
    shoot("trouble", "events.htm")


with tempfile.TemporaryDirectory() as work:
    os.chdir(work)
    shutil.copytree(site, "site")
    subprocess.run("cat site/database-*.sql | sqlite3 router.db", shell=True, check=True)
    preview = subprocess.Popen(
        [program, "--port", "0", "--db", "router.db", "--texts", "site/texts/en.po", "--texts",
         "site/texts/de.po", "--set-from", f"{site}/../zarn/variables.txt", "site"],
        stdout=subprocess.PIPE, text=True)
    for line in preview.stdout:
        url = line.split(" ")[0]
        if url.startswith("http:"):
            break
    with_browser(shoot_all)
    preview.terminate()
    preview.wait()
