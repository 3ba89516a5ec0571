/* host/store.h - the databases as the web program itself uses them: what the forms
 * change, and the sessions. After that the pages get the connection, and it only reads. */
#ifndef HOST_STORE_H
#define HOST_STORE_H

#include <string>
#include <vector>
#include "request.h"

struct sqlite3;

using Rows = std::vector<std::vector<std::string>>;

/* Opens the database, made when it is missing, with that of the sessions attached as
 * "sessions": a transaction over both is one, also when the program is killed. Statements may
 * also call
 *   password_hash(PASSWORD)        a salted hash of it, for the database
 *   password_fits(PASSWORD, HASH)  1 when it is the password of that hash, else 0
 *   password_turn()                waits until fewer than two other programs have a turn
 * The first two are slow on purpose, NULL for a NULL argument, and fail when it cannot be
 * told. A turn lasts until the program ends; where there is none in 5 seconds the last fails.
 * figures: a folder of files that queries read (figures.h), borrowed; null for none.
 *
 * Returns null after a line on standard error; else the caller's, for a host to take. */
sqlite3 *storeOpen(const std::string &file, const std::string &sessionsFile, const char *figures);

/* Waits until no other program applies changes. The turn lasts until the program ends.
 *
 * Returns false after a line on standard error. */
bool storeApplyTurn(sqlite3 *db);

/* Whether the database of the sessions has its tables. */
bool storeHasSessions(sqlite3 *db);

enum ScriptResult { SCRIPT_DONE, SCRIPT_ROWS, SCRIPT_FAILED };

/* Runs statements one after the other, until one of them has rows: the script's answer,
 * and for the script of a form, what is wrong with the form.
 * parameters: :name is the value of the last of that name, NULL without one.
 * rows: out, what there is of an answer.
 *
 * Returns SCRIPT_DONE when nothing had rows. A transaction that is open at the end, and
 * after a failure, is rolled back. Failures are told on standard error. */
ScriptResult runScript(sqlite3 *db, const std::string &script,
                       const std::vector<FormField> &parameters, Rows &rows);

/* Gives scripts the fields of a form as a table, form (name, value), the last of each name.
 * Returns false when it cannot be made, after a line on standard error. */
bool storeForm(sqlite3 *db, const std::vector<FormField> &fields);

#endif
