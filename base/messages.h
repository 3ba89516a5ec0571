/* base/messages.h - every message of the library: its identity, what it tells of,
 * and its form in the log.
 *
 * Whoever needs to know what a message means goes by its identity, never by its words;
 * people search logs for those, so they are never changed. The forms:
 *
 *   the template   "%s, line %d: Syntax error..." (grammar), "%s, near line %d: ..."
 *                  (execution), "%s: ..." where no line is known; the name and the
 *                  line are currentTemplate()'s and currentLine()'s
 *   the library    "zarn - ERROR in FUNCTION: ...! (%s)\n", the template's name last
 *                  where one is being read; "zarn - ERROR ..." of databases. Two have
 *                  forms of their own: "ERROR: mmap() on file %s ..." of a template that
 *                  cannot be mapped, and "zarn - Syntaxerror: NO MEMORY! (%s)"
 *   a notice       "zarn - ...", and "%s, query %s: Real Time ..." of a slow query */
#ifndef ORV_BASE_MESSAGES_H
#define ORV_BASE_MESSAGES_H

#include <stddef.h>
#include <stdint.h>

#include <string_view>

#include "interface/orvinterpreter.h"

/* What a message tells of. The log does not show it; it is counted. */
enum class Severity : uint8_t {
    NOTICE = ORV_LOG_NOTICE,
    WARNING = ORV_LOG_WARNING,
    ERROR = ORV_LOG_ERROR,
};

enum class Message : uint8_t {
    CREATE_BAD_CALLBACKS,
    CREATE_NO_MEMORY,
    RUN_BAD_ARGUMENT,
    RUN_BUSY,
    RUN_TIMES,
    SWITCH_IS_OFF,
    SWITCH_IS_WRONG,
    SWITCH_IS_ON,
    SET_NO_MEMORY,
    SET_BAD_HANDLE,
    REQUEST_VARIABLE,
    CLEAR_BAD_HANDLE,
    CANNOT_MAP,
    EMPTY_INCLUDE,
    INCLUDES_TOO_DEEP,
    INCLUDE_NO_MEMORY,
    REFILL_NO_MEMORY,
    VALUE_NO_MEMORY,
    TEXT_MISSING,
    UNKNOWN_COMMAND,
    LACKS_ARGUMENT,
    MALFORMED,
    EMPTY_INDEX,
    SURPLUS,
    ENDS_INSIDE,
    PARSER_NO_MEMORY,
    COMMAND_NO_MEMORY,
    ELEMENT_NO_MEMORY,
    BOUNDARY_MISSING,
    BODIES_TOO_DEEP,
    MISSING_ARGUMENT,
    INCLUDE_REFUSED,
    ARGUMENTS_TOO_LONG,
    ARGUMENTS_NO_MEMORY,
    EMPTY_NUMBER,
    NUMBER_TOO_DEEP,
    NUMBER_NO_COLUMN,
    UNKNOWN_ELEMENT,
    CALC_NO_NUMBER,
    CALC_NO_MEMORY,
    LOWER_NO_NUMBER,
    UPPER_NO_NUMBER,
    QUERY_SLOW,
    QUERY_NO_MEMORY,
    QUERY_FAILED,
    QUERY_EMPTY,
    LANGUAGE_INVALID,
    LANGUAGE_NO_LINK,
    LANGUAGE_NO_DATABASE,
    FALLBACK_FAILED,
    FALLBACK_OPENED,
    FALLBACK_USED,
};

struct MessageDef {
    Message id;
    Severity severity;
    const char *form; // of printf, with the line end
};

