/* tools/textdb/pseudo.cpp - the command pseudo: a language for looking at pages, made from the
 * source: its letters have accents, its texts are longer and stand in brackets. What has none
 * is not translated, and what lacks a bracket is cut. */
#include "commands.h"

#include <algorithm>
#include <cstdio>
#include <string>
#include <unordered_map>
#include <vector>

#include "tools/common/files.h"
#include "tools/common/notes.h"
#include "tools/common/po.h"
#include "tools/common/translation.h"
#include "host/encoding.h"
#include "source.h"
#include "textfields.h"

// By the letters of ASCII, those that stand for them.
static constexpr const char *smallLetters[] = {"å", "ƀ", "ç", "ð", "é", "ƒ", "ĝ", "ĥ", "î",
                                               "ĵ", "ķ", "ļ", "ɱ", "ñ", "ö", "þ", "ǫ", "ŕ",
                                               "š", "ţ", "û", "ṽ", "ŵ", "ẋ", "ý", "ž"};
static constexpr const char *largeLetters[] = {"Å", "Ɓ", "Ç", "Ð", "É", "Ƒ", "Ĝ", "Ĥ", "Î",
                                               "Ĵ", "Ķ", "Ļ", "Ḿ", "Ñ", "Ö", "Þ", "Ǫ", "Ŕ",
                                               "Š", "Ţ", "Û", "Ṽ", "Ŵ", "Ẋ", "Ý", "Ž"};

// No language has this code. A name of two letters is what databases need.
static constexpr char PSEUDO_LANGUAGE[] = "xx";

// A text is longer by this part of its characters, as other languages are.
static constexpr size_t LONGER_BY = 3; // a third

static std::string pseudoText(std::string_view text)
{
    static constexpr char BLANKS[] = " \t\n";
    const size_t first = text.find_first_not_of(BLANKS);
    if (first == std::string_view::npos)
        return std::string(text);
    const size_t last = text.find_last_not_of(BLANKS) + 1;
    std::string made(text.substr(0, first));
    made.append("[").append(1 + visibleLength(text) / LONGER_BY, '~');
    for (size_t pos = first; pos < last;) {
        const char c = text[pos];
        const size_t kept = keptLength(text, pos);
        const size_t length = std::max<size_t>(kept ? kept : characterLength(text.substr(pos)), 1);
        if (!kept && c >= 'a' && c <= 'z')
            made += smallLetters[c - 'a'];
        else if (!kept && c >= 'A' && c <= 'Z')
            made += largeLetters[c - 'A'];
        else
            made += text.substr(pos, length);
        pos += length;
    }
    return made + "]" + std::string(text.substr(last));
}

// Whether a text can be another one in all of its places: nothing compares it, and the other one
// stays in them.
static bool mayChange(const std::string &made, const std::vector<const FieldUse *> &uses)
{
    std::string cure;
    return std::all_of(uses.begin(), uses.end(), [&](const FieldUse *use) {
        return !(use->stands & STANDS_IN_COMPARISON) &&
               breaksPlace(made, *use, referencesOf(made), &cure).empty();
    });
}

int runPseudo(const CommandLine &line)
{
    std::vector<TemplateFields> templates;
    std::unordered_map<std::string_view, std::vector<const FieldUse *>> uses; // by id
    bool isGood = readTemplates({line.words.begin() + 1, line.words.end()}, &templates);
    for (const TemplateFields &page : templates)
        for (const FieldUse &use : page.uses)
            uses[use.id].push_back(&use);
    PoFile source = readPo(line.words[0]);
    isGood = isGood && source.errors == 0;
    for (const PoEntry &entry : source.entries) {
        const std::string text = sourceText(entry);
        const std::string made = pseudoText(text);
        std::string comments(entry.comments);
        setNote(&comments, NOTE_SOURCE, &text);
        po_message_set_comments(entry.message, comments.c_str());
        po_message_set_msgstr(entry.message,
                              mayChange(made, uses[entry.id]) ? made.c_str() : text.c_str());
        po_message_set_fuzzy(entry.message, 0);
    }
    if (isGood)
        setHeaderField(&source, "Language", PSEUDO_LANGUAGE);
    const std::string bytes = isGood ? printPo(source) : "";
    fwrite(bytes.data(), 1, bytes.size(), stdout);
    freePo(&source);
    return bytes.empty() ? STATUS_FAULT : STATUS_OK;
}
