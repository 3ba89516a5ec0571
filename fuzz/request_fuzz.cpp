/* fuzz/request_fuzz.cpp - what web programs make of a request.
 *
 * The lines of an input are a form, a Cookie header, an Accept-Language header, a
 * path and a Content-Length header; they are a multipart body as a whole, too. */
#include <algorithm>
#include <cctype>
#include <set>
#include <sstream>

#include "host/request.h"
#include "fuzz/fuzz.h"

using std::string;

static void checkFields(const std::vector<FormField> &fields, FormResult result, size_t size)
{
    MUST(result == FORM_DONE || fields.empty());
    MUST(result != FORM_DONE || size <= MAX_FORM);
    MUST(fields.size() <= MAX_FIELDS);
    size_t decoded = 0;
    for (const FormField &field : fields) {
        decoded += field.name.size() + field.value.size();
        MUST(!field.name.empty() && field.name.size() <= MAX_FIELD_NAME);
        MUST(std::all_of(field.name.begin(), field.name.end(), isalnum));
        MUST(field.value.size() <= MAX_FIELD_VALUE && field.value.find('\0') == string::npos);
        std::vector<FormField> again;
        MUST(decodeForm(encodeField(field), again) == FORM_DONE && again.size() == 1);
        MUST(again[0].name == field.name && again[0].value == field.value);
        const string *last = nullptr;
        for (const FormField &other : fields)
            last = other.name == field.name ? &other.value : last;
        MUST(findField(fields, field.name) == last);
    }
    MUST(decoded <= size);
}

static void checkForms(const string &form, const string &body)
{
    std::vector<FormField> fields{{"left", "over"}};
    FormResult result = decodeForm(form, fields);
    checkFields(fields, result, form.size());
    fields = {{"left", "over"}};
    result = decodeMultipart(body, "b", fields);
    checkFields(fields, result, body.size());
}

static void checkHeaders(const string &cookies, const string &languages)
{
    const std::string_view value = findCookie(cookies, "lang");
    MUST(value.empty() ||
         (value.data() - cookies.data() >= 5 && string(value.data() - 5, 5) == "lang=" &&
          value.data() + value.size() <= cookies.data() + cookies.size()));
    MUST(value.find(';') == string::npos);
    const string more = cookies + "; zz9=x";
    MUST(cookies.find("zz9") != string::npos || findCookie(more, "zz9") == "x");
    const std::vector<string> codes = acceptedLanguages(languages);
    MUST(codes.size() <= MAX_LANGUAGES && codes.size() * 2 <= languages.size());
    MUST(std::set<string>(codes.begin(), codes.end()).size() == codes.size());
    MUST(std::all_of(codes.begin(), codes.end(), isLanguage));
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const string whole(reinterpret_cast<const char *>(data), size);
    std::istringstream lines(whole);
    string line[5];
    for (string &text : line)
        std::getline(lines, text);
    checkForms(line[0], whole);
    checkHeaders(line[1], line[2]);
    const string path = '/' + line[3];
    MUST(!isPageName(line[3]) ||
         (path.ends_with(".htm") && path.size() <= MAX_PAGE_NAME + 1 &&
          path.find("/.") == string::npos && path.find("//") == string::npos &&
          path.find('\0') == string::npos));
    size_t length;
    const bool isNumber =
        !line[4].empty() && line[4].find_first_not_of("0123456789") == string::npos;
    MUST(readNumber(line[4], &length) == isNumber);
    MUST(!isNumber ||
         length == std::min<unsigned long>(strtoul(line[4].c_str(), nullptr, 10), MAX_FORM + 1));
    return 0;
}
