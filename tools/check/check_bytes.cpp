/* tools/check/check_bytes.cpp - rules about the bytes of templates: pages are UTF-8, as the
 * texts of all languages are. */

#include <algorithm>
#include <filesystem>

#include "report.h"
#include "host/ascii.h"

using std::string;
using std::string_view;

static constexpr string_view BYTE_ORDER_MARK = "\xEF\xBB\xBF";

// The length of the UTF-8 character at the begin of a text; 0 for none.
static size_t characterAt(string_view text)
{
    const auto byte = [&](size_t i) { return static_cast<unsigned char>(text[i]); };
    const size_t length = byte(0) < 0x80                       ? 1
                          : byte(0) >= 0xC2 && byte(0) <= 0xDF ? 2
                          : (byte(0) & 0xF0) == 0xE0           ? 3
                          : byte(0) >= 0xF0 && byte(0) <= 0xF4 ? 4
                                                               : 0;
    if (length == 0 || length > text.size())
        return 0;
    for (size_t i = 1; i < length; ++i)
        if ((byte(i) & 0xC0) != 0x80)
            return 0;
    return length;
}

// Where the first byte stands that begins no character; the text's size for none.
static size_t firstWrong(string_view text)
{
    for (size_t at = 0; at < text.size();) {
        const size_t length = characterAt(text.substr(at));
        if (length == 0)
            return at;
        at += length;
    }
    return text.size();
}

// Where a page names its character set, in a meta element.
static Span charsetOf(const string &source)
{
    static constexpr string_view key = "charset=";
    for (size_t at = source.find(key); at != string::npos; at = source.find(key, at + 1)) {
        const size_t tag = source.rfind('<', at);
        if (tag == string::npos || source.compare(tag, 5, "<meta") != 0)
            continue;
        at += key.size();
        at += source[at] == '"' || source[at] == '\'';
        const size_t end = std::min(source.find_first_of("\"'>; /", at), source.size());
        return {static_cast<uint32_t>(at), static_cast<uint32_t>(end)};
    }
    return {};
}

static bool isUtf8Name(string_view written)
{
    const string name = lowered(written);
    return name == "utf-8" || name == "utf8";
}

static string nameAt(const Template &tpl, Span span)
{
    return tpl.source.substr(span.at, span.end - span.at);
}

static void tell(Report &all, const Template &tpl, size_t at, size_t length, const string &text)
{
    report(all, tpl, {static_cast<uint32_t>(at), static_cast<uint32_t>(at + length)}, "file-bytes",
           text);
}

static void checkCharset(Report &all, const Template &tpl)
{
    const Span span = charsetOf(tpl.source);
    const string name = nameAt(tpl, span);
    if (name.empty() || isUtf8Name(name) || name.find('<') != string::npos ||
        name.find('{') != string::npos)
        return;
    const bool isOther = std::ranges::all_of(tpl.source, [](char c) { return !(c & 0x80); }) ||
                         firstWrong(tpl.source) < tpl.source.size();
    if (!all.site.languages.empty() || !isOther)
        report(all, tpl, span, "file-bytes",
               "the page says that it is " + name + ", but it is UTF-8" +
                   (all.site.languages.empty() ? "" : ", as the texts are"));
}

// isUtf8: no page says otherwise.
static void checkTemplate(Report &all, const Template &tpl, bool isPage, bool isUtf8)
{
    const string &source = tpl.source;
    const bool is16 = source.starts_with("\xFF\xFE") || source.starts_with("\xFE\xFF");
    const size_t zero = source.find('\0');
    if (is16)
        return tell(all, tpl, 0, 2, "the file is UTF-16: save it as UTF-8");
    if (source.starts_with(BYTE_ORDER_MARK) && (!isPage || tpl.path.ends_with(".json")))
        tell(all, tpl, 0, 3,
             isPage ? "JSON has no byte order mark: save the file without"
                    : "a byte order mark comes out where this is included: save the file without");
    if (zero != string::npos)
        return tell(all, tpl, zero, 1, "a zero byte: what is behind it can be lost");
    const size_t wrong = firstWrong(source);
    if (wrong == source.size() || !isUtf8)
        return;
    static constexpr char digits[] = "0123456789ABCDEF";
    const auto byte = static_cast<unsigned char>(source[wrong]);
    tell(all, tpl, wrong, 1,
         string("the byte ") + digits[byte >> 4] + digits[byte & 15] +
             " is no UTF-8: the file is of another encoding, as Latin-1; save it as UTF-8");
}

// Pages without anything.
static void checkEmpty(Report &all)
{
    Site &site = all.site;
    for (const auto &[path, tpl] : site.templates)
        if (tpl->source.empty() && std::ranges::binary_search(site.pages, path))
            report(all, *tpl, {0, 0}, "page-empty", "the page is empty");
}

void checkBytes(Report &all)
{
    const bool isUtf8 = std::ranges::all_of(all.site.templates, [](const auto &entry) {
        const string name = nameAt(*entry.second, charsetOf(entry.second->source));
        return name.empty() || isUtf8Name(name);
    });
    const bool isTold = !all.site.languages.empty();
    for (const auto &[path, tpl] : all.site.templates) {
        checkTemplate(all, *tpl, std::ranges::binary_search(all.site.pages, path),
                      isUtf8 || isTold);
        checkCharset(all, *tpl);
    }
    checkEmpty(all);
}
