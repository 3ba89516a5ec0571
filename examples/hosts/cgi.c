/* examples/hosts/cgi.c - a CGI program: a process makes one page, in memory first, so that
 * the headers tell its length, or that there is none. Its address stands in PATH_INFO.
 *   cc cgi.c $(pkg-config --cflags --libs orvinterpreter) -o cgi
 *   PAGES=pages PATH_INFO=/index.htm ./cgi */
#define _GNU_SOURCE /* memfd_create */
#include "host.h"

#include <sys/mman.h>
#include <sys/sendfile.h>

int main(void)
{
    Interpreter *interpreter = makeInterpreter();
    const int page = memfd_create("page", MFD_CLOEXEC);
    if (!interpreter || page < 0)
        return 1; /* the web server answers 500 */
    chooseLanguage(getenv("HTTP_ACCEPT_LANGUAGE"));
    setFields(interpreter, getenv("QUERY_STRING"));
    const char *path = templateOf(getenv("PATH_INFO"));
    const int32_t result =
        path ? Orv_Interpreter_Run(interpreter, path, page) : ORV_RUN_NO_TEMPLATE;
    off_t length = lseek(page, 0, SEEK_CUR);
    const char *headers = "Content-Type: text/html; charset=utf-8";
    const char *instead = "";
    if (result == ORV_RUN_NO_TEMPLATE) {
        headers = "Status: 404 Not Found\r\nContent-Type: text/plain";
        instead = "There is no such page.\n";
    } else if (Orv_Interpreter_OutputError(interpreter) != 0) { /* no memory for the page */
        headers = "Status: 503 Service Unavailable\r\nContent-Type: text/plain";
        instead = "Please try again.\n";
    }
    if (*instead)
        length = 0;
    dprintf(1, "%s\r\nContent-Length: %lld\r\n\r\n%s", headers,
            (long long)length + (long long)strlen(instead), instead);
    for (off_t at = 0; at < length;)
        if (sendfile(1, page, &at, (size_t)(length - at)) <= 0)
            return 1;
    Orv_Interpreter_Destroy(interpreter);
    return 0;
}
