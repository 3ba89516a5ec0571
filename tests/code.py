#!/usr/bin/python3
"""tests/code.py SOURCE LIBRARY - the C of the documents is compiled as it stands there. Pieces get the frame
of their document: what a program has in front of them, and a main that runs what can be run."""
import os, pathlib, re, subprocess, sys, tempfile

source, library = (pathlib.Path(argument).resolve() for argument in sys.argv[1:])
INCLUDES = "#define _GNU_SOURCE\n" + "".join(f"#include <{name}.h>\n" for name in (
    "fcgiapp", "fcntl", "openssl/ssl", "orvinterpreter", "stdio", "stdlib", "string", "sys/mman", "sys/sendfile", "unistd"))
# In front of a document's pieces, behind them, and what the program prints.
FRAMES = {
    "hosts.md": ("", "int main(void) { (void)sendPage; }", ""),
    "embedding.md": ("struct Device { const char *name, *address; const struct Device *next; };\n", """
static int32_t openTemplate(Interpreter *interpreter, const char *path) { return open(path, O_RDONLY); }
static int32_t noError(Interpreter *interpreter, const char **message) { return 0; }
int main(void)
{
    struct Device phone = {"phone", "10.0.0.7", NULL}, printer = {"A & B", "10.0.0.5", &phone};
    const InterpreterCallbacks callbacks = {openTemplate, answer, noError};
    Interpreter *interpreter = Orv_Interpreter_Create(&callbacks);
    Orv_Interpreter_SetHostData(interpreter, &printer);
    statements1(interpreter, "rows.htm");
    statements1(interpreter, "none.htm");
    statements2(interpreter, "");
    dprintf(1, "%s", systemRoot);
    freeRows(appendRow(appendRow(NULL, "a", "b"), "c", "d"));
    (void)sendPage;
    return Orv_Interpreter_Destroy(interpreter);
}
""", "Content-Type: text/html; charset=utf-8\r\nContent-Length: 42\r\n\r\nA &amp; B at 10.0.0.5\nphone at 10.0.0.7\n.\n"
     "Status: 404 Not Found\r\nContent-Type: text/plain\r\n\r\nNo such page\n/srv/device"),
}


def build(what, text, *more):
    pathlib.Path("code.c").write_text(text)
    said = subprocess.run(["cc", "-Wall", "-Wextra", "-Werror", "-Wno-unused-parameter", "code.c",
                           f"-I{source}/interface", f"-I{source}/host", *more], capture_output=True, text=True)
    if said.returncode:
        sys.exit(f"{what}: {said.stderr}")


def declared(pieces):
    """Declarations as they are; each piece of statements in a function of its own."""
    count = 0
    for piece in pieces:
        if not re.match(r"static|/\*", piece):
            count += 1
            piece = f"static void statements{count}(Interpreter *interpreter, const char *path)\n{{\n{piece}}}\n"
        yield piece


with tempfile.TemporaryDirectory() as work:
    os.chdir(work)
    pathlib.Path("rows.htm").write_text("<?multiquery devices '<?echo $1?> at <?echo $2?>\n'?>.\n")
    for document in (source / "README.md", *sorted(source.glob("docs/*.md"))):
        blocks = re.findall(r"^```(?:c|\w+\.c)\n(.*?)^```$", document.read_text(), re.M | re.S)
        pieces = [block for block in blocks if "#include" not in block]
        for block in set(blocks) - set(pieces):  # whole sources, run by other tests
            build(document.name, block, "-c")
        if pieces:
            before, behind, expected = FRAMES.pop(document.name)
            build(document.name, INCLUDES + before + "".join(declared(pieces)) + behind, "-std=c99", "-o", "code", library,
                  f"-Wl,-rpath,{library.parent}", "-lfcgi", "-lssl")
            printed = subprocess.run(["./code"], capture_output=True, check=True).stdout.decode()
            if printed != expected:
                sys.exit(f"{document.name} prints\n{printed}, not\n{expected}")
sys.exit(f"no pieces in {list(FRAMES)}" if FRAMES else 0)
