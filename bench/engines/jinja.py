"""bench/engines/jinja.py - the engine Jinja2, as bench/worker.h describes.
Ways: parse, compiled."""
import os
import sys

try:
    import jinja2
except ImportError:
    sys.exit(77)

folder, way = sys.argv[1:3]
os.chdir(folder)
texts, queries = {}, {}
page = {"t": texts, "q": queries}
with open("data.txt", encoding="utf-8") as data:
    for line in data:
        fields = line.rstrip("\n").split("\t")
        if fields[0] == "V":
            page[fields[1]] = fields[2]
        elif fields[0] == "T":
            texts[fields[1]] = fields[2]
        elif fields[0] == "Q":
            rows = queries[fields[1]] = []
        elif fields[0] == "R":
            rows.append(fields)  # a row's first column is its field 1

environment = jinja2.Environment(
    loader=jinja2.FileSystemLoader("."),
    autoescape=True,
    keep_trailing_newline=True,
    cache_size=0 if way == "parse" else 400,
    auto_reload=False,
)


def render():
    sys.stdout.write(environment.get_template("page.j2").render(page))
    sys.stdout.flush()


if len(sys.argv) > 3:
    render()
    sys.exit(0)
for line in iter(sys.stdin.readline, ""):
    for _ in range(int(line)):
        render()
    os.write(3, b"\n")
