/* interface/process.h - the run in progress. The other objects that belong to the
 * process are declared by the subsystems that use them. */
#ifndef ORV_INTERFACE_PROCESS_H
#define ORV_INTERFACE_PROCESS_H

#include "interface/interpreter.h"

extern "C" ORV_API Interpreter *inpr;

#endif
