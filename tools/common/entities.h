/* tools/common/entities.h - entities of HTML: known ones, and what was to be one. */
#ifndef TOOLS_ENTITIES_H
#define TOOLS_ENTITIES_H

#include <stddef.h>

#include <string>
#include <string_view>

/* The length of what stands at an "&" and is no entity although it was to be one, 0 when
 * nothing is wrong. cure: out, what to write instead. */
size_t wrongEntity(std::string_view rest, std::string *cure);

/* The names of all entities that are known, a blank behind each. */
std::string_view entityNames();

#endif
