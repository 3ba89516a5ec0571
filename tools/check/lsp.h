/* tools/check/lsp.h - the checker as a server of the Language Server Protocol. */
#ifndef ORV_CHECK_LSP_H
#define ORV_CHECK_LSP_H

#include "project.h"

/* Serves on standard input and output until the client says exit or ends its output. Each
 * document belongs to the site of the nearest site file above it, or else of the client's
 * folder that it is in; a document root or a site file that is given makes one site of all.
 *
 * Returns the exit status: 0 after a shutdown, 1 without one. */
int serveLsp(GivenOptions given);

#endif
