#!/usr/bin/env python3
"""sites.py ORV-CHECK FIRST [SECONDS] - random sites for the checker: in a sound one nothing may
be found, a mistake in it must be found on its line, and whatever stands there, the checker goes on.
Tells each site that fails, by its number and with what was found."""
import glob
import json
import os
import random
import re
import shutil
import sqlite3
import subprocess
import sys
import tempfile
import time

WORDS = "router guest wireless device backup update signal access port channel".split()

# Pieces of sound pages. @w: a word; @x: text with a value; @r: of a row; @f: a text field; @n: a new
# id, @o: it again; @p: this page, @l: a link; @q: a query; @b: a piece without bodies; @i: an include.
PIECES = """
<p>@x</p>
<p>@x<br><b>@x</b> &amp; <i>@w</i>
<img src="logo.svg" alt="@w">
<ul><li>@x<li>@x</li></ul>
<a href="@l">@x</a>
<div class="@w">@x</div><section>@f</section>
<form action="@p" method="get"><label for="@n">@f</label><input id="@o" name="@o" maxlength=9><button>@f</button></form>
<form action="@p"><label for=@n>@w</label><select id=@o name=@o><option value="1">@w<option>@w</select></form>
<ul><?multiquery '@q' `<li>@r</li>`?></ul>
<table><tr><th>@w</th><th>@f</th></tr><?multiquery '@q' `<tr><td>@r</td><td>@r</td></tr>`?></table>
<?if eq $var:user '@w' `@b` `@b`?>
<?if eq $var:user @w `<div class="a">` `<div>`?>@x</div>
@i
<?setvariable var:@n $var:user?><p><?echo $var:@o?></p>
<script>var a = '<?printjs $var:user?>', b = [<?repeat [ 1 3 ] `$0,`?>0];</script>
<p><?multiquerycount '@q'?></p><ol><?multiquery '@q' `<li id="@nx$0"><?if eq $1 @w '<b>@w</b>' '<i>@w</i>'?></li>`?></ol>
""".strip().split("\n")
PLAIN = 8  # that many have no body

HEAD = """<!DOCTYPE html>
<html lang="en"><head><meta charset="utf-8">
<title>@f</title><style>p { color: red; }</style></head>
<body><main>
"""
FOOT = "</main>\n</body></html>\n"


class Site:
    def __init__(self, seed):
        self.random = random.Random(seed)
        self.ids = 0
        self.files = {}
        self.pages = [f"page{i}.htm" for i in range(self.random.randint(1, 3))]
        shared = self.random.random() < 0.6
        for name, text in ("head.frm", HEAD), ("foot.frm", FOOT):
            if shared:
                self.files[name] = self.fill(text)
        for page in self.pages:
            self.page = page
            body = "".join(self.piece(len(PIECES)) for _ in range(self.random.randint(2, 6)))
            head, foot = (f"<?include {part}.frm?>" if shared else text
                          for part, text in (("head", HEAD), ("foot", FOOT)))
            self.files[page] = self.fill(f'{head}<h1 id="top">@f</h1>\n') + body + foot
        used = set(re.findall(r"{\?(t\.\d)\?}", "".join(self.files.values())))
        self.files["en.po"] = 'msgid ""\nmsgstr "Content-Type: text/plain; charset=UTF-8\\n"\n' + "".join(
            f'\nmsgid "{id}"\nmsgstr "Text {id[-1]}"\n' for id in sorted(used))
        self.files["logo.svg"] = "<svg xmlns='http://www.w3.org/2000/svg'></svg>"

    def piece(self, most):
        return self.fill(self.random.choice(PIECES[:most])) + "\n"

    def fill(self, text):
        return re.sub("@([a-z])", lambda match: getattr(self, match[1])(), text)

    def w(self):
        return self.random.choice(WORDS)

    def f(self):
        return "{?t." + str(self.random.randint(1, 9)) + "?}"

    def x(self):
        return self.fill(self.random.choice(["@w", "@w @f", "<?echo $var:user?> @w"]))

    def r(self):
        return self.fill(self.random.choice(["@w", "@f", "$1 @w", "$0: $4"]))

    def n(self):
        self.ids += 1
        return self.o()

    def o(self):
        return f"name{self.ids}"

    def p(self):
        return self.page

    def l(self):
        return self.random.choice(self.pages) + self.random.choice(["", "#top"])

    def q(self):
        return "select name, ip, mac, note from device" + self.random.choice(
            ["", " where name = :user", " order by ip"]) + " limit 9"

    def b(self):
        return self.piece(PLAIN).strip()

    def i(self):
        self.ids += 1
        name = f"part{self.ids}.frm"
        self.files[name] = self.piece(PLAIN) + self.piece(PLAIN)
        return f"<?include {name}?>"

    def write(self, folder):
        shutil.rmtree(folder, ignore_errors=True)
        os.mkdir(folder)
        for name, text in self.files.items():
            with open(f"{folder}/{name}", "w") as file:
                file.write(text)
        database = sqlite3.connect(f"{folder}/t.db")
        database.execute("create table device(name text, ip text, mac text, note text)")
        database.commit()
        database.close()


