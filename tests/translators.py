#!/usr/bin/python3
"""translators.py ORV-TEXTDB SITE - a translation goes through the programs that translators use,
and must come back with nothing lost: after an update all is as it was, but for the header, which
is those programs' own, and the order of places."""
import os
import re
import shutil
import subprocess
import sys
import tempfile

textdb, site = map(os.path.abspath, sys.argv[1:])
work = tempfile.mkdtemp()
os.environ["HOME"] = work  # where Poedit keeps what it was last asked
os.chdir(work)

POLIB = "import polib; polib.pofile('x.po'{0}).save()"
BABEL = """
from babel.messages import pofile
with open('x.po', 'rb') as file:
    catalog = pofile.read_po(file)
with open('x.po', 'wb') as file:
    pofile.write_po(file, catalog{0})
"""
# Poedit saves a file that nobody has changed, too, and names itself in it.
POEDIT = """
poedit x.po & editor=$!
window=$(timeout 60 xdotool search --sync --onlyvisible --name x.po | head -n 1)
for _ in $(seq 60); do
    xdotool key --window "$window" ctrl+s
    sleep 0.5
    ! grep -q 'X-Generator: Poedit' x.po || break
done
kill $editor
grep -q 'X-Generator: Poedit' x.po
"""
PYTHON = ["/usr/bin/python3", "-c"]  # the one that Debian's modules are for

# A program, what must be there for it, and its way to read and write x.po.
WAYS = [
    ("polib", PYTHON + ["import polib"], PYTHON + [POLIB.format("")]),
    ("polib, narrow", PYTHON + ["import polib"], PYTHON + [POLIB.format(", wrapwidth=60")]),
    ("Babel", PYTHON + ["import babel"], PYTHON + [BABEL.format("")]),
    ("Babel, narrow", PYTHON + ["import babel"], PYTHON + [BABEL.format(", width=60")]),
    ("XLIFF", ["which", "po2xliff", "xliff2po"],
     ["sh", "-c", "po2xliff x.po x.xlf && xliff2po x.xlf x.po"]),
    ("msgcat", ["which", "msgcat"], ["msgcat", "x.po", "-o", "x.po"]),
    ("msgattrib", ["which", "msgattrib"], ["msgattrib", "x.po", "-o", "x.po"]),
    ("msgmerge", ["which", "msgmerge"], ["msgmerge", "-N", "-q", "-U", "x.po", "site.pot"]),
    ("Poedit", ["which", "poedit", "xvfb-run", "xdotool"],
     ["xvfb-run", "-a", "bash", "-c", POEDIT]),
]

ENGLISH = r"""
# For the translator: keep it short.
msgid "zz.path"
msgstr "Folder C:\\temp\\\nand the next line\\"

msgid "zz.long"
msgstr ""
"A sentence that is rather long,  with two blanks and some-words-with-hyphens, and which goes on &amp; on "
"<b>until</b> it has more lines than two, \t and \"quotes\", and ends in a blank "

msgid "zz.wide"
msgstr "設定は再起動後に有効になります。電源を切らないでください。設定は再起動後に有効になります。電源を切らないで"

msgid "zz.changed"
msgstr "The former text of this entry was %s, and it has some more words, so that it is a long one"

msgid "zz.empty"
msgstr "s"
"""
GERMAN = r"""
# Mine: a comment of the translator, which is so long that programs which wrap comments do it here.
msgid "zz.path"
msgstr "Ordner C:\\temp\\\nund die nächste Zeile\\"

msgid "zz.long"
msgstr "Ein langer Satz, der &amp; immer weiter geht, <b>bis</b> er viele Zeilen hat,  mit \t und \"Anführungszeichen\", und der auf ein Leerzeichen endet "

msgid "zz.changed"
msgstr "Der Text war %s"

# orv-textdb: empty
msgid "zz.empty"
msgstr ""

msgid "zz.gone"
msgstr "weg"
"""


def update(source, target):
    done = subprocess.run([textdb, "update", source, target], capture_output=True, text=True)
    if done.returncode != 0:
        sys.exit(done.stderr)
    return done.stdout


def write(name, text):
    with open(name, "w", encoding="utf-8") as file:
        file.write(text)


def body(name):
    """The entries, without the names of places, and comments of people in one line."""
    with open(name, encoding="utf-8") as file:
        text = file.read()
    text = re.sub(r"(?m)^#: .*\n", "", text[text.index("\n\n"):])
    return re.sub(r"(?m)^(# (?!orv-textdb).*)\n# (?!orv-textdb)", r"\1 ", text)


texts = os.path.join(site, "texts")
with open(os.path.join(texts, "en.po"), encoding="utf-8") as file:
    english = file.read() + ENGLISH
with open(os.path.join(texts, "de.po"), encoding="utf-8") as file:
    write("de.po", file.read() + GERMAN)
templates = [os.path.join(site, name) for name in os.listdir(site)
             if name.endswith((".htm", ".frm"))]
write("en.po", english.replace("was %s", "was"))
update("en.po", "de.po")
write("en.po", "# orv-check: used zz.*: by this test.\n" + english)
update("en.po", "de.po")
with open("site.pot", "wb") as file:
    subprocess.run([textdb, "pot", "en.po", *templates], stdout=file, check=True)
wanted = body("de.po")
assert '#, fuzzy\n#| msgid ""\n#| "The former text of this entry was, and' in wanted, wanted

missing = []
failed = []
for name, needed, way in WAYS:
    if subprocess.run(needed, capture_output=True).returncode != 0:
        missing.append(name)
        continue
    shutil.copy("de.po", "x.po")
    done = subprocess.run(way, capture_output=True, text=True)
    said = update("en.po", "x.po")
    got = body("x.po")
    if done.returncode != 0 or "0 changed" not in said or got != wanted:
        failed.append(name)
        write("wanted", wanted)
        write("got", got)
        print(f"== {name}: {done.returncode}, {said}", done.stderr[-2000:])
        print(subprocess.run(["diff", "wanted", "got"], capture_output=True, text=True).stdout)
shutil.rmtree(work)
if missing:
    print("not installed, so not tried:", ", ".join(missing))
sys.exit(1 if failed else 77 if missing else 0)
