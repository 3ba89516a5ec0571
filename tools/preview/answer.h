/* tools/preview/answer.h - the CGI program: answers one request (RFC 3875). */
#ifndef PREVIEW_ANSWER_H
#define PREVIEW_ANSWER_H

#include <string>

/* Answers the request of the environment on standard output. work: the launcher's work
 * folder. Returns the exit status. */
int answerRequest(const std::string &work);

#endif
