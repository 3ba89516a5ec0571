/* examples/zarn/settings.h - stores the settings page's form in the database. */
#ifndef ZARN_SETTINGS_H
#define ZARN_SETTINGS_H

#include <vector>
#include "request.h"

/* Checks the form's values and stores them all, or none.
 * dbFile: the database, opened for writing for this call alone.
 *
 * Returns null when they are stored; else the id of the text that tells the user
 * what is wrong. Problems that are not the user's are reported on standard error. */
const char *saveSettings(const char *dbFile, const std::vector<FormField> &fields);

#endif
