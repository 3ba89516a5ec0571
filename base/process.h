/* base/process.h - the run in progress. The other objects that belong to the process
 * are their subsystems'. */
#ifndef ORV_BASE_PROCESS_H
#define ORV_BASE_PROCESS_H

#include "base/interpreter.h"

extern "C" ORV_API Interpreter *inpr;

#endif