# What is written, and what stands there by mistake.
MISTAKES = {
    "element not closed": (r"</(?:ul|table|div|section|article|form|select|b|i|a|h1|script|title|ol)>", ""),
    "element closed twice": (r"</(ul|table|div|section|article|form|b|i|a|ol)>", r"</\1></\1>"),
    "another end": (r"</(?:b|i)>", "</u>"),
    "no alt": (r' alt="\w+"', ""),
    "label of nothing": (r'for="', 'for="x'),
    "attribute twice": (r'<input id', '<input name="q" id'),
    "id twice": (r'<h1 id="(\w+)">', r'<h1 id="\1"><b id="\1"></b>'),
    "link to no page": (r'href="page', 'href="pag'),
    "link to no place": (r'#top"', '#tip"'),
    "no such picture": (r'logo\.svg', 'logo.png'),
    "quote in a tag": (r'<div class="a"', '<div class="a'),
    "missing blank": (r'(alt="\w+)"', r'\1'),
    "no such include": (r"include part", "include prat"),
    "no such variable": (r"echo \$var:user", "echo $var:usre"),
    "no such text": (r"\{\?t\.", "{?u."),
    "no such column": (r"select name", "select nmae"),
    "no such table": (r"from device", "from devcie"),
    "no such parameter": (r":user", ":usr"),
    "column beyond": (r"<li>\$\d", "<li>$8"),
    "no dollar": (r"echo \$var", "echo var"),
    "no var": (r"echo \$var:", "echo $"),
    "capitals": (r"<\?(?:echo|if|include|repeat|multiquery)\b", lambda m: m[0].upper()),
    "misspelt": (r"<\?multiquery ", "<?multquery "),
    "no end": (r"(<\?(?:echo|include) [^?]*)\?>", r"\1"),
    "half an end": (r"(<\?echo [^?]*)\?>", r"\1>"),
    "no word": (r"<\?if eq ", "<?if "),
    "C's equals": (r"<\?if eq (\S+) ", r"<?if \1 == "),
    "no bracket": (r"\[ 1 3 \]", "1 3"),
    "no blank in brackets": (r"\[ 1 3 \]", "[1 3]"),
    "quote open": (r"(<\?multiquery '[^']*)'", r"\1"),
    "body open": (r"(<\?multiquery '[^']*' `[^`]*)`", r"\1"),
    "comment open": (r"<h1 ", "<?-- <h1 "),
    "echo in a script": (r"printjs", "echo"),
    "no escape": (r"<\?echo (\$var:user)\?>", r"<?print \1?>"),
    "values too many": (r"<\?if eq (\S+) ", r"<?if eq \1 x y z "),
    "other language": (r"<\?echo (\$var:user)\?>", r"<?= \1 ?>"),
    "mustache": (r"<\?echo \$var:(user)\?>", r"{{\1}}"),
    "attribute of a value without quotes": (r"<p>", "<p class=<?echo $var:user?>>"),
    "injection": (r"name = :user", 'name = "$var:user"'),
    "ends the injection": (r":user", "':user'"),
}


def plant(site, kind, rng):
    """Puts a mistake into the site. Returns its file and line; None where there is no place for it."""
    pattern, change = MISTAKES[kind]
    places = [(name, match) for name, text in sorted(site.files.items()) if name.endswith((".htm", ".frm"))
              for match in re.finditer(pattern, text)]
    if not places:
        return None
    name, match = rng.choice(places)
    text = site.files[name]
    new = change(match) if callable(change) else match.expand(change)
    site.files[name] = text[:match.start()] + new + text[match.end():]
    return name, text.count("\n", 0, match.start()) + 1


def rows():
    """The templates of the tests, without what is found in them."""
    found = []
    for path in sorted(glob.glob(os.path.dirname(os.path.abspath(__file__)) + "/../tests/check/*.md")):
        with open(path, encoding="utf-8") as file:
            found += re.findall(r"^```\S+\.(?:htm|frm|page|json)\n(.+?)^```$", re.sub(r"\n *\^~* .*", "", file.read()), re.M | re.S)
    return found


def garble(site, rng, texts):
    """Adds templates of the tests to a site, cut and joined."""
    for i in range(30):
        text = rng.choice(texts)
        for _ in range(rng.randint(0, 3)):
            other, at = rng.choice(texts), rng.randrange(len(text) + 1)
            begin = rng.randrange(len(other))
            text = text[:at] + other[begin:begin + rng.randint(0, 20)] + text[at + rng.randint(0, 3):]
        site.files[f"row{i}." + rng.choice(["htm", "htm", "frm", "json"])] = text


def check(site):
    site.write("site")
    done = subprocess.run([orv_check, "--format", "json", "--docroot", ".", "--db", "t.db", "--texts", "en.po",
                           "--set", "user"], cwd="site", capture_output=True, text=True)
    if done.returncode not in (0, 1):
        sys.exit(f"site {number}: status {done.returncode}: {done.stderr}")
    return json.loads(done.stdout)["findings"]


def tell(what, found):
    print(what, *(f"  {f['file']}:{f['line']}:{f['column']}: {f['text']} [{f['id']}]" for f in found), sep="\n")
    return 1


def try_site(number, most):
    """Returns how many of the site's forms fail: the sound one, and with a mistake each, so many."""
    found = check(Site(number))
    if found:
        return tell(f"site {number} is sound:", found)
    faults = 0
    rng = random.Random(number)
    for kind in rng.sample(sorted(MISTAKES), most):
        site = Site(number)
        place = plant(site, kind, rng)
        if place:
            found = check(site)
            if not any((f["file"], f["line"]) == place for f in found) or len(found) > 3:
                faults += tell(f"site {number}, {kind} at {place[0]}:{place[1]}:", found)
    site = Site(number)
    garble(site, rng, rows())
    check(site)
    return faults


orv_check, first, seconds = os.path.abspath(sys.argv[1]), int(sys.argv[2]), float((sys.argv + ["0"])[3])
os.chdir(tempfile.mkdtemp())
end = time.monotonic() + seconds
number = first
faults = 0
while number < first + 3 or time.monotonic() < end:
    faults += try_site(number, 5)
    number += 1
print(f"{number - first} sites, {faults} faults")
sys.exit(faults > 0)
