/* interface/output.cpp - the page's way out: everything that a run writes to
 * its output descriptor passes here. Uses the handle of the run. */
#include "interface/output.h"

#include <errno.h>
#include <unistd.h>

#include "interface/process.h"

void writePiece(std::string_view piece)
{
    while (!piece.empty()) {
        const ssize_t written = write(inpr->outputFd, piece.data(), piece.size());
        if (written > 0)
            piece.remove_prefix(static_cast<size_t>(written));
        else if (written == 0 || errno != EINTR)
            return;
    }
}
