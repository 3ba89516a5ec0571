/* tests/archive_host.c - a web program in C, to be linked with the static library:
 * archive_host ROOT BYTES TEMPLATE. It answers as docs/templates.md says of its examples,
 * gathers the page in BYTES, and keeps the interpreter's own files below ROOT. The page
 * goes to standard output, the diagnostics to standard error. */
#include <fcntl.h>
#include <orvinterpreter.h>
#include <stdlib.h>
#include <string.h>

/* Names of the library's inside, which stay the program's. */
int pushStr = 1, inpr = 2, findVar = 3, zarn_parse = 4;

static int32_t openTemplate(Interpreter *interpreter, const char *path)
{
    return interpreter ? open(path, O_RDONLY) : -1;
}

static int32_t answer(Interpreter *interpreter, int32_t mode, const char *query, QueryRow **rows,
                      int32_t *owned)
{
    static QueryRow phone = {NULL, NULL, 2, {"phone", "10.0.0.7"}};
    static QueryRow printer = {&phone, NULL, 2, {"printer", "10.0.0.5"}};
    (void)interpreter, (void)mode;
    phone.prev = &printer;
    *owned = 0;
    if (strcmp(query, "devices") == 0)
        *rows = &printer;
    return strcmp(query, "fail") == 0 ? -1 : 0;
}

static int32_t reportError(Interpreter *interpreter, const char **message)
{
    (void)interpreter;
    *message = "disk full";
    return 1;
}

int main(int argc, char **argv)
{
    const InterpreterCallbacks callbacks = {openTemplate, answer, reportError};
    if (argc != 4)
        return 2;
    systemRoot = argv[1];
    Interpreter *interpreter = Orv_Interpreter_Create(&callbacks);
    Orv_Interpreter_SetLog(2);
    Orv_Interpreter_SetLanguage("en");
    Orv_Interpreter_SetVariable(interpreter, "name", "Ann");
    Orv_Interpreter_SetOutputBuffer(interpreter, atoi(argv[2]));
    const int32_t result = Orv_Interpreter_Run(interpreter, argv[3], 1);
    Orv_Interpreter_Destroy(interpreter);
    return result + pushStr + inpr + findVar + zarn_parse - 10;
}
