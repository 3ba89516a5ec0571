/* tools/preview/answer.h - the CGI program: answers one request (RFC 3875). */
#ifndef PREVIEW_ANSWER_H
#define PREVIEW_ANSWER_H

#include <string>

// Where the preview's own addresses begin. No file of a site has one: names with a dot
// in front are not sent.
inline constexpr char ownAddress[] = "/.orv-preview/";

/* Answers the request of the environment on standard output. work: the launcher's work
 * folder. Returns the exit status. */
int answerRequest(const std::string &work);

#endif
