#!/usr/bin/python3
"""tests/archive_pages.py SOURCE COMMAND... - renders the examples of the documents, as
tests/page_test.cpp does, with the program archive_host, which COMMAND starts. For C libraries
that GoogleTest cannot be had for."""
import glob, os, re, struct, subprocess, sys, tempfile

SOURCE, COMMAND = sys.argv[1], sys.argv[2:]
DATABASE = struct.pack("<8s6I", b"orvtext", 1, 2, 1, 16, 9 << 20, 17) + b"\0greeting\0Good day\0"
PART = b"(part of <?echo $var:owner?>)"


def examples(path):
    """The blocks of each example by their kinds, and the example's line."""
    with open(path, "rb") as file:
        text = file.read()
    found = []
    for block in re.finditer(rb"^```(\S+)\n(.*?)^```$", text, re.M | re.S):
        kind, content = block[1].decode(), block[2]
        if kind.endswith(".sql"):
            break  # the recipes, which check_tests run
        if kind == "template":
            found.append((text.count(b"\n", 0, block.start()) + 1, {}))
        if found:
            found[-1][1][kind] = content if kind == "log" else content[:-1]
    return found


def render(blocks, size):
    files = {"part.htm": PART, "t.htm": blocks["template"],
             **{kind: text for kind, text in blocks.items() if "." in kind}}
    with tempfile.TemporaryDirectory() as folder:
        os.makedirs(f"{folder}/device/etc")
        for name in ("htmltext_en.db", "htmltext.db"):
            files[f"device/etc/{name}"] = DATABASE
        for name, content in files.items():
            with open(f"{folder}/{name}", "wb") as file:
                file.write(content)
        run = subprocess.run([*COMMAND, "device", str(size), "t.htm"], cwd=folder,
                             capture_output=True, timeout=60)
    return run.stdout, re.sub(rb"zarn - (?!ERROR)[^\n]*\n", b"", run.stderr)


count = failed = 0
for document in [f"{SOURCE}/docs/templates.md", f"{SOURCE}/docs/security.md",
                 *sorted(glob.glob(f"{SOURCE}/tests/pages/*.md"))]:
    for line, blocks in examples(document):
        expected = blocks.get("page", b""), blocks.get("log", b"")
        for size in (0, 7):
            count += 1
            got = render(blocks, size)
            if got != expected:
                failed += 1
                print(f"{document}:{line}: expected {expected}, got {got}", file=sys.stderr)
print(f"{count} pages, {failed} wrong")
sys.exit(failed > 0 or count == 0)