/* In the order of Message. */
inline constexpr MessageDef messageTable[] = {
    // of the public calls
    {Message::CREATE_BAD_CALLBACKS, Severity::ERROR,
     "zarn - ERROR in Orv_Interpreter_Create: no valid callbacks!\n"},
    {Message::CREATE_NO_MEMORY, Severity::ERROR,
     "zarn - ERROR in Orv_Interpreter_Create: NO MEMORY!\n"},
    {Message::RUN_BAD_ARGUMENT, Severity::ERROR,
     "zarn - ERROR in Orv_Interpreter_Run: no valid interpreter-struct or input-path!\n"},
    {Message::RUN_BUSY, Severity::ERROR,
     "zarn - ERROR in Orv_Interpreter_Run: illegal multiple instances!\n"},
    {Message::RUN_TIMES, Severity::NOTICE,
     "zarn - %s: Real Time %lums, User Time %lums, System Time %lums - %d HTML-Text-Fields "
     "parsed\n"},
    {Message::SWITCH_IS_OFF, Severity::NOTICE, "zarn - $HTML_TOOLTIPS is not set!\n"},
    {Message::SWITCH_IS_WRONG, Severity::NOTICE,
     "zarn - $HTML_TOOLTIPS is set to illegal value %s, resetting to 0 (no tooltips)\n"},
    {Message::SWITCH_IS_ON, Severity::NOTICE, "zarn - $HTML_TOOLTIPS is set to %d\n"},
    {Message::SET_NO_MEMORY, Severity::ERROR,
     "zarn - ERROR in Orv_Interpreter_SetVariable: NO MEMORY!\n"},
    {Message::SET_BAD_HANDLE, Severity::ERROR,
     "zarn - ERROR in Orv_Interpreter_SetVariable: no valid interpreter-struct!\n"},
    {Message::REQUEST_VARIABLE, Severity::NOTICE, "zarn - CGI-Variable set: %s=%s!\n"},
    {Message::CLEAR_BAD_HANDLE, Severity::ERROR,
     "zarn - ERROR in Orv_Interpreter_ClearVariables: no valid interpreter-struct!\n"},
    // of templates and their text fields
    {Message::CANNOT_MAP, Severity::ERROR,
     "ERROR: mmap() on file %s failed with error '%s' => No parsing...\n"},
    {Message::EMPTY_INCLUDE, Severity::ERROR,
     "zarn - ERROR in pushStr: Empty include path (%s)!\n"},
    {Message::INCLUDES_TOO_DEEP, Severity::ERROR,
     "zarn - ERROR in pushStr: MAX_INCLUDE_DEPTH for including %s exceeded! (%s)\n"},
    {Message::INCLUDE_NO_MEMORY, Severity::ERROR, "zarn - ERROR in doInclude: NO MEMORY! (%s)\n"},
    {Message::REFILL_NO_MEMORY, Severity::ERROR, "zarn - ERROR in readInput: NO MEMORY! (%s)\n"},
    {Message::VALUE_NO_MEMORY, Severity::ERROR, "zarn - ERROR in dataToToken: NO MEMORY! (%s)\n"},
    {Message::TEXT_MISSING, Severity::WARNING,
     "%s: WARNING - HTML-Text entry {?%s?} not found in database\n"},
    // of the grammar; the command is dropped
    {Message::UNKNOWN_COMMAND, Severity::ERROR, "%s, line %d: Syntax error: Unknown Cmd\n"},
    {Message::LACKS_ARGUMENT, Severity::ERROR,
     "%s, line %d: Syntax error: Too few arguments in cmd\n"},
    {Message::MALFORMED, Severity::ERROR,
     "%s, line %d: Syntax error%sToo few arguments in <? %s\n"},
    {Message::EMPTY_INDEX, Severity::ERROR, "%s, line %d: Syntax error: Missing array Index\n"},
    {Message::SURPLUS, Severity::ERROR,
     "%s, line %d: Syntax error: Cmd ending with too many arguments.\n"},
    {Message::ENDS_INSIDE, Severity::ERROR, "%s: Syntax error: File ends inside cmd\n"},
    // of command records
    {Message::PARSER_NO_MEMORY, Severity::ERROR,
     "zarn - ERROR in pushStr: NO MEMORY while parsing %s with Bison!\n"},
    {Message::COMMAND_NO_MEMORY, Severity::ERROR, "zarn - ERROR in createCmd: NO MEMORY! (%s)\n"},
    {Message::ELEMENT_NO_MEMORY, Severity::ERROR, "zarn - ERROR in addArgElem: NO MEMORY! (%s)\n"},
    {Message::BOUNDARY_MISSING, Severity::ERROR,
     "zarn - ERROR in getRepeatUpBound: NO MEMORY or missing repeat boundary. (%s)\n"},
    // of commands that run
    {Message::BODIES_TOO_DEEP, Severity::ERROR,
     "zarn - ERROR in executeCmd: MAX_CMD_DEPTH exceeded! (%s)\n"},
    {Message::MISSING_ARGUMENT, Severity::ERROR,
     "zarn - ERROR in executeCmd: Missing %s argument in cmd ID%X! (%s)\n"},
    {Message::INCLUDE_REFUSED, Severity::ERROR,
     "zarn - ERROR in executeCmd: include in an argument of a running body refused! (%s)\n"},
    {Message::ARGUMENTS_TOO_LONG, Severity::ERROR,
     "zarn - ERROR in pushStr: ARG_MAXLEN exceeded! (%s)\n"},
    {Message::ARGUMENTS_NO_MEMORY, Severity::ERROR,
     "zarn - ERROR in pushStr: NO MEMORY while allocating %d Bytes. (%s)\n"},
    {Message::EMPTY_NUMBER, Severity::WARNING, "%s, near line %d: Invalid numVar Index\n"},
    {Message::NUMBER_TOO_DEEP, Severity::WARNING, "%s, near line %d: Invalid numVar Index $%s\n"},
    {Message::NUMBER_NO_COLUMN, Severity::WARNING, "%s: Invalid numVar Index $%s\n"},
    {Message::UNKNOWN_ELEMENT, Severity::ERROR,
     "zarn - ERROR in expandArg: Invalid argElem type\n"},
    {Message::CALC_NO_NUMBER, Severity::WARNING,
     "%s, near line %d: Warning: %s operator %s of calc is no valid number in current context\n"},
    {Message::CALC_NO_MEMORY, Severity::ERROR, "zarn - Syntaxerror: NO MEMORY! (%s)\n"},
    {Message::LOWER_NO_NUMBER, Severity::WARNING,
     "%s, near line %d: Warning: Lower boundary %s of repeat is no valid number in current "
     "context\n"},
    {Message::UPPER_NO_NUMBER, Severity::WARNING,
     "%s, near line %d: Warning: Upper boundary %s of repeat is no valid number in current "
     "context\n"},
    {Message::QUERY_SLOW, Severity::NOTICE,
     "%s, query %s: Real Time %lums, User Time %lums, System Time %lums\n"},
    {Message::QUERY_NO_MEMORY, Severity::ERROR, "zarn - ERROR in doQuery: NO MEMORY (%s)\n"},
    {Message::QUERY_FAILED, Severity::ERROR,
     "zarn - ERROR in doQuery: fQuery() returned -1! (%s)\n"},
    {Message::QUERY_EMPTY, Severity::NOTICE, "%s: No query result received for %s.\n"},
    // of languages
    {Message::LANGUAGE_INVALID, Severity::ERROR,
     "zarn - ERROR invalid language request for '%s'\n"},
    {Message::LANGUAGE_NO_LINK, Severity::ERROR, "zarn - ERROR could not resolve link '%s'\n"},
    {Message::LANGUAGE_NO_DATABASE, Severity::ERROR,
     "zarn - ERROR database file %s not found for requested language '%s'\n"},
    {Message::FALLBACK_FAILED, Severity::ERROR,
     "zarn - ERROR - requested open/mmap of fallback database (%s) failed!\n"},
    {Message::FALLBACK_OPENED, Severity::NOTICE,
     "zarn - Language entries not found for current language. Fallback database (%s) successfully "
     "opened\n"},
    {Message::FALLBACK_USED, Severity::NOTICE, "zarn - Fallback for DB-Field {?%s?}\n"},
};

