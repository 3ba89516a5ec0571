/* tools/common/advice.cpp - a row for each message, in the order of Message: a message
 * without one does not compile. */
#include "tools/common/advice.h"

#include "tools/common/template.h"

static constexpr char noMemory[] = "Memory ran out";
static constexpr char noMemoryMending[] = "Other programs have taken the memory; load again.";

static constexpr Advice adviceTable[] = {
    // of the public calls
    {Message::CREATE_BAD_CALLBACKS, "", ""},
    {Message::CREATE_NO_MEMORY, noMemory, noMemoryMending},
    {Message::RUN_BAD_ARGUMENT, "", ""},
    {Message::RUN_BUSY, "", ""},
    {Message::RUN_TIMES, "", ""},
    {Message::SWITCH_IS_OFF, "", ""},
    {Message::SWITCH_IS_WRONG, "", ""},
    {Message::SWITCH_IS_ON, "", ""},
    {Message::SET_NO_MEMORY, noMemory, noMemoryMending},
    {Message::SET_BAD_HANDLE, "", ""},
    {Message::REQUEST_VARIABLE, "", ""},
    {Message::CLEAR_BAD_HANDLE, "", ""},
    // of templates and their text fields
    {Message::CANNOT_MAP, "The template %1 cannot be read: %2", "An empty file is no template."},
    {Message::EMPTY_INCLUDE, "include has no path", "Write the path behind include."},
    {Message::INCLUDES_TOO_DEEP, "Includes are nested too deep for %1",
     "20 templates are open. Does one include itself?"},
    {Message::INCLUDE_NO_MEMORY, noMemory, noMemoryMending},
    {Message::REFILL_NO_MEMORY, noMemory, noMemoryMending},
    {Message::VALUE_NO_MEMORY, noMemory, noMemoryMending},
    {Message::TEXT_MISSING, "There is no text {?%2?}",
     "The texts have no entry of that id, and the page shows nothing there."},
    // of the grammar; the command is dropped
    {Message::UNKNOWN_COMMAND, "Unknown Cmd",
     "Behind <? stands no command's name, so it came out as text. Names are written in small "
     "letters, and white space follows them."},
    {Message::LACKS_ARGUMENT, "Too few arguments in cmd",
     "The command lacks its last argument and was left out."},
    {Message::MALFORMED, "Too few arguments in <? %4",
     "The command and all that follows it, up to the next text of the page, were left out."},
    {Message::EMPTY_INDEX, "Missing array Index",
     "An element is written $var:NAME[INDEX]; the brackets are empty."},
    {Message::SURPLUS, "Cmd ending with too many arguments",
     "The command has more arguments than it takes and was left out. A text with blanks in it "
     "stands between quotes, and one that holds a quote between others."},
    {Message::ENDS_INSIDE, "File ends inside cmd",
     "A command or a comment has no ?>, and takes what stands behind it; comments nest. It may "
     "stand "
     "far above the end of the file."},
    // of command records
    {Message::PARSER_NO_MEMORY, "An argument has too many pieces, and the page ends here",
     "10,000 pieces are the most; set parts of it as variables first."},
    {Message::COMMAND_NO_MEMORY, noMemory, noMemoryMending},
    {Message::ELEMENT_NO_MEMORY, noMemory, noMemoryMending},
    {Message::BOUNDARY_MISSING, "repeat lacks its closing bracket",
     "Write repeat [ 1 3 ] with white space around each bracket."},
    // of commands that run
    {Message::BODIES_TOO_DEEP, "Bodies are nested too deep",
     "Bodies and includes in them are nested more than 64 deep."},
    {Message::MISSING_ARGUMENT, "The %1 argument is missing",
     "A mistake inside the argument has left nothing of it."},
    {Message::INCLUDE_REFUSED, "An include in an argument of a running body is refused",
     "Inside a body, an include cannot be the value of another command: write it where its text "
     "is to appear."},
    {Message::ARGUMENTS_TOO_LONG, "Computed arguments are too long",
     "66,559 bytes are the most; what goes beyond is left out."},
    {Message::ARGUMENTS_NO_MEMORY, noMemory, noMemoryMending},
    {Message::EMPTY_NUMBER, "A $ without its number", "$1 is column 1 of the outermost body."},
    {Message::NUMBER_TOO_DEEP, "There is no column or counter $%3 here",
     "$1 is column 1 of the outermost body, $11 that of the body inside it; write $01 where a "
     "letter or digit follows."},
    {Message::NUMBER_NO_COLUMN, "There is no column $%2 here",
     "$1 is column 1 of the outermost body, $11 that of the body inside it; write $01 where a "
     "letter or digit follows."},
    {Message::UNKNOWN_ELEMENT, "", ""},
    {Message::CALC_NO_NUMBER, "The %3 operand of calc is no number: %4",
     "A number was expected; the text counts as something else."},
    {Message::CALC_NO_MEMORY, noMemory, noMemoryMending},
    {Message::LOWER_NO_NUMBER, "The lower bound of repeat is no number: %3",
     "A number was expected; the text counts as something else."},
    {Message::UPPER_NO_NUMBER, "The upper bound of repeat is no number: %3",
     "A number was expected; the text counts as something else."},
    {Message::QUERY_SLOW, "", ""},
    {Message::QUERY_NO_MEMORY, noMemory, noMemoryMending},
    {Message::QUERY_FAILED, "", ""},
    {Message::QUERY_EMPTY, "No rows for %2",
     "Nothing is wrong if there may be none; the body is not run then."},
    // of languages
    {Message::LANGUAGE_INVALID, "'%1' is no language", "A language is two letters, such as en."},
    {Message::LANGUAGE_NO_LINK, "There are no texts: %1 leads nowhere",
     "The page has text fields: start with --texts en.po, or add texts in that language."},
    {Message::LANGUAGE_NO_DATABASE, "The texts cannot be read: %1", ""},
    {Message::FALLBACK_FAILED, "There is no second language",
     "Texts that the first language lacks are looked up in a second one, and there is none."},
    {Message::FALLBACK_OPENED, "", ""},
    {Message::FALLBACK_USED, "The language lacks {?%1?}; the second one's text stands there",
     "Translate it."},
};

static constexpr bool tableHolds()
{
    for (size_t i = 0; i < MESSAGE_COUNT; ++i)
        if (adviceTable[i].id != static_cast<Message>(i))
            return false;
    return sizeof adviceTable / sizeof adviceTable[0] == MESSAGE_COUNT;
}
static_assert(tableHolds(), "each message has its row, in the order of Message");

const Advice &adviceOn(Message id)
{
    return adviceTable[static_cast<size_t>(id)];
}

static std::string textOf(const observe::Value &value)
{
    return value.text ? value.text : std::to_string(value.number);
}

std::string tellAuthor(const observe::Told &told)
{
    std::string text;
    for (const char *at = adviceOn(told.id).told; *at; ++at) {
        const auto value = static_cast<size_t>(at[1] - '1');
        if (*at == '%' && value < told.count) {
            text += textOf(told.values[value]);
            ++at;
        } else {
            text += *at;
        }
    }
    return text;
}
