/* exec/error.cpp - the web program's error message. */
#include "exec/exec.h"
#include "grammar/commands.h"
#include "base/process.h"
#include "scanner/input.h"

int32_t doError(uint32_t id, QueryRow **rows)
{
    const char *message = nullptr;
    *rows = nullptr;
    prepareCallback();
    if (inpr->callbacks->fError(inpr, &message) == 0)
        return 0;
    if (id == ID_ERRORMESSAGE)
        *rows = createQueryRow(message);
    return 1;
}
