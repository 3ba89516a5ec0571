#!/usr/bin/python3
"""tests/web/trouble.py ZARN - the web program where clocks jump and calls fail. Runs under
tools/serve.sh for its data; the program answers without the web server."""
import collections, os, sys
from visitor import *

ZARN = sys.argv[1]


def at(offset):
    """The program with a clock that is wrong by so much."""
    return f"faketime -f {offset} {ZARN}"


def tries(program, *passwords):
    visitor = Direct(program)
    return [visitor.login(password).status for password in passwords]


def check_waits():
    """How long the next try must wait after each, by a clock that stands still."""
    def guess(second):
        return Direct(f"env FAKETIME_FMT=%s faketime -f {second} {ZARN}").login("guess").text
    second = 2 ** 31
    for failures, wait in enumerate([0, 0, 0, 2, 4, 8, 16, 32] + [60] * 9):
        if wait:
            check((failures, wait - 1), True, "Please wait" in guess(second + wait - 1))
        second += wait
        check((failures, wait), True, "password is wrong" in guess(second))
    sql("delete from login_failure")


def check_clocks():
    """Times that lie ahead are void. What is done by the first clock, and by the second."""
    for what, first, second, page, signs_in in (
            ("no jump", "+0s", "+0s", 200, 422), ("a minute", "+0s", "+61s", 200, 303),
            ("the end", "+0s", "+901s", 403, 303), ("a clock that was ahead", "+1d", "+0s", 403, 303),
            ("a clock set back", "+0s", "-1h", 403, 303), ("back to 1970", "+0s", "-20000d", 403, 303)):
        visitor = Direct(at(first))
        visitor.login()
        visitor.program = at(second)
        check("a session, " + what, page, visitor.ask("overview.htm").status)
        check("wrong, " + what, [422] * 4, tries(at(first), *["guess"] * 4))
        check("a wait, " + what, [signs_in], tries(at(second), PASSWORD))
        sql("delete from login_failure")
    visitor = Direct(at("+1d"))
    visitor.login()
    visitor.post("reboot.htm", {"token": visitor.token()})
    visitor = Direct(ZARN)
    visitor.login()
    check("a restart that lies ahead", "token", [*visitor.ask("reboot.htm").hidden()][0])


def check_hashes():
    """Without memory or randomness nobody is told a lie, and nothing is counted."""
    owner = Direct(ZARN)
    owner.login()
    change = {"old": PASSWORD, "password": "new-password", "repeat": "new-password",
              "token": owner.token()}
    def state():
        return sql("select password from account"), sql("select sum(count) from event where code = 'login'")
    got = collections.Counter()
    limits = [f"prlimit --as={size << 20} {ZARN}" for size in range(4, 99, 2)]
    for program in [f"strace -qq -o /dev/null -e inject=getrandom:error=EAGAIN:when=2+ {ZARN}", *limits]:
        before = state()
        stranger, owner.program = Direct(program), program
        status = stranger.login().status
        if status == 303:
            break  # there is enough memory
        told = "zarn: " in stranger.log
        sql("update account set password = null")
        first = stranger.login().status
        sql("update account set password = ?", before[0][0][0])
        changed = owner.post("password.htm", change).status
        got[status] += 1
        # Where there is too little for the program itself, the web server says so.
        check(program, ({0, 500, 503}, before, True), (
            {0, 500, 503, status, first, changed}, state(), told or status != 503))
    check("some memory, but not enough", True, got[503] > 3)
    check("enough", 303, status)
    check("nothing is counted", [303], tries(ZARN, PASSWORD))
    for length in (511, 512, 2048):  # of which some are too long to be hashed
        check(f"{length} characters", [422], tries(ZARN, "a" * length))
    sql("delete from login_failure")


def check_scripts():
    """What a script says of which a part is missing is not what it would have said."""
    before = sql("select * from settings")
    site = os.path.realpath(os.path.dirname(__file__) + "/../../examples/site")
    owner = Direct(ZARN)
    owner.login()
    token = owner.token()
    for name, call in (("settings.sql", "openat:error=EACCES"), ("settings.sql", "read:error=EIO:when=1"),
                       ("settings.sql", "read:error=EIO:when=2"), ("candidate.sql", "openat:error=ENOENT"),
                       ("candidate.sql", "read:error=EIO:when=2")):
        owner.program = f"strace -qq -o /dev/null -P {site}/{name} -e inject={call} {ZARN}"
        answer = owner.post("settings.htm", {"token": token, **FORM, "version": before[0][-1]})
        check((name, call), (503, True, True, before), (
            answer.status, "nothing has been changed" in answer.text,
            f"cannot read file '{name}'" in owner.log, sql("select * from settings")))


Direct(ZARN).login()  # the first visit
check_waits()
check_clocks()
check_hashes()
check_scripts()
sys.exit(bool(failed))
