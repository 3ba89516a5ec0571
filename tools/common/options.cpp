/* tools/common/options.cpp - hands a table of options to getopt, and collects what it
 * finds. */
#include "tools/common/options.h"

#include <algorithm>

#include <getopt.h>

// What getopt calls the row of an option: beyond every letter.
static constexpr int FIRST_ROW = 256;

// Returns the row that getopt means.
static size_t rowOf(int key, std::span<const OptionRow> rows)
{
    if (key >= FIRST_ROW)
        return static_cast<size_t>(key - FIRST_ROW);
    const auto found = std::find_if(rows.begin(), rows.end(),
                                    [key](const OptionRow &row) { return row.letter == key; });
    return static_cast<size_t>(found - rows.begin());
}

CommandLine readCommandLine(int argc, char **argv, std::span<const OptionRow> rows)
{
    CommandLine line = {std::vector<std::vector<const char *>>(rows.size()), {}, ""};
    std::string letters = ":";
    std::vector<option> names;
    for (const OptionRow &row : rows) {
        if (row.letter)
            letters += std::string(1, row.letter) + (row.takesValue ? ":" : "");
        names.push_back({row.name, row.takesValue ? required_argument : no_argument, nullptr,
                         FIRST_ROW + static_cast<int>(names.size())});
    }
    names.push_back({});
    opterr = 0;
    optind = 0; // a program may read several lines
    for (int key; (key = getopt_long(argc, argv, letters.c_str(), names.data(), nullptr)) != -1;) {
        const bool isLetter = optopt > 0 && optopt < FIRST_ROW;
        const std::string given =
            isLetter ? std::string("-") + static_cast<char>(optopt) : argv[optind - 1];
        if (key == ':' || key == '?') {
            line.problem = key == ':' ? "option '" + given + "' needs a value"
                                      : "wrong option '" + given + "'";
            return line;
        }
        line.values[rowOf(key, rows)].push_back(optarg ? optarg : "");
    }
    line.words.assign(argv + optind, argv + argc);
    return line;
}
