#!/usr/bin/python3
"""tests/first_page.py DOCUMENT - does what the document says: what it puts into files, its commands,
and what these print. Run where the library is installed, in an empty folder."""
import pathlib, re, socket, subprocess, sys

document = pathlib.Path(sys.argv[1]).read_text()
with socket.socket() as free:
    free.bind(("127.0.0.1", 0))
    document = document.replace("8080", str(free.getsockname()[1]))
# The web server goes on by itself; here it ends with its commands, for who waits for its output.
document = document.replace("busybox httpd", "busybox httpd -f").replace(
    "-h www\n", "-h www & trap 'kill %1' EXIT; sleep 1\n")
printed = None
checks = 0
for file, kind, text in re.findall(r"(?:into\s+`([\w.]+)`[^`]*:\n\n)?^```(\w+)\n(.*?)^```$", document, re.M | re.S):
    if file:
        pathlib.Path(file).write_text(text)
    elif kind == "sh":
        with open("printed", "w+") as out:
            subprocess.run(["bash", "-ec", text], stdout=out, check=True)
        printed = pathlib.Path("printed").read_text()
    elif kind == "text":
        checks += 1
        if printed != text:
            sys.exit(f"{text}expected, and got\n{printed}")
sys.exit(f"{checks} outputs were compared" if checks != 4 else 0)
