/* tools/textdb/commands.h - the commands of orv-textdb, the translators' tool.
 *
 * In a PO file msgid is a text field's id and msgstr its text. Each command takes
 * the words behind its name and its options, prints what it has to say, and
 * returns the exit status. */
#ifndef TOOLS_TEXTDB_COMMANDS_H
#define TOOLS_TEXTDB_COMMANDS_H

#include <string>

#include "tools/common/options.h"

// Exit statuses: the last two for a file and for the command line that is wrong.
enum { STATUS_OK = 0, STATUS_FAULT = 1, STATUS_USAGE = 2 };

/* The rows of the options, as the table in orv-textdb.cpp has them. */
enum OptionNumber : size_t {
    OPT_OUTPUT,
    OPT_FUZZY,
    OPT_EMPTY,
    OPT_TEMPLATES,
    OPT_SOURCE,
    OPT_HARD_CODED,
    OPT_UNUSED,
    OPT_JSON,
    OPT_MISSING,
    OPT_FAIL_UNDER,
    OPT_DRY_RUN,
    OPT_CONFIG,
    OPT_HELP,
    OPT_VERSION
};

int runSync(const CommandLine &line);
int runPot(const CommandLine &line);
int runUpdate(const CommandLine &line);
int runStatus(const CommandLine &line);
int runPseudo(const CommandLine &line);
int runBuild(const CommandLine &line);
int runDump(const CommandLine &line);
int runGet(const CommandLine &line);
int runCheck(const CommandLine &line);
int runFields(const CommandLine &line);

/* Reads a database. Returns false after a complaint, also about one that has a
 * fault. */
bool readDatabase(const char *path, std::string *file);

#endif
