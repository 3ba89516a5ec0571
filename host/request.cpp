/* host/request.cpp - decodes what a request brings. Called by web programs. */
#include "request.h"

#include <algorithm>

#include "encoding.h"
#include "ascii.h"

using std::string;
using std::string_view;

// Cuts text in front of the first end, or takes all of it. Text becomes the rest
// behind that end.
static string_view cutAt(string_view &text, char end)
{
    string_view part = text.substr(0, text.find(end));
    text.remove_prefix(std::min(text.size(), part.size() + 1));
    return part;
}

static string_view trim(string_view text)
{
    size_t first = text.find_first_not_of(" \t");
    if (first == string_view::npos)
        return {};
    return text.substr(first, text.find_last_not_of(" \t") - first + 1);
}

bool isText(string_view text)
{
    return text.find('\0') == string_view::npos && findStrange(text) == string_view::npos;
}

static FormResult checkField(const FormField &field)
{
    if (field.name.size() > MAX_FIELD_NAME || field.value.size() > MAX_FIELD_VALUE)
        return FORM_TOO_LARGE;
    bool isName =
        !field.name.empty() && std::all_of(field.name.begin(), field.name.end(),
                                           [](char c) { return isLetter(c) || isDigit(c); });
    return isName && isText(field.value) ? FORM_DONE : FORM_BAD;
}

static FormResult decodeField(string_view piece, FormField &field)
{
    string_view name = cutAt(piece, '=');
    if (!decodePercent(field.name, name, true) || !decodePercent(field.value, piece, true))
        return FORM_BAD;
    return checkField(field);
}

FormResult decodeForm(string_view form, std::vector<FormField> &fields)
{
    FormResult result = form.size() > MAX_FORM ? FORM_TOO_LARGE : FORM_DONE;
    fields.clear();
    while (result == FORM_DONE && !form.empty()) {
        string_view piece = cutAt(form, '&');
        if (piece.empty())
            continue;
        result = fields.size() == MAX_FIELDS ? FORM_TOO_LARGE
                                             : decodeField(piece, fields.emplace_back());
    }
    if (result != FORM_DONE)
        fields.clear();
    return result;
}

// Cuts off what is before the first end, behind which rest then stands. Returns false
// when there is none.
static bool cutAtText(string_view &rest, string_view end, string_view &before)
{
    size_t at = rest.find(end);
    if (at == string_view::npos)
        return false;
    before = rest.substr(0, at);
    rest.remove_prefix(at + end.size());
    return true;
}

// Takes a part, its headers and its value, apart.
static FormResult decodePart(string_view part, FormField &field)
{
    string_view headers;
    string_view before;
    string_view name;
    if (!cutAtText(part, "\r\n\r\n", headers) || !cutAtText(headers, " name=\"", before) ||
        !cutAtText(headers, "\"", name))
        return FORM_BAD;
    field.name = name;
    field.value = part;
    return checkField(field);
}

FormResult decodeMultipart(string_view body, string_view boundary, std::vector<FormField> &fields)
{
    FormResult result = body.size() > MAX_FORM ? FORM_TOO_LARGE : FORM_DONE;
    string first = "--" + string(boundary);
    string end = "\r\n" + first;
    string_view part;
    fields.clear();
    if (!body.starts_with(first))
        return FORM_BAD;
    body.remove_prefix(first.size());
    while (result == FORM_DONE && !body.starts_with("--"))
        result = !cutAtText(body, end, part)   ? FORM_BAD
                 : fields.size() == MAX_FIELDS ? FORM_TOO_LARGE
                                               : decodePart(part, fields.emplace_back());
    if (result != FORM_DONE)
        fields.clear();
    return result;
}

string encodeField(const FormField &field)
{
    return field.name + '=' + encodePercent(field.value, "");
}

const string *findField(const std::vector<FormField> &fields, string_view name)
{
    auto last = std::find_if(fields.rbegin(), fields.rend(),
                             [name](const FormField &field) { return field.name == name; });
    return last == fields.rend() ? nullptr : &last->value;
}

string_view findCookie(string_view header, string_view name)
{
    while (!header.empty()) {
        string_view value = trim(cutAt(header, ';'));
        if (value.find('=') == name.size() && cutAt(value, '=') == name)
            return value;
    }
    return {};
}

// Returns the weight of a language in thousandths from its parameters, such as
// "q=0.8": 1000 without one, 0 for one that is malformed.
static int readWeight(string_view parameters)
{
    string_view text = trim(parameters);
    if (text.empty())
        return 1000;
    if (text.size() < 3 || toSmall(text[0]) != 'q' || text[1] != '=' || !isDigit(text[2]))
        return 0;
    if (text[2] != '0')
        return 1000;
    int weight = 0;
    for (size_t i = 4; i < 7; ++i)
        weight = weight * 10 + (i < text.size() && isDigit(text[i]) ? text[i] - '0' : 0);
    return weight;
}

std::vector<string> acceptedLanguages(string_view header)
{
    struct Wish {
        string code;
        int weight;
    };
    std::vector<Wish> wishes;
    while (!header.empty() && wishes.size() < MAX_LANGUAGES) {
        string_view parameters = cutAt(header, ',');
        string_view range = trim(cutAt(parameters, ';'));
        string code(cutAt(range, '-')); // de-AT asks for de
        std::transform(code.begin(), code.end(), code.begin(), toSmall);
        int weight = readWeight(parameters);
        if (isLanguage(code) && weight > 0)
            wishes.push_back({code, weight});
    }
    std::stable_sort(wishes.begin(), wishes.end(),
                     [](const Wish &a, const Wish &b) { return a.weight > b.weight; });
    std::vector<string> codes;
    for (const Wish &wish : wishes)
        if (std::find(codes.begin(), codes.end(), wish.code) == codes.end())
            codes.push_back(wish.code);
    return codes;
}

bool isLanguage(string_view text)
{
    return text.size() == 2 && text.find_first_not_of("abcdefghijklmnopqrstuvwxyz") == string::npos;
}

bool isPageName(string_view path)
{
    if (path.size() > MAX_PAGE_NAME || !path.ends_with(".htm"))
        return false;
    while (!path.empty()) {
        string_view step = cutAt(path, '/');
        if (step.empty() || step[0] == '.')
            return false;
        for (char c : step)
            if (!isLetter(c) && !isDigit(c) && c != '-' && c != '_' && c != '.')
                return false;
    }
    return true;
}

static bool equalsIgnoringCase(string_view text, string_view small)
{
    return std::equal(text.begin(), text.end(), small.begin(), small.end(),
                      [](char a, char b) { return toSmall(a) == b; });
}

bool isFormType(string_view type)
{
    return equalsIgnoringCase(trim(cutAt(type, ';')), "application/x-www-form-urlencoded");
}

string_view multipartBoundary(string_view type)
{
    if (!equalsIgnoringCase(trim(cutAt(type, ';')), "multipart/form-data"))
        return {};
    string_view parameter = trim(cutAt(type, ';'));
    return cutAt(parameter, '=') == "boundary" ? parameter : string_view();
}

bool readNumber(string_view text, size_t *number)
{
    *number = 0;
    for (char c : text) {
        if (!isDigit(c))
            return false;
        *number = std::min(*number * 10 + static_cast<size_t>(c - '0'), MAX_FORM + 1);
    }
    return !text.empty();
}
