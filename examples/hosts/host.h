/* examples/hosts/host.h - what the web programs of this folder share: the interpreter's
 * callbacks, and what becomes of a request's address, languages and fields.
 *
 * The templates are the files of one folder, PAGES in the environment; ROOT there is the
 * folder in which /etc/htmltext_de.db and the like are looked for, the device's own when
 * it is not set. */
#ifndef EXAMPLES_HOSTS_HOST_H
#define EXAMPLES_HOSTS_HOST_H

#include <fcntl.h>
#include <orvinterpreter.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

enum { LONGEST_NAME = 64, LONGEST_VALUE = 1024, GATHERED = 16384 };

/* An include command may name anything: what does not stand in the folder is refused. */
static int32_t openTemplate(Interpreter *interpreter, const char *path)
{
    (void)interpreter;
    return strchr(path, '/') ? -1 : open(path, O_RDONLY | O_CLOEXEC);
}

/* Answers the query "uptime" by a row that stays the program's: it is copied. */
static int32_t answer(Interpreter *interpreter, int32_t mode, const char *query, QueryRow **rows,
                      int32_t *owned)
{
    static char text[LONGEST_NAME];
    static QueryRow row = {NULL, NULL, 1, {text}};
    FILE *file;
    (void)interpreter, (void)mode;
    if (strcmp(query, "uptime") != 0 || !(file = fopen("/proc/uptime", "re")))
        return -1;
    const int read = fscanf(file, "%63[0-9]", text);
    fclose(file);
    if (read == 1)
        *rows = &row;
    *owned = 0;
    return 0;
}

static int32_t noError(Interpreter *interpreter, const char **message)
{
    (void)interpreter, (void)message;
    return 0;
}

/* Makes the handle, and the folder of the templates the working one. Returns null, with a
 * line on standard error, when one of them cannot be done. */
static inline Interpreter *makeInterpreter(void)
{
    static const InterpreterCallbacks callbacks = {openTemplate, answer, noError};
    const char *pages = getenv("PAGES");
    if (getenv("ROOT"))
        systemRoot = getenv("ROOT");
    if (!pages || chdir(pages) != 0) {
        fprintf(stderr, "PAGES is not set to the folder of the templates\n");
        return NULL;
    }
    Interpreter *interpreter = Orv_Interpreter_Create(&callbacks);
    if (interpreter)
        Orv_Interpreter_SetOutputBuffer(interpreter, GATHERED);
    else
        perror("Orv_Interpreter_Create");
    return interpreter;
}

/* The template of an address such as /index.htm, part of it; null when it names none. Only
 * names that end in .htm are pages: what is included has other names. */
static inline const char *templateOf(const char *address)
{
    static const char letters[] = "abcdefghijklmnopqrstuvwxyz0123456789-_.";
    const char *name = address && *address == '/' ? address + 1 : "";
    const size_t length = strlen(name);
    if (length == 0)
        return "index.htm";
    if (strspn(name, letters) != length || length < 5 || strcmp(name + length - 4, ".htm") != 0)
        return NULL;
    return name;
}

/* Chooses the first of the languages that a browser accepts, or else the device's own. It
 * is done for each request: a language outlives handles. */
static inline void chooseLanguage(const char *accepted)
{
    char code[3] = "";
    if (accepted && strspn(accepted, "abcdefghijklmnopqrstuvwxyz") == 2)
        memcpy(code, accepted, 2);
    if (!*code || Orv_Interpreter_SetLanguage(code) != ORV_OK)
        Orv_Interpreter_SetLanguage(NULL);
}

static inline int digitOf(char digit)
{
    const char *const digits = "0123456789abcdef0123456789ABCDEF";
    const char *found = digit ? strchr(digits, digit) : NULL;
    return found ? (int)(found - digits) % 16 : -1;
}

/* Decodes length bytes of a query string into a text. Returns whether they are one. */
static inline int decode(const char *from, size_t length, char text[LONGEST_VALUE])
{
    size_t at = 0;
    for (size_t i = 0; i < length; ++i) {
        int byte = from[i] == '+' ? ' ' : from[i];
        if (byte == '%') {
            if (length - i < 3 || digitOf(from[i + 1]) < 0 || digitOf(from[i + 2]) < 0)
                return 0;
            byte = digitOf(from[i + 1]) * 16 + digitOf(from[i + 2]);
            i += 2;
        }
        if (byte == 0 || at + 1 >= LONGEST_VALUE)
            return 0;
        text[at++] = (char)byte;
    }
    text[at] = '\0';
    return 1;
}

/* Sets the fields of a query string, "name=Ann&x=1". What is no field is left out, and so
 * is "lang", which would choose a language, and what would be an array's element. */
static inline void setFields(Interpreter *interpreter, const char *query)
{
    char name[LONGEST_VALUE];
    char value[LONGEST_VALUE];
    for (const char *field = query ? query : ""; *field; field += *field == '&') {
        const size_t length = strcspn(field, "&");
        const size_t sign = strcspn(field, "=&");
        if (sign < length && decode(field, sign, name) && !strchr(name, '[') &&
            strcmp(name, "lang") != 0 && decode(field + sign + 1, length - sign - 1, value))
            Orv_Interpreter_SetVariable(interpreter, name, value);
        field += length;
    }
}

#endif
