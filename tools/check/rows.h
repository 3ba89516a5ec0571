/* tools/check/rows.h - how many rows a query answers, as far as its text and the schema tell. */
#ifndef ORV_CHECK_ROWS_H
#define ORV_CHECK_ROWS_H

#include "site.h"

// How often a body runs. most: 2 for any number, unless exact.
struct RowBounds {
    size_t least;
    size_t most;
    bool exact; // least and most are one number, which is meant
};

/* Of a command that runs its body for each row, or for the first one. */
RowBounds rowBoundsOf(Site &site, const Template &tpl, const Command &command);

#endif
