/* tools/preview/pages.cpp - writes the preview's own pages. They work without their bar; with
 * it, what is told of a page that breaks off is made better by what orv-check finds. */
#include "pages.h"

#include "embedded.h"

using std::string;
using std::string_view;

string escaped(string_view text)
{
    string html;
    for (const char c : text) {
        switch (c) {
        case '&':
            html += "&amp;";
            break;
        case '<':
            html += "&lt;";
            break;
        case '>':
            html += "&gt;";
            break;
        case '"':
            html += "&quot;";
            break;
        default:
            html += c;
        }
    }
    return html;
}

static string head(const string &title, const char *body)
{
    return "<!DOCTYPE html>\n<html lang=\"en\">\n<head>\n<meta charset=\"utf-8\">\n"
           "<meta name=\"viewport\" content=\"width=device-width, initial-scale=1\">\n<title>" +
           escaped(title) + "</title>\n<style>\n" + page_css + "</style>\n</head>\n<body class=\"" +
           body + "\">\n<main>\n";
}

static constexpr char foot[] = "</main>\n</body>\n</html>\n";

static string frame(const Trouble &trouble, Sources &sources)
{
    static constexpr int32_t around = 4;
    const Place &place = trouble.place;
    if (place.file.empty())
        return "";
    const Json at = placeJson(sources, place);
    const auto here = at.value("line", 0);
    const auto column = at.value("column", 0);
    const auto lines = linesAround(sources, place.file, here, column, around);
    string html = "<figure>\n<figcaption>" + escaped(at.value("file", ""));
    if (here > 0)
        html += ", line " + std::to_string(here);
    if (column > 0)
        html += ", column " + std::to_string(column);
    html += "</figcaption>\n";
    if (!lines.empty())
        html += "<ol class=\"source\">\n";
    for (const SourceLine &line : lines)
        html += "<li" + string(line.number == here ? " class=\"here\"" : "") + " value=\"" +
                std::to_string(line.number) + "\"><code>" + escaped(line.text) + "</code></li>\n";
    if (!lines.empty())
        html += "</ol>\n";
    return html + "</figure>\n";
}

string troublePage(const Trouble &trouble, Sources &sources)
{
    string html = head(trouble.title, "trouble") + "<h1>" + escaped(trouble.title) +
                  "</h1>\n<p class=\"what\">" + escaped(trouble.text) + "</p>\n" +
                  frame(trouble, sources);
    if (!trouble.hint.empty())
        html += "<p class=\"hint\">" + escaped(trouble.hint) + "</p>\n";
    if (!trouble.links.empty())
        html += "<h2>Was one of these meant?</h2>\n<ul class=\"links\">\n";
    for (const string &link : trouble.links)
        html += "<li><a href=\"/" + escaped(link) + "\">" + escaped(link) + "</a></li>\n";
    if (!trouble.links.empty())
        html += "</ul>\n";
    if (!trouble.page.empty())
        html += "<details>\n<summary>The page up to there</summary>\n<pre>" +
                escaped(trouble.page) + "</pre>\n</details>\n";
    return html + "<p class=\"note\">Mend it and save: this page loads itself again.</p>\n" + foot;
}

FolderEntry::Kind kindOfFile(string_view name)
{
    if (name.ends_with(".htm") || name.ends_with(".html"))
        return FolderEntry::PAGE;
    return name.ends_with(".frm") ? FolderEntry::PIECE : FolderEntry::FILE;
}

string addressOf(string_view name)
{
    static constexpr char digits[] = "0123456789ABCDEF";
    string address = name.find(':') == string_view::npos ? "" : "./"; // else a scheme
    for (const char c : name) {
        const auto byte = static_cast<unsigned char>(c);
        if (string_view(" \"#%&+<>?\\").find(c) != string_view::npos || byte < ' ' || byte > '~') {
            address += '%';
            address += digits[byte >> 4];
            address += digits[byte & 15];
        } else {
            address += c;
        }
    }
    return address;
}

string folderPage(const string &title, const string &path, const std::vector<FolderEntry> &entries)
{
    static constexpr struct {
        FolderEntry::Kind kind;
        const char *title;
        const char *end;
    } parts[] = {
        {FolderEntry::PAGE, "Pages", ""},
        {FolderEntry::FOLDER, "Folders", "/"},
        {FolderEntry::PIECE, "Pieces of pages", ""},
        {FolderEntry::FILE, "Other files", ""},
    };
    string html = head(title, "folder") + "<h1>" + escaped(title) + "</h1>\n";
    if (path != "/")
        html += "<p><a href=\"../\">&larr; The folder above</a></p>\n";
    for (const auto &part : parts) {
        string list;
        for (const FolderEntry &entry : entries)
            if (entry.kind == part.kind)
                list += "<li><a href=\"" + addressOf(entry.name) + part.end + "\">" +
                        escaped(entry.name) + part.end + "</a></li>\n";
        if (!list.empty())
            html +=
                string("<h2>") + part.title + "</h2>\n<ul class=\"links\">\n" + list + "</ul>\n";
        else if (part.kind == FolderEntry::PAGE)
            html += "<p>No pages here yet. A page is a file whose name ends in "
                    "<code>.htm</code> or <code>.html</code>.</p>\n";
    }
    return html + foot;
}
