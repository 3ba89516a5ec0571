#!/usr/bin/python3
"""packaging/complete.py PROGRAM FOLDER - makes of a program's --help what completes its command
line in the shells: NAME for bash, _NAME for zsh and NAME.fish for fish."""
import pathlib, re, subprocess, sys, typing

FILES, FOLDERS, UNKNOWN = "files", "folders", ""


class Row(typing.NamedTuple):
    """A command, or an option: its letter, if any, the name of its argument, if it has one."""
    word: str
    letter: str
    argument: str
    does: str


def read_help(text):
    """The commands and the options of a --help, which has two blanks in front of each and
    between it and what it does."""
    commands, options = {}, {}
    for entry in re.findall(r"^  (\S.*(?:\n {8,}.*)*)", text, re.M):
        left, does = re.fullmatch(r"(.*?)(?:  +|\n +|$)((?:.|\n)*)", entry).groups()
        does = re.sub(r"\s+", " ", re.sub(r"^[a-z]+: ", "", does))
        does = re.match(r".*?(?=[;:.] |[;:.]$| \(|$)", does)[0]
        first, *others = left.split()
        if first.startswith("-"):
            letter = ""
            for part in left.split(", "):
                name, _, argument = part.partition(" ")
                if name.startswith("--"):
                    options.setdefault(name, Row(name, letter, argument.rstrip("."), does))
                else:
                    letter = name
        else:
            commands.setdefault(first, Row(first, "", "", does))
            for word in others:
                if word.startswith("--"):
                    options.setdefault(word, Row(word, "", "", does))
    return list(commands.values()), list(options.values())


def values_of(name, argument):
    """What an argument can be: files, folders, words that a command prints, or not known."""
    if re.search(r"FILE|\.po|\.db|TEMPLATE", argument):
        return FILES
    if "DIR" in argument:
        return FOLDERS
    return {"FORM": r"printf '%s\n' text json sarif", "MODE": r"printf '%s\n' 1 2",
            "ID": f"{name} --list | sed -n 's/^## //p'"}.get(argument, UNKNOWN)


def for_bash(name, commands, options):
    function = "_" + name.replace("-", "_")
    yield f"# {name} in bash"
    yield f"{function}()"
    yield "{"
    yield "    local word=${COMP_WORDS[COMP_CWORD]} before=${COMP_WORDS[COMP_CWORD - 1]} kind=(-f)"
    yield "    case $before in"
    for option in options:
        if option.argument:
            values = values_of(name, option.argument)
            kind = {FILES: "-f", FOLDERS: "-d", UNKNOWN: "-W ''"}.get(values, f'-W "$({values})"')
            yield f"    {' | '.join(filter(None, (option.word, option.letter)))}) kind=({kind}) ;;"
    yield "    *)"
    yield "        case $COMP_CWORD:$word in"
    yield f"        *:-*) kind=(-W '{' '.join(option.word for option in options)}') ;;"
    if commands:
        yield f"        1:*) kind=(-W '{' '.join(command.word for command in commands)}') ;;"
    yield "        esac"
    yield "        ;;"
    yield "    esac"
    yield '    mapfile -t COMPREPLY < <(compgen "${kind[@]}" -- "$word")'
    yield "}"
    yield f"complete -o filenames -F {function} {name}"


def quoted(text):
    return "'" + text.replace("'", "'\\''") + "'"


def for_zsh(name, commands, options):
    def escaped(text):
        return re.sub(r"[][:\\]", r"\\\g<0>", text)
    yield f"#compdef {name}"
    specifications = []
    for option in options:
        values = values_of(name, option.argument)
        action = {FILES: "_files", FOLDERS: "_files -/", UNKNOWN: " "}.get(
            values, f"{{ compadd -- $({values}) }}")
        argument = f":{escaped(option.argument)}:{action}" if option.argument else ""
        for word in filter(None, (option.word, option.letter)):
            specifications.append(f"*{word}[{escaped(option.does)}]{argument}")
    if commands:
        yield "local -a commands"
        yield "commands=("
        for command in commands:
            yield "    " + quoted(f"{command.word}:{escaped(command.does)}")
        yield ")"
        specifications.append("1:command:{ _describe command commands }")
    yield "_arguments \\"
    for specification in specifications:
        yield f"    {quoted(specification)} \\"
    yield "    '*:file:_files'"


def for_fish(name, commands, options):
    def escaped(text):
        return "'" + re.sub(r"['\\]", r"\\\g<0>", text) + "'"
    yield f"# {name} in fish"
    for command in commands:
        yield f"complete -c {name} -n __fish_use_subcommand -x -a {command.word} -d {escaped(command.does)}"
    for option in options:
        values = values_of(name, option.argument)
        more = {FILES: " -r -F", FOLDERS: " -x -a '(__fish_complete_directories)'", UNKNOWN: " -x"}.get(
            values, f" -x -a {escaped(f'({values})')}")
        letter = f" -s {option.letter[1:]}" if option.letter else ""
        yield (f"complete -c {name} -l {option.word[2:]}{letter}{more if option.argument else ''}"
               f" -d {escaped(option.does)}")


def main():
    program, folder = pathlib.Path(sys.argv[1]), pathlib.Path(sys.argv[2])
    said = subprocess.run([program, "--help"], check=True, capture_output=True, text=True).stdout
    commands, options = read_help(said)
    for shell, file in ((for_bash, program.name), (for_zsh, f"_{program.name}"),
                        (for_fish, f"{program.name}.fish")):
        (folder / file).write_text("\n".join(shell(program.name, commands, options)) + "\n")


main()
