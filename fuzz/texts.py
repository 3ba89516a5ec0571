#!/usr/bin/env python3
"""texts.py ORV-TEXTDB FIRST [SECONDS] - random dictionaries through build, dump and update:
nothing is lost, and a second run changes nothing. Ends at the first that fails, by its number."""
import gettext
import os
import random
import subprocess
import sys
import tempfile
import time

HEADER = 'msgid ""\nmsgstr "Content-Type: text/plain; charset=UTF-8\\n"\n'
PIECES = ["word ", "two words", "\n", "\\", '"', "'", "\t", "ä€😀", "$1", "$$", "%d", "<b>", "</b>", "&amp;", " ",
          "#: x:1", "# orv-textdb: source \"a\"", "a" * 90 + " ", "msgid", "\\n", ".", "", "{?a?}", "\x01", "Stands in "]
textdb, first, seconds = os.path.abspath(sys.argv[1]), int(sys.argv[2]), float((sys.argv + ["0"])[3])


def quoted(text):
    for char, sign in ("\\", "\\\\"), ('"', '\\"'), ("\n", "\\n"), ("\t", "\\t"), ("\x01", "\\001"):
        text = text.replace(char, sign)
    return f'"{text}"'


def write(path, texts, flags=None):
    with open(path, "w") as file:
        file.write(HEADER)
        for id, text in texts.items():
            file.write(f"\n{(flags or {}).get(id, '')}msgid {quoted(id)}\nmsgstr {quoted(text)}\n")


def run(*arguments, out=None):
    done = subprocess.run([textdb, *arguments], capture_output=True)
    if done.returncode:
        raise AssertionError(f"{arguments}: status {done.returncode}: {done.stderr.decode()}")
    if out:
        with open(out, "wb") as file:
            file.write(done.stdout)


def read(path):
    """The texts of a PO file by gettext's own reading, the fuzzy ones as well."""
    subprocess.run(["msgfmt", "-f", "-o", "x.mo", path], check=True, capture_output=True)
    with open("x.mo", "rb") as file:
        return {id: text for id, text in gettext.GNUTranslations(file)._catalog.items() if id}


def bytes_of(path):
    with open(path, "rb") as file:
        return file.read()


def check(seed):
    rng = random.Random(seed)

    def text():  # gettext takes no line end at an edge that the id has not
        return "".join(rng.choices(PIECES, k=rng.randint(1, 8))).strip("\n") or "x"
    ids = sorted({"".join(rng.choices("ab.c:_1X", k=rng.randint(1, 9))) for _ in range(rng.randint(1, 30))})
    source = {id: text() for id in ids}
    write("en.po", source)
    run("build", "-o", "a.db", "en.po")
    run("dump", "a.db", out="dump.po")
    assert read("dump.po") == source, "dump"
    run("build", "-o", "b.db", "dump.po")
    assert bytes_of("a.db") == bytes_of("b.db"), "build"

    german = {id: rng.choice(["", text(), text()]) for id in ids}
    flags = {id: rng.choice(["", "", "# Mine.\n", "#, fuzzy\n"]) for id in ids if german[id]}
    write("de.po", german, flags)
    for _ in range(3):
        run("update", "en.po", "de.po")
        once = bytes_of("de.po")
        run("update", "en.po", "de.po")
        assert bytes_of("de.po") == once, "second update"
        now = read("de.po")
        for id, was in german.items():
            if was and id in source:
                assert now.get(id) == was, f"update of {id}: {now.get(id)!r} for {was!r}"
        for id in rng.sample(sorted(source), len(source) // 3):
            source[id] = text()
        if len(source) > 1:
            source.pop(rng.choice(sorted(source)))
        write("en.po", source)


os.chdir(tempfile.mkdtemp())
end = time.monotonic() + seconds
number = first
while number == first or time.monotonic() < end:
    try:
        check(number)
    except AssertionError as fault:
        sys.exit(f"dictionary {number} in {os.getcwd()}: {fault}")
    number += 1
print(f"{number - first} dictionaries, no fault")
