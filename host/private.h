/* host/private.h - a file that no other user of the machine can have a hand in, also
 * below a folder that everybody may write to, such as /tmp. */
#ifndef HOST_PRIVATE_H
#define HOST_PRIVATE_H

#include <string>

/* Makes a folder and an empty file in it where they are missing, and looks whether they are
 * this user's alone: no link, owned, and closed to others; and whether nobody else may put
 * another folder in the place of this one.
 * folder: an absolute path, whose last step alone may be missing. name: the file's. path: out.
 *
 * Returns false after a line on standard error. */
bool privateFile(const std::string &folder, const char *name, std::string &path);

#endif
