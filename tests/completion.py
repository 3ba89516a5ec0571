#!/usr/bin/python3
"""tests/completion.py FOLDER PROGRAMS - what the shells offer at the Tab key by the files in
FOLDER: each option of a program's --help and no other, commands, words and files. A shell that
is not installed is left out, by name."""
import os, pathlib, pty, re, select, shutil, subprocess, sys, tempfile, time

folder, programs = (pathlib.Path(argument).resolve() for argument in sys.argv[1:])
NAMES = "orv-render", "orv-textdb", "orv-check", "orv-preview"
BEGIN = {
    "bash": "bind 'set show-all-if-ambiguous on'; bind 'set page-completions off'; "
            "bind 'set completion-query-items 0'; bind 'set enable-bracketed-paste off'; "
            + "".join(f"source {folder}/{name}; " for name in NAMES),
    "zsh": f"fpath=({folder} $fpath); autoload -U compinit; compinit -u -D; LISTMAX=0; unsetopt zle_bracketed_paste; ",
}
OPTIONS = {"bash": ["--norc", "--noprofile"], "zsh": ["-f"]}
failed = False


def check(what, expected, got):
    global failed
    if expected != got:
        failed = True
        print(f"{what}\n  expected: {expected}\n  got:      {got}", file=sys.stderr)


class Fish:
    """What it offers it also tells by a command."""
    def offers(self, line, _):
        said = subprocess.run(["fish", "--no-config", "-c", f"set fish_complete_path {folder}; "
                               f"complete -C '{line}'"], capture_output=True, text=True).stdout
        return {word.split("\t")[0] for word in said.splitlines()}

    def end(self):
        pass


class Terminal:
    """A shell at its prompt. A key that comes too soon would end what it shows."""
    def __init__(self, shell):
        self.child, self.terminal = pty.fork()
        if self.child == 0:
            os.environ.update(PS1="> ", PROMPT="> ", TERM="dumb")
            os.execvp(shell, [shell, *OPTIONS[shell], "-i"])
        self.press(f"{BEGIN[shell]} stty rows 500 cols 200\n", lambda shown: True)

    def press(self, keys, is_enough):
        os.write(self.terminal, keys.encode())
        shown, until = "", time.monotonic() + 10
        while not is_enough(shown) and time.monotonic() < until:
            if select.select([self.terminal], [], [], 0.1)[0]:
                shown += os.read(self.terminal, 65536).decode(errors="replace")
        os.write(self.terminal, b"\x15\necho E''ND\n")
        rest = ""
        while "END\r" not in rest:
            rest += os.read(self.terminal, 65536).decode(errors="replace")
        return shown

    def offers(self, line, wanted):
        """The words that are listed; one alone is put into the line."""
        begun, alone = line[:line.rindex(" ") + 1], min(wanted)
        def words(shown):
            shown = re.sub(r"[\x07\x1b]|\[[0-9]*[A-Z]", "", shown)
            if len(wanted) == 1:
                return wanted if begun + alone in shown else {shown}
            listed = re.sub(r" +-- .*", "", shown)
            return set(re.findall(r"(?<![\w-])-{0,2}[A-Za-z][\w.-]*/?", listed)) - set(line.split())
        keys = "\t" if len(wanted) == 1 else "\t\t"
        return words(self.press(line + keys, lambda shown: wanted <= words(shown)))

    def end(self):
        os.close(self.terminal)
        os.waitpid(self.child, 0)


def check_shell(name):
    shell = Fish() if name == "fish" else Terminal(name)
    for program in NAMES:
        told = subprocess.run([program, "--help"], capture_output=True, text=True).stdout
        options = set(re.findall(r"(?<![\w-])--[a-z][a-z-]*", told))
        check(f"{name}: {program} --", options, shell.offers(f"{program} --", options))
    for line, wanted in (("orv-check --format ", {"text", "json", "sarif"}), ("orv-render --docroot f", {"folder/"}),
                         ("orv-render --db f", {"folder/", "file.db"}), ("orv-textdb d", {"dump"}),
                         ("orv-check --ignore escape-m", {"escape-missing"}),
                         ("orv-check --lsp f", {"folder/", "file.db"})):
        check(f"{name}: {line}", wanted, shell.offers(line, wanted))
    shell.end()


with tempfile.TemporaryDirectory() as work:
    os.chdir(work)
    os.mkdir("folder")
    pathlib.Path("file.db").touch()
    os.environ["PATH"] = f"{programs}:{os.environ['PATH']}"
    for one in ("bash", "zsh", "fish"):
        if shutil.which(one):
            check_shell(one)
        else:
            print(f"left out: {one}")
sys.exit(failed)
