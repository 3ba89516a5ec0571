/* tests/process.h - shell commands in the private folder, for tests of the tools. */
#ifndef ORV_TESTS_PROCESS_H
#define ORV_TESTS_PROCESS_H

#include <stdlib.h>
#include <sys/wait.h>
#include <fstream>
#include <sstream>
#include <string>

inline std::string readFile(const std::string &path)
{
    std::ifstream file(path, std::ios::binary);
    std::ostringstream bytes;
    bytes << file.rdbuf();
    return bytes.str();
}

/* Leaves what the command printed in the files out and err. Returns its exit
 * status, or -1 when a signal ended it. */
inline int runCommand(const std::string &command)
{
    const int status = system(("exec >out 2>err; " + command).c_str());
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

#endif
