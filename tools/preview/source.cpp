/* tools/preview/source.cpp - reads files for the lines that are shown of them. */
#include "source.h"

#include <errno.h>
#include <string.h>
#include <unistd.h>
#include <algorithm>
#include <filesystem>
#include <string_view>

#include "config.h"
#include "tools/common/files.h"
#include "tools/common/template.h"

using std::string;
using std::string_view;

static constexpr int32_t LINES_AROUND = 2;
static constexpr size_t MAX_LINE = 240; // bytes shown of a line
static constexpr size_t BEFORE = 80;    // of these, in front of what has to be seen

const string *textOf(Sources &sources, const string &file)
{
    const auto [entry, isNew] = sources.texts.try_emplace(file);
    string bytes;
    if (isNew && readWhole(file.starts_with('/') ? file : sources.folder + "/" + file, bytes))
        entry->second = std::move(bytes);
    return entry->second ? &*entry->second : nullptr;
}

static LineColumn lineColumn(const string &text, size_t offset)
{
    const string_view before = string_view(text).substr(0, offset);
    const auto line = std::count(before.begin(), before.end(), '\n') + 1;
    const size_t start = before.rfind('\n') + 1; // 0 without one
    return {static_cast<uint32_t>(line), static_cast<uint32_t>(before.size() - start) + 1};
}

// A line of which more than its beginning may have to be seen. The part begins and ends with
// a whole character.
static SourceLine partOf(int32_t number, string_view line, int32_t column)
{
    const auto isInside = [&](size_t at) {
        return at < line.size() && (static_cast<unsigned char>(line[at]) & 0xC0) == 0x80;
    };
    const auto seen = static_cast<size_t>(std::max(column, 0));
    size_t begin = line.size() > MAX_LINE && seen > MAX_LINE - BEFORE ? seen - BEFORE : 0;
    while (isInside(begin))
        ++begin;
    size_t end = std::min(begin + MAX_LINE, line.size());
    while (isInside(end))
        --end;
    return {number, string(line.substr(begin, end - begin)), static_cast<int32_t>(begin)};
}

std::vector<SourceLine> linesAround(Sources &sources, const string &file, int32_t line,
                                    int32_t column, int32_t around)
{
    std::vector<SourceLine> lines;
    const string *text = line < 1 ? nullptr : textOf(sources, file);
    string_view rest = text ? string_view(*text) : "";
    for (int32_t number = 1; !rest.empty() && number <= line + around; ++number) {
        const size_t end = std::min(rest.find('\n'), rest.size());
        if (number >= line - around)
            lines.push_back(partOf(number, rest.substr(0, end), number == line ? column : 0));
        rest.remove_prefix(std::min(end + 1, rest.size()));
    }
    if (lines.empty() || lines.back().number < line)
        lines.clear();
    return lines;
}

Json linesJson(Sources &sources, const string &file, int32_t line, int32_t column)
{
    Json list = Json::array();
    for (const SourceLine &one : linesAround(sources, file, line, column, LINES_AROUND))
        list.push_back({{"number", one.number}, {"text", one.text}, {"cut", one.cut}});
    return list;
}

Json placeJson(Sources &sources, const Place &place)
{
    Json made = {{"file", std::filesystem::path(place.file).lexically_normal().string()},
                 {"line", place.line}};
    const string *text = place.at == NO_OFFSET ? nullptr : textOf(sources, place.file);
    if (!text)
        return made;
    const LineColumn from = lineColumn(*text, place.at);
    made["line"] = from.line;
    made["column"] = from.column;
    if (place.end != NO_OFFSET) {
        const LineColumn to = lineColumn(*text, place.end);
        made["endLine"] = to.line;
        made["endColumn"] = to.column;
    }
    return made;
}

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
