/* tools/preview/program.h - other programs, and how they are started. */
#ifndef PREVIEW_PROGRAM_H
#define PREVIEW_PROGRAM_H

#include <sys/types.h>
#include <string>
#include <vector>

/* The path of a program: beside this one, or in PATH; a name with a '/' is one already.
 * Empty when it is not installed. */
std::string findProgram(const std::string &name);

/* Starts a program, with no signal blocked and in a process group of its own, so that a
 * terminal's Ctrl-C does not reach it. arguments: the path first. out, err: files for what
 * it prints. Returns its id, the caller's to wait for; -1 when it cannot be started. */
pid_t startProgram(const std::vector<std::string> &arguments, const std::string &out,
                   const std::string &err);

#endif
