/* tools/common/stack.h - the stack for a program that walks what a template nests. */
#ifndef TOOLS_STACK_H
#define TOOLS_STACK_H

/* Runs a program's work on a stack that holds a walk through commands nested as
 * deeply as the grammar lets them be, whatever the shell's limit is. Gives the
 * work's result. Without memory for that stack, the work runs on the caller's. */
int runOnDeepStack(int (*work)(int argc, char **argv), int argc, char **argv);

#endif
