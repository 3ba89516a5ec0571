/* tools/preview/excerpt.cpp - see the header. */
#include "excerpt.h"

#include <errno.h>
#include <string.h>
#include <unistd.h>
#include <algorithm>

#include "tools/common/files.h"

using std::string;
using std::string_view;

static constexpr size_t MAX_LINE = 240; // bytes shown of a line

const char *readBelow(const Host &host, const string &path, string &bytes)
{
    int32_t fd = -1;
    if (const char *problem = hostOpenFile(host, path.c_str(), &fd))
        return problem;
    bytes.clear();
    const bool isRead = readOpen(fd, &bytes);
    const int cause = errno;
    close(fd);
    return isRead ? nullptr : strerror(cause);
}

std::vector<ExcerptLine> excerpt(const Host &host, const string &file, int32_t line, int32_t around)
{
    std::vector<ExcerptLine> lines;
    string bytes;
    if (line < 1 || readBelow(host, file, bytes))
        return lines;
    string_view rest = bytes;
    for (int32_t number = 1; !rest.empty() && number <= line + around; ++number) {
        const size_t end = std::min(rest.find('\n'), rest.size());
        if (number >= line - around)
            lines.push_back({number, string(rest.substr(0, std::min(end, MAX_LINE)))});
        rest.remove_prefix(std::min(end + 1, rest.size()));
    }
    if (lines.empty() || lines.back().number < line)
        lines.clear();
    return lines;
}

int32_t lineOf(const Host &host, const string &file, string_view piece, int32_t last)
{
    string bytes;
    if (readBelow(host, file, bytes))
        return 0;
    int32_t found = 0;
    int32_t line = 1;
    size_t counted = 0;
    for (size_t at = 0; (at = bytes.find(piece, at)) != string::npos; ++at) {
        line += static_cast<int32_t>(std::count(bytes.data() + counted, bytes.data() + at, '\n'));
        counted = at;
        if (found != 0 && line > last)
            break;
        found = line;
        if (last == 0)
            break;
    }
    return found > last && last != 0 ? 0 : found;
}
