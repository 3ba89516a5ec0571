/* interface/variables.cpp - the request's variables, as the web program sets
 * them: plain names go to the handle's list, and name[index] to the tree of the
 * templates' variables. */
#include <stdlib.h>
#include <string.h>

#include "base/log.h"
#include "base/process.h"
#include "base/text.h"
#include "vars/locals.h"
#include "vars/tree.h"

static void logNoMemory()
{
    logMessage<Message::SET_NO_MEMORY>();
}

// Stores name[index], where bracket points at the first "[" of name.
static int32_t setElement(Interpreter *interpreter, const char *name, const char *bracket,
                          const char *value)
{
    const char *indexText = bracket + 1;
    char *array = copyText({name, static_cast<size_t>(indexText - name)});
    char *index = copyText({indexText, strcspn(indexText, "]")});
    const bool stored =
        array && index && insertArray(&interpreter->varTree, array, index, value, VAR_REPLACE);
    free(array);
    free(index);
    if (!stored && inpr)
        logNoMemory();
    return stored ? ORV_VARIABLE_SET : ORV_VARIABLE_REFUSED;
}

int32_t Orv_Interpreter_SetVariable(Interpreter *interpreter, const char *name, const char *value)
{
    if (!interpreter) {
        if (inpr)
            logMessage<Message::SET_BAD_HANDLE>();
        return ORV_VARIABLE_REFUSED;
    }
    if (!name || !value || interpreter->isWriting)
        return ORV_VARIABLE_REFUSED;
    logMessage<Message::REQUEST_VARIABLE>(name, value);
    if (const char *bracket = strchr(name, '['))
        return setElement(interpreter, name, bracket, value);
    const bool isLanguage = strcmp(name, "lang") == 0;
    const int32_t result = insertLocalVar(&interpreter->localVars, name, value);
    if (isLanguage) // after the copies: name and value may be texts of the database that goes
        Orv_Interpreter_SetLanguage(value);
    if (result < 0)
        logNoMemory();
    return result;
}

int32_t Orv_Interpreter_ClearVariables(Interpreter *interpreter)
{
    if (!interpreter) {
        logMessage<Message::CLEAR_BAD_HANDLE>();
        return ORV_FAILED;
    }
    if (interpreter->isWriting)
        return ORV_FAILED;
    destroyLocalVarList(&interpreter->localVars);
    return ORV_OK;
}
