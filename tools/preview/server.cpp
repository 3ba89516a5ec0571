/* tools/preview/server.cpp - configures lighttpd and starts it. It has a process group of its
 * own: a terminal's Ctrl-C reaches the launcher alone, which ends the group. */
#include "server.h"

#include <arpa/inet.h>
#include <errno.h>
#include <fcntl.h>
#include <limits.h>
#include <netinet/in.h>
#include <signal.h>
#include <string.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include "config.h"
#include "program.h"

using std::string;

static sockaddr_in addressOf(int port)
{
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(static_cast<uint16_t>(port));
    return address;
}

int tryPort(int *port)
{
    const int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const int on = 1;
    sockaddr_in address = addressOf(*port);
    socklen_t length = sizeof address;
    // What a server that has just ended leaves behind does not count, as for lighttpd.
    int error = fd < 0 || setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on) != 0 ||
                        bind(fd, reinterpret_cast<sockaddr *>(&address), length) != 0 ||
                        listen(fd, 1) != 0 ||
                        getsockname(fd, reinterpret_cast<sockaddr *>(&address), &length) != 0
                    ? errno
                    : 0;
    if (error == 0)
        *port = ntohs(address.sin_port);
    if (fd >= 0)
        close(fd);
    return error;
}

static bool answers(int port)
{
    const int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const sockaddr_in address = addressOf(port);
    const bool isThere =
        fd >= 0 && connect(fd, reinterpret_cast<const sockaddr *>(&address), sizeof address) == 0;
    if (fd >= 0)
        close(fd);
    return isThere;
}

// A text of the server's configuration.
static string quoted(const string &text)
{
    string made = "\"";
    for (const char c : text) {
        if (c == '"' || c == '\\')
            made += '\\';
        made += c;
    }
    return made + "\"";
}

// Every request is this program's.
static string configuration(const string &work, int port)
{
    char self[PATH_MAX + 1] = "";
    if (readlink("/proc/self/exe", self, PATH_MAX) < 0)
        return "";
    return "server.modules = (\"mod_setenv\", \"mod_rewrite\", \"mod_alias\", \"mod_cgi\")\n"
           "server.bind = \"127.0.0.1\"\n"
           "server.port = " +
           std::to_string(port) +
           "\n"
           "server.document-root = " +
           quoted(work) +
           "\n"
           "server.errorlog = " +
           quoted(work + "/server.log") +
           "\n"
           "server.upload-dirs = (" +
           quoted(work) +
           ")\n"
           "server.max-request-size = 64 # KiB\n"
           "server.stream-response-body = 2 # the events' answer never ends\n"
           "url.rewrite-once = (\"^(/.*)$\" => \"/preview$1\")\n"
           "alias.url = (\"/preview\" => " +
           quoted(self) +
           ")\n"
           "cgi.assign = (\"\" => \"\")\n"
           "setenv.add-environment = (\"ORV_PREVIEW_WORK\" => " +
           quoted(work) + ")\n";
}

static void pause(long milliseconds)
{
    const timespec time = {milliseconds / 1000, milliseconds % 1000 * 1000000};
    nanosleep(&time, nullptr);
}

string startServer(const string &work, int port, pid_t *child)
{
    static constexpr int tries = 250; // of 20 milliseconds
    const string program = findProgram("lighttpd");
    const string file = work + "/lighttpd.conf";
    if (program.empty())
        return "lighttpd is not installed (Debian: apt-get install lighttpd)";
    if (!replaceFile(file, configuration(work, port)))
        return "cannot write " + file + ": " + strerror(errno);
    const pid_t launcher = getpid();
    *child = fork();
    if (*child == 0) {
        sigset_t none;
        sigemptyset(&none);
        sigprocmask(SIG_SETMASK, &none, nullptr);
        setpgid(0, 0);
        prctl(PR_SET_PDEATHSIG, SIGTERM);
        const int log = open((work + "/server.log").c_str(), O_WRONLY | O_CREAT | O_APPEND, 0600);
        if (getppid() == launcher && dup2(log, STDERR_FILENO) >= 0)
            execl(program.c_str(), "lighttpd", "-D", "-f", file.c_str(), nullptr);
        _exit(127);
    }
    if (*child < 0)
        return string("cannot start lighttpd: ") + strerror(errno);
    setpgid(*child, *child);
    for (int i = 0; i < tries; ++i) {
        if (waitpid(*child, nullptr, WNOHANG) == *child)
            break;
        if (answers(port))
            return "";
        pause(20);
    }
    stopServer(*child);
    string log;
    readWhole(work + "/server.log", log);
    return "lighttpd did not start:\n" + log;
}

void stopServer(pid_t child)
{
    static constexpr int tries = 100; // of 20 milliseconds
    kill(-child, SIGTERM);
    for (int i = 0; i < tries && waitpid(child, nullptr, WNOHANG) == 0; ++i)
        pause(20);
    kill(-child, SIGKILL);
    waitpid(child, nullptr, 0);
}
