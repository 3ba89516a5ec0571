#!/usr/bin/python3
"""check_lsp.py ORV-CHECK SITE - a client of the language server, over a copy of a part of the demo site."""
import json
import os
import shutil
import subprocess
import sys
import tempfile

checker, site = sys.argv[1:]
folder = tempfile.mkdtemp()
root = os.path.join(folder, "a site")
shutil.copytree(site, root, ignore=shutil.ignore_patterns(  # what nothing below asks for
    *(name + ".htm" for name in "traffic reboot backup password events devices login".split())))
database = os.path.join(folder, "router.db")
subprocess.run(f"cat '{site}'/database-*.sql | sqlite3 '{database}'", shell=True, check=True)
base = "file://" + root.replace(" ", "%20") + "/"
page = base + "new.htm"


def start(*options):
    texts = [os.path.join(root, "texts", name) for name in ("en.po", "de.po")]
    return subprocess.Popen(
        [checker, "--lsp", "--db", database, "--texts", texts[0], "--texts", texts[1],
         "--set-from", os.path.join(site, "../zarn/variables.txt"), *options],
        stdin=subprocess.PIPE, stdout=subprocess.PIPE, cwd=root)


server = start()
count = 0


def send(message):
    body = message if isinstance(message, bytes) else json.dumps(message).encode()
    server.stdin.write(b"Content-Length: %d\r\n\r\n%b" % (len(body), body))
    server.stdin.flush()


def receive():
    length = 0
    while (line := server.stdout.readline()) != b"\r\n":
        assert line, "the server has ended"
        length = int(line.split(b":")[1])
    message = json.loads(server.stdout.read(length))
    assert message.pop("jsonrpc") == "2.0"
    return message


def ask(method, **parameters):
    global count
    count += 1
    send({"jsonrpc": "2.0", "id": count, "method": method, "params": parameters})
    while True:
        message = receive()
        if message.get("id") == count and "method" not in message:
            return message


def tell(method, **parameters):
    send({"jsonrpc": "2.0", "method": method, "params": parameters})


def diagnostics(uri):
    while True:
        message = receive()
        if message.get("method") == "textDocument/publishDiagnostics" \
                and message["params"]["uri"] == uri:
            return message["params"]["diagnostics"]


def at(text, line, piece, behind=0):
    lines = text.split("\n")
    column = lines[line].index(piece) + behind
    units = len(lines[line][:column].encode("utf-16-le")) // 2
    return {"textDocument": {"uri": page}, "position": {"line": line, "character": units}}


def equal(got, wanted):
    assert got == wanted, f"got {got!r}, not {wanted!r}"


def has(whole, piece):
    assert piece in whole, f"no {piece!r} in {whole!r}"


