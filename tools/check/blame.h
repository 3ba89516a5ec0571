/* tools/check/blame.h - who puts a value into a variable that can hold anything. */
#ifndef ORV_CHECK_BLAME_H
#define ORV_CHECK_BLAME_H

#include "report.h"

/* Notes on the places that put a value which can hold anything into a variable or element
 * of that key, each once, and on those that put it into the variables it comes from. None
 * where only the web program sets it, or a request. */
std::vector<Note> blameFor(Site &site, std::string_view key);

#endif
