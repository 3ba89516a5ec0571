/* host/figures.h - what the device measures, for queries: the table "figure". */
#ifndef HOST_FIGURES_H
#define HOST_FIGURES_H

struct sqlite3;

/* Gives a connection the table figure: figure('NAME') has a row for each line of the file of that
 * name in a folder, with its number, line, its whole text, and its words, word1 to word17; a word
 * that a line has not is null. A file that is not there or cannot be read, or whose name leads out
 * of the folder, has no rows.
 * folder: borrowed for as long as the connection lives; its files may be links, such as to those
 * of /proc.
 *
 * Returns what SQLite does. */
int addFigures(sqlite3 *db, const char *folder);

#endif
