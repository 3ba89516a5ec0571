/* tools/textdb/orv-textdb.cpp - the translators' tool: makes text databases from
 * gettext PO files, gives the PO back, checks databases, and compares them with
 * the text fields of templates. Here is its command line. */
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <new>
#include <string>

#include <unistd.h>

#include "tools/common/files.h"
#include "tools/common/stack.h"
#include "commands.h"

const char programName[] = "orv-textdb";

// In the order of OptionNumber.
static constexpr OptionRow options[] = {
    {"output", 'o', true}, {"fuzzy", 0, false},      {"empty", 0, false},   {"templates", 0, false},
    {"source", 0, true},   {"hard-coded", 0, false}, {"unused", 0, false},  {"json", 0, false},
    {"missing", 0, false}, {"fail-under", 0, true},  {"dry-run", 0, false}, {"config", 0, true},
    {"help", 0, false},    {"version", 0, false},
};

// A command of the tool.
struct Subcommand {
    const char *name;
    const char *usage; // what follows the name
    size_t least;      // words behind the name, at the least
    size_t most;       // and at the most
    unsigned options;  // those that it takes, a bit for each row
    bool needsOutput;  // -o must be given
    int (*run)(const CommandLine &line);
};

static constexpr unsigned bit(OptionNumber number)
{
    return 1u << number;
}

static constexpr Subcommand commands[] = {
    {"sync", "[--config FILE] [--fuzzy] [--dry-run]", 0, 0,
     bit(OPT_CONFIG) | bit(OPT_FUZZY) | bit(OPT_DRY_RUN), false, runSync},
    {"pot", "SOURCE.po TEMPLATE..., or pot --hard-coded TEMPLATE...", 1, SIZE_MAX,
     bit(OPT_HARD_CODED), false, runPot},
    {"update", "SOURCE.po TARGET.po...", 2, SIZE_MAX, 0, false, runUpdate},
    {"status", "[--json] [--missing] [--fail-under PERCENT] FILE...", 1, SIZE_MAX,
     bit(OPT_JSON) | bit(OPT_MISSING) | bit(OPT_FAIL_UNDER), false, runStatus},
    {"pseudo", "SOURCE.po [TEMPLATE...]", 1, SIZE_MAX, 0, false, runPseudo},
    {"build",
     "-o FILE.db [--fuzzy] [--empty] [--source SOURCE.po] INPUT.po [--templates TEMPLATE...]", 1,
     SIZE_MAX,
     bit(OPT_OUTPUT) | bit(OPT_FUZZY) | bit(OPT_EMPTY) | bit(OPT_TEMPLATES) | bit(OPT_SOURCE), true,
     runBuild},
    {"dump", "FILE.db", 1, 1, 0, false, runDump},
    {"get", "FILE.db ID", 2, 2, 0, false, runGet},
    {"check", "FILE.db", 1, 1, 0, false, runCheck},
    {"fields", "[--unused] FILE TEMPLATE...", 2, SIZE_MAX, bit(OPT_UNUSED), false, runFields},
};

