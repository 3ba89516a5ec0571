#!/bin/bash
# scripts/screenshots.sh - makes docs/screenshots/ anew, with headless Chromium: pages
# of the demo site on a desk and on a phone, and of the preview.
set -euo pipefail
cd "$(dirname "$(realpath "$0")")/.."
# shellcheck source=scripts/setup.sh
. scripts/setup.sh

if [[ -z ${SITE_URL-} ]]; then
    alone need :lighttpd chromium:chromium chromedriver:chromium-driver pngquant:pngquant \
        python3:python3
    ./demo.sh >/dev/null # builds what the site needs
    ./demo.sh --preview --version >/dev/null
    exec scripts/serve.sh build/demo 0 scripts/screenshots.sh
fi
mkdir -p docs/screenshots
PYTHONPATH=tests/web PYTHONDONTWRITEBYTECODE=1 python3 - <<'END'
import base64, html, os, subprocess, urllib.parse
from chromium import *
from visitor import PASSWORD, signed_in

# Name, width, height, page, and what is sent to it as a form, if anything.
SHOTS = [
    ("login-phone", 360, 640, "login.htm", {}),
    ("overview", 900, 800, "overview.htm", {}),
    ("devices", 1100, 900, "devices.htm?sort=volume", {}),
    ("traffic", 900, 760, "traffic.htm", {}),
    ("events", 1000, 760, "events.htm", {}),
    ("devices-phone", 360, 800, "devices.htm?find=phone", {}),
    ("traffic-phone", 360, 800, "traffic.htm", {}),
    ("settings-phone", 360, 800, "settings.htm?lang=de", {"hostname": "Fjord!"}),
    ("settings-greek", 900, 900, "settings.htm?lang=el", {}),
    ("overview-greek-phone", 360, 800, "overview.htm?lang=el", {}),
]


def shoot():
    signed_in()  # the first visit
    for name, width, height, page, typed in SHOTS:
        resize(width, height)
        if name == "overview":
            show("login.htm")
            run("document.getElementById('password').value = arguments[0];"
                "document.getElementById('form').submit()", PASSWORD)
        show(page)
        if typed:
            run("const form = document.getElementById('form'); form.noValidate = true;"
                "for (const [name, value] of Object.entries(arguments[0]))"
                "form.elements[name].value = value;"
                "form.querySelector('[type=submit]').click()", typed)
        with open(f"docs/screenshots/{name}.png", "wb") as file:
            file.write(base64.b64decode(send("/screenshot", "GET")))


# A template, and beside it the page that it makes of the demo's devices.
TEMPLATE = """<h1>Devices</h1>
<table>
<tr><th>Name</th><th>Address</th><th>Is</th></tr>
<?multiquery 'select name, ip, online from device_list
    order by name limit 6'
`<tr><td>$1</td><td>$2</td>
<td><?if eq $3 1 `<b class="on">online</b>` `away`?></td></tr>
`?></table>
<p><?multiquerycount 'select id from device'?>
devices are known.</p>
"""
STYLE = """body > div { display: grid; grid-template-columns: 34rem 1fr; gap: 2rem; padding-top: 1rem }
pre { margin: 0; padding: 1rem; background: var(--shade); font-size: 0.85rem }"""


def shoot_beside():
    page = subprocess.run(["build/demo/tools/orv-render", "--db", os.environ["SITE_DB"], "-"],
                          input=TEMPLATE, stdout=subprocess.PIPE, text=True, check=True).stdout
    with open("examples/site/style.css", encoding="utf-8") as file:
        style = file.read() + STYLE
    resize(1040, 410)
    send("/url", url="data:text/html;charset=utf-8," + urllib.parse.quote(
        f"<style>{style}</style><div><pre>{html.escape(TEMPLATE)}</pre><div>{page}</div></div>"))
    with open("docs/screenshots/template-and-page.png", "wb") as file:
        file.write(base64.b64decode(send("/screenshot", "GET")))


with_browser(shoot, is_whole=True)
with_browser(shoot_beside, is_whole=True)
END
PYTHONPATH=tests/web PYTHONDONTWRITEBYTECODE=1 tools/preview/screenshots.py \
    build/demo/tools/orv-preview examples/site docs/screenshots
# A palette is enough for flat colours, and a third of the size.
for file in docs/screenshots/*.png; do
    pngquant --force --skip-if-larger --ext .png 32 "$file" || [[ $? == 98 ]]
done
