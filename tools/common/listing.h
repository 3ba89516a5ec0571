/* tools/common/listing.h - the files of a site, and which of them are templates. */
#ifndef TOOLS_LISTING_H
#define TOOLS_LISTING_H

#include <string>
#include <string_view>
#include <vector>

/* Lists the regular files below a folder, as paths below it, ascending. What is hidden, its
 * name beginning with a full stop, is left out, and no link to a folder is followed: so there
 * is no loop. Returns false, with the reason in problem, when a folder cannot be read. */
bool listFiles(const std::string &folder, std::vector<std::string> *files, std::string *problem);

/* Whether a file is to be looked at as a template: by its name, or because it holds a command
 * or a text field. Neither is a file of bytes that are no text, a very large one or an
 * editor's copy, and a link to a file below folder is that file. path: below folder. */
bool isTemplateFile(const std::string &folder, const std::string &path);

/* Whether a text holds a command or a text field. */
bool holdsCommand(std::string_view text);

#endif
