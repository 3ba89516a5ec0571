/* tools/common/words.h - words of lists that stand in tables. */
#ifndef TOOLS_WORDS_H
#define TOOLS_WORDS_H

#include <algorithm>
#include <initializer_list>
#include <string_view>

/* Whether a word is one of those. */
inline bool isOneOf(std::string_view word, std::initializer_list<std::string_view> words)
{
    return std::find(words.begin(), words.end(), word) != words.end();
}

/* Whether a list of words with a blank between them has a word; it never has an empty one. */
inline bool hasWord(std::string_view words, std::string_view word)
{
    for (size_t at = words.find(word); at != std::string_view::npos;
         at = words.find(word, at + 1)) {
        const size_t end = at + word.size();
        if ((at == 0 || words[at - 1] == ' ') && (end == words.size() || words[end] == ' '))
            return !word.empty();
    }
    return false;
}

#endif
