/* tools/preview/editor.h - how the author's editor is told to open a file at a place. */
#ifndef PREVIEW_EDITOR_H
#define PREVIEW_EDITOR_H

#include <stdint.h>
#include <string>
#include <string_view>
#include <vector>

/* Whether an editor is the address of one, "vscode://file{file}:{line}:{column}", which the
 * browser opens, and no command line. */
bool isAddress(std::string_view editor);

/* The words of an editor's command line, the program's path first, for a file at a place.
 * editor: a program with options; {file}, {line} and {column} in it stand for the place, and
 * without them it is told as that program knows it. One that needs a terminal gets a window
 * of one. Quotes hold words together.
 * problem: out, why there are no words. */
std::vector<std::string> editorWords(const std::string &editor, const std::string &file,
                                     int32_t line, int32_t column, std::string *problem);

#endif
