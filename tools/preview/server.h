/* tools/preview/server.h - the web server, lighttpd, that runs this program for each
 * request. */
#ifndef PREVIEW_SERVER_H
#define PREVIEW_SERVER_H

#include <sys/types.h>
#include <string>

/* Whether a server can have that port of 127.0.0.1 now. port: in and out; 0 stands for any,
 * and is set to one. Returns 0, or why not, as errno. */
int tryPort(int *port);

/* Starts lighttpd with a configuration in work, and returns when it takes requests.
 * child: out, to be ended by stopServer.
 *
 * Returns the empty text, or why there is no server. */
std::string startServer(const std::string &work, int port, pid_t *child);

/* Ends the server and the programs that it has started. */
void stopServer(pid_t child);

#endif