static constexpr char helpText[] =
    "Usage: orv-textdb COMMAND [OPTION]... FILE...\n"
    "Brings texts from gettext PO files into text databases, and helps translators.\n"
    "\n"
    "  sync                          do it all for the site of orv-check.json: bring its\n"
    "                                languages in line with the source and its templates,\n"
    "                                begin those that have no file, make the databases\n"
    "  pot SOURCE.po TEMPLATE...     print what a new language begins with: each id that\n"
    "                                the templates use, with its source text and places\n"
    "  pot --hard-coded TEMPLATE...  print the words in templates that no text field\n"
    "                                stands for, in page text and in attributes such as alt\n"
    "  update SOURCE.po TARGET.po...\n"
    "                                bring languages in line with the source: new ids are\n"
    "                                added, gone ones are obsolete, and what was made\n"
    "                                for another source text is fuzzy\n"
    "  status FILE...                how far languages are, PO files or databases\n"
    "  pseudo SOURCE.po [TEMPLATE...]\n"
    "                                print a language with accents and longer texts, for\n"
    "                                looking at pages; what templates compare stays\n"
    "  build -o FILE.db INPUT.po     make a database, and warn of texts that break pages or\n"
    "                                differ from their source in what must be the same\n"
    "  dump FILE.db                  print a database as a PO file\n"
    "  get FILE.db ID                print one text\n"
    "  check FILE.db                 look for damage\n"
    "  fields FILE TEMPLATE...       print the fields of templates that are broken, or\n"
    "                                that a PO file or a database has no text for\n"
    "\n"
    "Options:\n"
    "  -o, --output FILE.db     build: where the database goes\n"
    "  --config FILE            sync: this file in the place of orv-check.json\n"
    "  --dry-run                sync: change nothing, and 1 when there is something to do\n"
    "  --fuzzy                  build, sync: take fuzzy texts, too\n"
    "  --empty                  build: make a database without any text, too\n"
    "  --source SOURCE.po       build: compare with these texts, not with those that INPUT.po\n"
    "                           notes\n"
    "  --templates TEMPLATE...  build: warn of texts that break pages of these\n"
    "  --unused                 fields: print the ids that no template uses, too\n"
    "  --json                   status: print JSON\n"
    "  --missing                status: list the ids without a text, and the fuzzy ones\n"
    "  --fail-under PERCENT     status: 1 when a language has less of its texts\n"
    "  --help, --version        print this text, or the version\n"
    "\n"
    "Exit status: 0 all is well; 1 something is wrong with a file, an id or a field;\n"
    "2 something is wrong with the command line.\n";

// Prints why the command line is refused. command: null when none was understood.
static int refuseUsage(const Subcommand *command, const std::string &problem)
{
    if (command)
        return complain(STATUS_USAGE, "%s; usage: orv-textdb %s %s", problem.c_str(), command->name,
                        command->usage);
    return complain(STATUS_USAGE, "%s; 'orv-textdb --help' shows the commands", problem.c_str());
}

static const Subcommand *findCommand(const char *name)
{
    for (const Subcommand &command : commands)
        if (strcmp(command.name, name) == 0)
            return &command;
    return nullptr;
}

// Runs the command that the words of the command line name.
static int runCommand(CommandLine *line)
{
    if (line->words.empty())
        return refuseUsage(nullptr, "no command is given");
    const char *name = line->words[0];
    const Subcommand *command = findCommand(name);
    if (!command)
        return refuseUsage(nullptr, std::string("unknown command '") + name + "'");
    line->words.erase(line->words.begin());
    if (line->words.size() < command->least)
        return refuseUsage(command, "an argument is missing");
    if (line->words.size() > command->most)
        return refuseUsage(command, "an argument is too much");
    if (command->run == runBuild && line->words.size() > 1 && !line->has(OPT_TEMPLATES))
        return refuseUsage(command, "an argument is too much");
    if (command->run == runPot && line->words.size() < 2 && !line->has(OPT_HARD_CODED))
        return refuseUsage(command, "an argument is missing");
    if (command->needsOutput && !line->has(OPT_OUTPUT))
        return refuseUsage(command, "the option -o is missing");
    for (size_t row = 0; row < std::size(options); ++row)
        if (line->has(row) && !(command->options >> row & 1))
            return refuseUsage(command,
                               std::string("'") + name + "' takes no --" + options[row].name);
    return command->run(*line);
}

static int run(int argc, char **argv)
{
    std::set_new_handler([] {
        complain(STATUS_FAULT, "out of memory");
        _exit(STATUS_FAULT);
    });
    signal(SIGXFSZ, SIG_IGN); // a file beyond a limit is a failing write, which is told
    CommandLine line = readCommandLine(argc, argv, options);
    int status;
    if (!line.problem.empty())
        status = refuseUsage(nullptr, line.problem);
    else if (line.has(OPT_HELP))
        status = printText(helpText);
    else if (line.has(OPT_VERSION))
        status = printText("orv-textdb " ORV_VERSION "\n");
    else
        status = runCommand(&line);
    return closeOutput(status, STATUS_FAULT);
}

int main(int argc, char **argv)
{
    return runOnDeepStack(run, argc, argv);
}
