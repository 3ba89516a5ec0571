/* examples/hosts/fastcgi.c - a FastCGI program: a process makes the pages of one request
 * after another. A function takes the page; the headers go out in front of its first piece,
 * so that a page which does not exist is a 404.
 *   cc fastcgi.c $(pkg-config --cflags --libs orvinterpreter fcgi) -o fastcgi
 * A web server starts it, or spawn-fcgi. */
#include "host.h"

#include <fcgiapp.h>

struct Visit {
    FCGX_Request request;
    int hasHeaders; /* they are out */
};

static void sendHeaders(struct Visit *visit, const char *headers)
{
    if (!visit->hasHeaders)
        FCGX_FPrintF(visit->request.out, "%s\r\n\r\n", headers);
    visit->hasHeaders = 1;
}

static int32_t sendPage(Interpreter *interpreter, const char *bytes, size_t length)
{
    struct Visit *visit = Orv_Interpreter_HostData(interpreter);
    sendHeaders(visit, "Content-Type: text/html; charset=utf-8");
    return FCGX_PutStr(bytes, (int)length, visit->request.out);
}

static void answerVisit(Interpreter *interpreter, struct Visit *visit)
{
    char **environment = visit->request.envp;
    const char *path = templateOf(FCGX_GetParam("PATH_INFO", environment));
    visit->hasHeaders = 0;
    Orv_Interpreter_Reset(interpreter); /* nothing of the visitor before */
    chooseLanguage(FCGX_GetParam("HTTP_ACCEPT_LANGUAGE", environment));
    setFields(interpreter, FCGX_GetParam("QUERY_STRING", environment));
    if (path && Orv_Interpreter_Run(interpreter, path, -1) != ORV_RUN_NO_TEMPLATE)
        sendHeaders(visit, "Content-Type: text/html; charset=utf-8"); /* of an empty page */
    else
        sendHeaders(visit, "Status: 404 Not Found\r\nContent-Type: text/plain");
}

int main(void)
{
    struct Visit visit;
    Interpreter *interpreter = makeInterpreter();
    if (!interpreter || FCGX_Init() != 0 || FCGX_InitRequest(&visit.request, 0, 0) != 0)
        return 1;
    Orv_Interpreter_SetHostData(interpreter, &visit);
    Orv_Interpreter_SetOutput(interpreter, sendPage);
    while (FCGX_Accept_r(&visit.request) == 0) {
        answerVisit(interpreter, &visit);
        FCGX_Finish_r(&visit.request);
    }
    Orv_Interpreter_Destroy(interpreter);
    return 0;
}
