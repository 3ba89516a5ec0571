/* tools/check/lsp.h - the checker as a server of the Language Server Protocol. */
#ifndef ORV_CHECK_LSP_H
#define ORV_CHECK_LSP_H

#include "site.h"

/* Serves on standard input and output until the client says exit or ends its output.
 * options: where the client's folder does not say otherwise. ownRoot: options names the
 * document root; else it is the client's folder.
 *
 * Returns the exit status: 0 after a shutdown, 1 without one. */
int serveLsp(SiteOptions options, bool ownRoot);

#endif