inline constexpr size_t MESSAGE_COUNT = sizeof messageTable / sizeof messageTable[0];

constexpr const MessageDef &messageOf(Message id)
{
    return messageTable[static_cast<size_t>(id)];
}

constexpr bool messageTableHolds()
{
    for (size_t i = 0; i < MESSAGE_COUNT; ++i)
        if (messageTable[i].id != static_cast<Message>(i))
            return false;
    return MESSAGE_COUNT == static_cast<size_t>(Message::FALLBACK_USED) + 1;
}
static_assert(messageTableHolds());

// What a conversion of a form takes: a text, an int, an unsigned or an unsigned long.
constexpr char kindOf(const char *)
{
    return 's';
}
constexpr char kindOf(int32_t)
{
    return 'd';
}
constexpr char kindOf(uint32_t)
{
    return 'X';
}
constexpr char kindOf(unsigned long)
{
    return 'l';
}

/* Whether a form's conversions, which have no flags, take values of these kinds. */
constexpr bool formTakes(std::string_view form, std::string_view kinds)
{
    size_t used = 0;
    for (size_t at = form.find('%'); at != std::string_view::npos; at = form.find('%', at + 1))
        if (used == kinds.size() || form[at + 1] != kinds[used++])
            return false;
    return used == kinds.size();
}

#endif
