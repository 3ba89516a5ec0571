/* tools/common/options.h - a program's command line, read by a table of its options. */
#ifndef TOOLS_OPTIONS_H
#define TOOLS_OPTIONS_H

#include <cstddef>
#include <span>
#include <string>
#include <vector>

/* An option. The program numbers its rows by an enumeration of its own. */
struct OptionRow {
    const char *name; // without its dashes
    char letter;      // its short form, 0 for none
    bool takesValue;
};

/* What stands in a command line; every text is borrowed from it. */
struct CommandLine {
    std::vector<std::vector<const char *>> values; // of each row, in order; a flag's are empty
    std::vector<const char *> words;               // what is no option
    std::string problem;                           // why it is refused; empty when it is not

    bool has(size_t row) const
    {
        return !values[row].empty();
    }
    /* The last value of an option, or the other when it is not given. */
    const char *value(size_t row, const char *other = nullptr) const
    {
        return has(row) ? values[row].back() : other;
    }
};

/* Reads the command line up to the first option that is refused. A unique
 * beginning of a long name counts as the name. */
CommandLine readCommandLine(int argc, char **argv, std::span<const OptionRow> rows);

#endif
