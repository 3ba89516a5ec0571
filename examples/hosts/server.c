/* examples/hosts/server.c - a web server of its own, on libmicrohttpd. A function puts the
 * page together in memory. One thread makes all pages, as the interpreter wants it.
 *   cc server.c $(pkg-config --cflags --libs orvinterpreter libmicrohttpd) -o server
 *   PAGES=pages ./server 8080
 * With the port 0 it takes any free one. */
#include "host.h"

#include <microhttpd.h>

static int32_t keepPage(Interpreter *interpreter, const char *bytes, size_t length)
{
    FILE *page = Orv_Interpreter_HostData(interpreter);
    return (int32_t)fwrite(bytes, 1, length, page);
}

static enum MHD_Result setField(void *interpreter, enum MHD_ValueKind kind, const char *name,
                                const char *value)
{
    (void)kind;
    if (value && !strchr(name, '[') && strcmp(name, "lang") != 0)
        Orv_Interpreter_SetVariable(interpreter, name, value);
    return MHD_YES;
}

/* Runs a template, null for none. Returns its page, the caller's to be freed, and its length;
 * null when there is no such page, or no memory for it. */
static char *makePage(Interpreter *interpreter, const char *path, size_t *length)
{
    char *bytes = NULL;
    FILE *page = open_memstream(&bytes, length);
    if (!page)
        return NULL;
    Orv_Interpreter_SetHostData(interpreter, page);
    const int made = path && Orv_Interpreter_Run(interpreter, path, -1) != ORV_RUN_NO_TEMPLATE &&
                     Orv_Interpreter_OutputError(interpreter) == 0;
    if (fclose(page) == 0 && made)
        return bytes;
    free(bytes);
    return NULL;
}

static enum MHD_Result answerVisit(void *data, struct MHD_Connection *connection,
                                   const char *address, const char *method, const char *version,
                                   const char *upload, size_t *uploaded, void **visit)
{
    static char missing[] = "There is no such page.\n";
    Interpreter *interpreter = data;
    size_t length = 0;
    (void)version, (void)upload, (void)uploaded, (void)visit;
    if (strcmp(method, "GET") != 0 && strcmp(method, "HEAD") != 0)
        return MHD_NO;
    Orv_Interpreter_Reset(interpreter); /* nothing of the visitor before */
    chooseLanguage(MHD_lookup_connection_value(connection, MHD_HEADER_KIND, "Accept-Language"));
    MHD_get_connection_values(connection, MHD_GET_ARGUMENT_KIND, setField, interpreter);
    char *page = makePage(interpreter, templateOf(address), &length);
    struct MHD_Response *response =
        page ? MHD_create_response_from_buffer(length, page, MHD_RESPMEM_MUST_FREE)
             : MHD_create_response_from_buffer(strlen(missing), missing, MHD_RESPMEM_PERSISTENT);
    MHD_add_response_header(response, "Content-Type",
                            page ? "text/html; charset=utf-8" : "text/plain");
    const enum MHD_Result result =
        MHD_queue_response(connection, page ? MHD_HTTP_OK : MHD_HTTP_NOT_FOUND, response);
    MHD_destroy_response(response);
    return result;
}

int main(int argc, char **argv)
{
    const uint16_t port = argc > 1 ? (uint16_t)atoi(argv[1]) : 8080;
    Interpreter *interpreter = makeInterpreter();
    if (!interpreter)
        return 1;
    Orv_Interpreter_SetOutput(interpreter, keepPage);
    struct MHD_Daemon *server = MHD_start_daemon(MHD_USE_ERROR_LOG, port, NULL, NULL, answerVisit,
                                                 interpreter, MHD_OPTION_END);
    if (!server)
        return 1;
    printf("http://127.0.0.1:%u/\n", MHD_get_daemon_info(server, MHD_DAEMON_INFO_BIND_PORT)->port);
    fflush(stdout);
    while (MHD_run_wait(server, -1) == MHD_YES)
        ;
    MHD_stop_daemon(server);
    Orv_Interpreter_Destroy(interpreter);
    return 0;
}
