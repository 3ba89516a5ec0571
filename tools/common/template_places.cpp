/* tools/common/template_places.cpp - where a byte of a template stands: in its file, among lines,
 * counted in bytes and in UTF-16 units, as editors count. */
#include <algorithm>

#include "template.h"

// UTF-16 units of a piece of UTF-8.
static uint32_t unitsOf(std::string_view text)
{
    uint32_t units = 0;
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        units += (byte & 0xC0) != 0x80; // each character but its later bytes
        units += byte >= 0xF0;          // one that takes two units
    }
    return units;
}

const std::string &fileOf(const Template &tpl)
{
    return tpl.edits.empty() ? tpl.source : tpl.file;
}

void measure(Template *tpl)
{
    const std::string &file = fileOf(*tpl);
    tpl->lineStarts = {0};
    tpl->unitMarks.clear();
    for (size_t at = 0; (at = file.find('\n', at)) != std::string::npos; ++at)
        tpl->lineStarts.push_back(static_cast<uint32_t>(at + 1));
    for (size_t at = 0, units = 0; at <= file.size(); at += UNIT_STRIDE) {
        tpl->unitMarks.push_back(static_cast<uint32_t>(units));
        units += unitsOf(std::string_view(file).substr(at, UNIT_STRIDE));
    }
}

uint32_t inFile(const Template &tpl, uint32_t offset)
{
    int64_t shift = 0; // of what stands behind the edits so far
    for (const Edit &edit : tpl.edits) {
        const int64_t at = edit.at + shift;
        const auto length = static_cast<int64_t>(edit.text.size());
        if (offset < at)
            break;
        if (offset < at + length)
            return edit.at;
        shift += length - edit.removed;
    }
    return static_cast<uint32_t>(
        std::min(offset - shift, static_cast<int64_t>(fileOf(tpl).size())));
}

uint32_t inSource(const Template &tpl, uint32_t offset)
{
    int64_t shift = 0;
    for (const Edit &edit : tpl.edits)
        if (edit.at < offset)
            shift += static_cast<int64_t>(edit.text.size()) -
                     std::min<int64_t>(edit.removed, offset - edit.at);
    return static_cast<uint32_t>(std::min(offset + shift, static_cast<int64_t>(tpl.source.size())));
}

LineColumn placeInFile(const Template &tpl, uint32_t offset)
{
    const auto next = std::upper_bound(tpl.lineStarts.begin(), tpl.lineStarts.end(), offset);
    const auto line = static_cast<uint32_t>(next - tpl.lineStarts.begin());
    return {line, offset - tpl.lineStarts[line - 1] + 1};
}

LineColumn placeOf(const Template &tpl, uint32_t offset)
{
    return placeInFile(tpl, inFile(tpl, offset));
}

uint32_t unitsInFile(const Template &tpl, uint32_t offset)
{
    const auto fromBegin = [&](uint32_t at) {
        const size_t mark = at / UNIT_STRIDE;
        return tpl.unitMarks[mark] +
               unitsOf(std::string_view(fileOf(tpl)).substr(mark * UNIT_STRIDE, at % UNIT_STRIDE));
    };
    return fromBegin(offset) - fromBegin(tpl.lineStarts[placeInFile(tpl, offset).line - 1]);
}

uint32_t unitsBefore(const Template &tpl, uint32_t offset)
{
    return unitsInFile(tpl, inFile(tpl, offset));
}
