/* host/apply.h - lets a setting reach the device. */
#ifndef HOST_APPLY_H
#define HOST_APPLY_H

#include <string>

/* Runs a program that carries changes out, and waits for it for some seconds.
 * path: of the program, which gets no argument, and of the environment a PATH alone. told: its
 * standard input. answer: out, what it prints, some hundred bytes at most.
 *
 * Returns whether it has ended with status 0; after a line on standard error where it could not
 * be run, or had to be ended. */
bool runApply(const char *path, const std::string &told, std::string &answer);

#endif
