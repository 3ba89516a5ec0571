#!/bin/bash
# archive.sh ARCHIVE SOURCE COMPILER [EMULATOR]... - the static library has the names for
# web programs and no others, needs the C library alone, and makes a page in a program
# that uses names of the library's inside for its own functions.
set -euo pipefail
archive=$(realpath "$1") source=$(realpath "$2") compiler=$3
shift 3
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
wanted=$(sed -n '/^global:/,/systemRoot/s/^ *\([A-Za-z_][A-Za-z0-9_]*\);/\1/p' \
    "$source/interface/exports.map" | sort)
diff <(echo "$wanted") <(nm -g --defined-only "$archive" | awk 'NF == 3 {print $3}' | sort)
cat >"$work/host.c" <<'END'
#include <fcntl.h>
#include <orvinterpreter.h>

int pushStr = 1, inpr = 2, findVar = 3, zarn_parse = 4;

static int32_t openTemplate(Interpreter *interpreter, const char *path)
{
    return interpreter ? open(path, O_RDONLY) : -1;
}

static int32_t answerNothing(Interpreter *interpreter, int32_t mode, const char *query,
                             QueryRow **rows, int32_t *owned)
{
    (void)interpreter, (void)mode, (void)query, (void)rows, (void)owned;
    return 0;
}

static int32_t noError(Interpreter *interpreter, const char **message)
{
    (void)interpreter, (void)message;
    return 0;
}

int main(void)
{
    const InterpreterCallbacks callbacks = {openTemplate, answerNothing, noError};
    Interpreter *interpreter = Orv_Interpreter_Create(&callbacks);
    Orv_Interpreter_SetVariable(interpreter, "user", "<Ann>");
    const int32_t result = Orv_Interpreter_Run(interpreter, "page.htm", 1);
    Orv_Interpreter_Destroy(interpreter);
    return result + pushStr + inpr + findVar + zarn_parse - 10;
}
END
cd "$work"
"$compiler" -static -I"$source/interface" host.c "$archive" -o host
printf %s "<?repeat [ 1 3 ] '<?echo \$0?> '?><?echo \$var:user?>" >page.htm
page=$("$@" ./host)
[[ $page == '1 2 3 &lt;Ann&gt;' ]] || { echo "wrong page: $page" >&2 && exit 1; }