try:
    equal(ask("textDocument/hover")["error"], {"code": -32002, "message": "initialize comes first"})
    equal(ask("initialize", rootUri=base.rstrip("/"), capabilities={})["result"]["capabilities"], {
        "textDocumentSync": {"openClose": True, "change": 1, "save": True}, "hoverProvider": True,
        "definitionProvider": True, "referencesProvider": True, "documentLinkProvider": {},
        "codeActionProvider": {"codeActionKinds": ["quickfix"]},
        "completionProvider": {"triggerCharacters": list("?$:.[ /")},
        "workspace": {"workspaceFolders": {"supported": True, "changeNotifications": True}}})
    tell("initialized")

    # What is wrong follows the text as it changes, with places that belong to it.
    text = "<!DOCTYPE html>\n<p>\U0001f388<?print $var:token?></p>\n"
    tell("textDocument/didOpen", textDocument={"uri": page, "text": text})
    found = diagnostics(page)
    equal([d["code"] for d in found], ["escape-missing"])
    equal(found[0]["range"]["start"], {"line": 1, "character": 13})
    text = ("<!DOCTYPE html>\n<?setvariable var:page[title] x?><?include footer.frm?>{?site.menu?}\n"
            "<?multiquery 'select id, name from device' `<p>\U0001f388 $2 $3 <?echo $var:token?> $1 $0 $19</p>`?>\n"
            "<?echo $var:page[title]?>\n<?query 'select name from device where id = :token'?>"
            "<input name=token><?-- orv-check: ignore text-compared ?>\n<?inc")
    tell("textDocument/didChange", textDocument={"uri": page}, contentChanges=[{"text": text}])
    found = [d for d in diagnostics(page) if d["code"] == "value-column"]
    here = {"line": 2, "character": 14}
    equal(found, [{"range": {"start": {"line": 2, "character": 53}, "end": {"line": 2, "character": 55}},
                   "severity": 1, "code": "value-column", "source": "orv-check",
                   "message": "$3 is column 3, but the query has 2", "relatedInformation": [
                       {"location": {"uri": page, "range": {"start": here, "end": here}},
                        "message": "the column list is here"}]}])

    # What stands there.
    for line, piece, known in (
            (2, "multiquery", "`multiquery QUERY BODY` prints its body for each row; values are escaped for HTML."),
            (2, "$2", "`$2`: column 2, **name** of level 0, the body of multiquery."),
            (2, "$3", "`$3`: column 3 of level 0, the body of multiquery."), (2, "$19", "`$19`: there is no level 1 here."),
            (2, "$1", "`$1`: column 1, **id** (a number) of level 0, the body of multiquery."),
            (2, "$0", "`$0`: the counter of level 0, the body of multiquery."),
            (2, "$var:token", "`$var:token`\n\n- set by the web program\n- sent by addresses.htm:21\n"),
            (1, "{?site.menu", "`{?site.menu?}`\n\n- en: Menu\n- de: Menü"), (3, "title", "- set in new.htm:2"),
            (1, "page[title]", "`$var:page[title]`\n\n- set in addresses.htm:1\n"), (1, "title", "- set in new.htm:2"),
            (4, ":token", "`:token`\n\n- set by the web program\n- sent by addresses.htm:21\n"),
            (4, "device", "```sql\nCREATE TABLE device (\n"), (4, "device", ") strict\n```"),
            (4, "name", "`device.name`: TEXT"), (4, "token>", "`$var:token`\n\n- set by the web program\n"), (2, "$var:token", "- sent by new.htm:5"),
            (4, "text-compared", "**text-compared**: A text field in a comparison. Another language, or the marks for "
             "translators, change how it ends.\n\n**ignore-comment**: A comment")):
        told = ask("textDocument/hover", **at(text, line, piece, 1))["result"]["contents"]
        equal(told["kind"], "markdown")
        assert told["value"].startswith(known) or told["value"].endswith(known), (known, told["value"])
    equal(ask("textDocument/hover", **at(text, 0, "DOCTYPE"))["result"], None)
    for line, piece, uri in ((1, "footer", "footer.frm"), (1, "{?site.menu", "texts/en.po"),
                             (3, "page[title]", "new.htm"), (3, "title", "overview.htm"),
                             (4, ":token", "new.htm"), (2, "$var:token", "new.htm")):
        has([p["uri"] for p in ask("textDocument/definition", **at(text, line, piece, 2))["result"]],
            base + uri)
    places = ask("textDocument/references", **at(text, 1, "{?site.menu", 2))["result"]
    equal(sorted(p["uri"] for p in places), [base + "menu.frm", page])
    places = ask("textDocument/references", context={"includeDeclaration": True}, **at(text, 1, "{?site.menu", 2))["result"]
    equal(len(places), 4)
    for line, piece, uri in ((3, "page[title]", base + "header.frm"), (4, "token>", page)):
        places = ask("textDocument/references", **at(text, line, piece))["result"]
        has([p["uri"] for p in places], uri)
    equal(ask("textDocument/documentLink", textDocument={"uri": page})["result"],
          [{"range": {"start": {"line": 1, "character": 43}, "end": {"line": 1, "character": 53}},
            "target": base + "footer.frm"}])

    # What a client may not send.
    send(b"{nonsense")
    equal(receive()["error"], {"code": -32700, "message": "no JSON"})
    send([])
    equal(receive()["error"], {"code": -32600, "message": "no request"})
    send({"method": "x", "id": []})
    equal(receive()["error"], {"code": -32600, "message": "an id is a number or a text"})
    for nested in (b"[" * 200000, b'{"method": "x", "id": ' + b"[" * 50000 + b"]" * 50000 + b"}"):
        send(nested)
        equal(receive()["error"], {"code": -32700, "message": "values are too deep"})
    equal(ask("textDocument/nothing")["error"], {"code": -32601, "message": "there is no textDocument/nothing"})
    equal(ask("textDocument/hover", textDocument=7)["error"], {"code": -32602, "message": "there is no 'uri'"})
    has(ask("textDocument/hover", textDocument={"uri": page},  # taken as the document's end
            position={"line": 99999, "character": 99999})["result"]["contents"]["value"], "**syntax**")
    tell("textDocument/didChange", textDocument={"uri": page}, contentChanges=[{}])

    # A long document, and the end of it.
    text = "<p>\n" + "<?echo `some text`?> more of it\n" * 32768 + "<?print $var:token?>"
    assert len(text) > 1 << 20
    tell("textDocument/didChange", textDocument={"uri": page}, contentChanges=[{"text": text}])
    found = diagnostics(page)
    equal([d["range"]["start"]["line"] for d in found if d["code"] == "escape-missing"], [32769])
    tell("textDocument/didClose", textDocument={"uri": page})
    equal(diagnostics(page), [])

    # A client that comes by way of a link hears of the document as it names it.
    os.symlink(root, os.path.join(folder, "link"))
    page = "file://" + os.path.join(folder, "link", "new.htm")
    tell("textDocument/didOpen", textDocument={"uri": page, "text": "<?echo $var:nothere?>"})
    equal([d["code"] for d in diagnostics(page)], ["variable-unset"])

    # What can be typed at the sign: one of it, what it replaces, and one that it is not.
    rows = "<?multiquery 'select id, name from device' `"
    for text, label, replaced, other, kind, detail in (
            ("<?inc¦", "include ", "inc", "echo ", 14, "`include PATH` puts another template in its place."),
            ("{?site.¦", "site.lang", "site.", None, 1, "en"),
            ("<?include foot¦er.frm?>", "footer.frm", "foot", "style.css", 17, ""),
            ("<?calc ¦?>", "* ", "", "eq ", 24, "`calc OPERATOR A B` prints the result, with the operands' decimals."),
            ("<?if ¦", "neq ", "", "echo ", 24, None), ("<?repeat ¦ 1 3 ] `x`?>", "[ ", "", None, 24, None),
            ("<?error f¦", "found ", "f", "echo ", 24, None),
            ("<?repeat [ 1 3 ¦", "] ", "", None, 24, "the last number is among them"),
            ("<?repeat [ 1 3 ¦", "[ ", "", None, 24, "the last number is left out"),
            ("<?setvariable var:pa¦", "page[title]", "pa", None, 6, "set in addresses.htm"),
            (rows + "<p>$¦</p>`?>", "$2", "$", "$3", 5, "name of multiquery"),
            (rows + "<?if eq $¦ ?>`?>", "$0", "$", "$10", 5, "the counter of multiquery"),
            (rows + "<?query 'select value from setting' \"$¦", "$11", "$", "$12", 5, "value of query"),
            (rows + "<?if eq $var:to¦", "$var:token", "$var:to", None, 6, "set by the web program"),
            ("<?echo $var:page[¦]?>", "title", "", "token", 6, "set in addresses.htm"),
            ("<?echo $var:page[¦]?>", "max", "", None, 14, "the array's max index"), ("$¦", None, "", None, 0, ""),
            ("<?echo $¦<form><input name=mine></form>", "$var:mine", "$", None, 6, "sent by a form or a link"),
            ("<?query 'select na¦ from device'?>", "name", "na", "device", 5, "TEXT of device"),
            ("<?query 'select ¦ from \"device\"'?>", "name", "", "value", 5, "TEXT of device"),
            ("<?query 'select d.¦ from device as d, setting s'?>", "id", "", "value", 5, "INTEGER of device"),
            ("<?query 'select 1 from de¦", "device", "de", "name", 22, ""), ("<?echo $$¦?>", None, "", None, 0, ""),
            ("<?query 'select 1 from device where id = :¦'?>", "token", "", "name", 21, "set by the web program"),
            *((f"<?query 'select {quote}¦'?>", None, "", None, 0, "") for quote in '"[`'),
            *((f"<?query 'select 1 from device {word} id, ¦'?>", "name", "", "device", 5, "TEXT of device")
              for word in "where on by having set values limit using ( )".split()),
            *((f"<?query '{words} ¦'?>", "device", "", "name", 22, "")
              for words in ("select 1 from", "select 1 from setting,", "select 1 from setting join", "insert into", "update")),
            ("<?query 'select [id]¦ from device'?>", "name", "", "device", 5, "TEXT of device"),
            ("<?-- orv-check: ignore syntax: esc¦ ?>", None, "", None, 0, ""),
            ("<?echo $var:addr¦", "$var:address[", "$var:addr", "$var:address[]", 6, "set by the web program"),
            ("<?-- orv-check: ignore syntax: so ?><?-- orv-check: ignore escape-¦ ?>", "escape-missing", "escape-", None, 14, None)):
        before, behind = ("<p>\U0001f388" + text).split("¦")
        tell("textDocument/didChange", textDocument={"uri": page},
             contentChanges=[{"text": before + behind}])
        items = ask("textDocument/completion", **at(before, 0, before, len(before)))["result"]
        labels = [item["label"] for item in items]
        assert (label in labels if label else not labels) and other not in labels, (text, labels)
        for item in [item for item in items if item["label"] == label]:
            begin, end = (item["textEdit"]["range"][side]["character"] - 1 for side in ("start", "end"))
            equal((before[begin:], end, item["textEdit"]["newText"]), (replaced, len(before), label))
            equal((item["kind"], detail and item["detail"]), (kind, detail))

    # What is mended for certain, and what is left to its author.
    for text, mended in (
            ("<?IF  Eq 1 $1 a?>", "<?if  eq 1 $1 a?>"), ("<?ehco a?>", "<?echo a?>"), ("<?foreach a?>", None),
            ("<?repeat [1 $var:token] `x`?>", "<?repeat [ 1 $var:token ] `x`?>"),
            ("<?repeat[ 1 2 ]'x'?>", "<?repeat [ 1 2 ] 'x'?>"), ("<?repeat [1 2 `x`?>", None),
            ("<?echo $var:tokne?>", "<?echo $var:token?>"), ("<?echo $var:zzz?>", None),
            ("<?echo $var:token[1]?>", "<?echo $var:token?>"),
            ("<?setvariable var:shade 1?><?echo $var:shade$var:shaed?>",
             "<?setvariable var:shade 1?><?echo $var:shade$var:shade?>"),
            ("{?site.mneu?}", "{?site.menu?}"), ("<?include mneu.frm?>", "<?include menu.frm?>"),
            ("<?query 'select name from device where id = :tokne'?>",
             "<?query 'select name from device where id = :token'?>"),
            ("<script>a = '<?echo $var:token?>'</script>", "<script>a = '<?printjs $var:token?>'</script>"),
            ("<script>a = <?echo $var:token?></script>", None),
            ("<a onclick=\"a('<?echo $var:token?>')\">x</a>", None)):
        before = "<!DOCTYPE html>\n<p>\U0001f388 "
        tell("textDocument/didChange", textDocument={"uri": page}, contentChanges=[{"text": before + text}])
        while not (found := [d for d in diagnostics(page) if d["range"]["start"]["line"] == 1]):
            pass
        actions = ask("textDocument/codeAction", textDocument={"uri": page}, range=found[0]["range"],
                      context={"diagnostics": found})["result"]
        got = None
        for action in actions:
            edit, = action["edit"]["changes"][page]
            equal((action["title"], action["kind"], action["isPreferred"]), ("Put blanks around the brackets" if " [ " in
                  edit["newText"] else "Replace by " + edit["newText"], "quickfix", True))
            begin, behind = (edit["range"][side]["character"] - 6 for side in ("start", "end"))
            got = text[:begin] + edit["newText"] + text[behind:]
        equal((got, [action["diagnostics"] for action in actions]),
              (mended, [found[:1]] if mended else []))
        has(ask("textDocument/hover", textDocument={"uri": page}, position=found[0]["range"]["start"])
            ["result"]["contents"]["value"].replace("\\", ""),
            "**" + found[0]["code"] + "**: " + (found[0]["message"] if found[0]["code"] == "syntax" else ""))

    # Texts and the schema are read again when they have changed.
    german = os.path.join(root, "texts", "de.po")
    with open(german, encoding="utf-8") as file:
        content = file.read().replace('"Menü"', '"Karte"')
    with open(german, "w", encoding="utf-8") as file:
        file.write(content)
    subprocess.run(["sqlite3", database, "alter table device add column color text"], check=True)
    text = "<p>{?site.menu?}<?query 'select  from device'?>"
    tell("textDocument/didChange", textDocument={"uri": page}, contentChanges=[{"text": text}])
    equal(ask("textDocument/hover", **at(text, 0, "site.menu"))["result"]["contents"]["value"],
          "`{?site.menu?}`\n\n- en: Menu\n- de: Karte")
    has([item["label"] for item in ask("textDocument/completion", **at(text, 0, " from"))["result"]],
        "color")
    equal(ask("shutdown")["result"], None)
    tell("exit")
    equal(server.wait(timeout=10), 0)

    # Kinds that are left out, a language with a mistake, and a client that names no folder.
    with open(german, "ab") as file:
        file.write(b'\nmsgid "site.new\n')
    server = start("--ignore", "escape-missing")
    ask("initialize", rootUri=None, capabilities={})
    tell("textDocument/didOpen", textDocument={"uri": base + "clean.htm", "text": "<?setvariable var:page[title] x?>"})
    equal(diagnostics(base + "clean.htm"), [])
    page = base + "new.htm"
    text = "<p><?print $var:token?> {?site.menu?}</p><?echo $var:nothere?>"
    tell("textDocument/didOpen", textDocument={"uri": page, "text": text})
    found = diagnostics(page) + diagnostics(base + "texts/de.po")
    equal([d["code"] for d in found], ["variable-unset", "texts-broken"])
    has(ask("textDocument/hover", **at(text, 0, "{?site.menu", 2))["result"]["contents"]["value"],
        "en: Menu")
    equal(ask("shutdown")["result"], None)
    server.stdin.close()
    equal(server.wait(timeout=10), 0)

    # Each document belongs to the site of the nearest file above it, one server to them all.
    server = subprocess.Popen([checker, "--lsp"], stdin=subprocess.PIPE, stdout=subprocess.PIPE)
    for name, variable in (("one", "user"), ("two", "other")):
        os.makedirs(os.path.join(folder, name, "web", "deep"))
        with open(os.path.join(folder, name, "orv-check.json"), "w", encoding="ascii") as file:
            json.dump({"docroot": "web", "variables": {"set": [variable]}}, file)
    has(ask("initialize", workspaceFolders=[{"uri": f"file://{folder}/{name}", "name": name}
                                            for name in ("one", "none")],
            capabilities={})["result"]["capabilities"], "workspace")
    text = "<?echo $var:user?><?print $var:other?>"
    script = os.path.join(folder, "one", "web", "s.sql")
    with open(script, "w", encoding="ascii") as file:
        file.write("create table if not exists t(a);\ncreate view v as select 1;\ncreate virtual table w using fts5(c);")
    with open(os.path.join(folder, "one", "orv-check.json"), "w", encoding="ascii") as file:
        json.dump({"docroot": "web", "databases": {"main": "web/s.sql"}, "variables": {"set": ["user"]}}, file)
    for name, codes in (("one", ["variable-unset"]),
                        ("two", ["variable-unset", "escape-missing"])):
        page = f"file://{folder}/{name}/web/deep/new.page"
        tell("textDocument/didOpen", textDocument={"uri": page, "text": text})
        found = diagnostics(page)
        equal(sorted(d["code"] for d in found), sorted(codes))
        equal([d["range"]["start"]["character"] for d in found if d["code"] == "variable-unset"],
              [26 if name == "one" else 7])
    page = page.replace("two", "one")
    for line, table in enumerate("tvw"):
        text = f"<?query 'select * from {table}'?>"
        tell("textDocument/didChange", textDocument={"uri": page}, contentChanges=[{"text": text}])
        here = {"line": line, "character": 0}
        equal(ask("textDocument/definition", **at(text, 0, f"{table}'"))["result"],
              [{"uri": f"file://{script}", "range": {"start": here, "end": here}}])
    page = page.replace("one", "two")
    with open(os.path.join(folder, "two", "orv-check.json"), "w", encoding="ascii") as file:
        file.write('{"variables": {"set": ["user"]},\n "kinds": {"escape-missing": "off"}}')
    tell("workspace/didChangeWatchedFiles", changes=[])
    equal([d["range"]["start"]["character"] for d in diagnostics(page)], [26])
    with open(os.path.join(folder, "two", "orv-check.json"), "w", encoding="ascii") as file:
        file.write('{\n"variabels": {}}')
    tell("workspace/didChangeWatchedFiles", changes=[])
    problem = ("there is no setting 'variabels', only $schema, docroot, databases, functions, texts, textDatabases, "
               "variables, kinds, overrides, pages, routes, exclude")
    while (told := receive())["method"] != "window/showMessage":
        pass
    equal(told["params"], {"type": 1, "message": f"orv-check: {folder}/two/orv-check.json:2: {problem}"})
    equal(diagnostics(f"file://{folder}/two/orv-check.json"),
          [{"range": {"start": {"line": 1, "character": 0}, "end": {"line": 1, "character": 999}},
            "severity": 1, "source": "orv-check", "message": problem}])
    with open(os.path.join(folder, "two", "web", "deep", "orv-check.json"), "w", encoding="ascii") as file:
        file.write('{"variables": {"set": ["other"]}, "kinds": {"escape-missing": "off"}}')
    tell("workspace/didChangeWatchedFiles", changes=[])  # the document is another site's now
    equal([d["range"]["start"]["character"] for d in diagnostics(page)], [7])
    os.mkdir(os.path.join(folder, "none"))  # a folder without such a file, while it is open
    page = f"file://{folder}/none/new.htm"
    tell("textDocument/didOpen", textDocument={"uri": page, "text": "<?echo $var:user?>"})
    equal([d["code"] for d in diagnostics(page)], ["variable-unset"])
    tell("workspace/didChangeWorkspaceFolders", event={"removed": [{"uri": f"file://{folder}/none"}]})
    equal(diagnostics(page), [])
    server.kill()

    # A stream that has lost its frame.
    server = start()
    server.stdin.write(b"Content-Length: nothing\r\n\r\n{}")
    server.stdin.close()
    equal(server.wait(timeout=10), 1)
finally:
    server.kill()
    shutil.rmtree(folder)
