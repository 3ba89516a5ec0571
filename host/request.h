/* host/request.h - decodes what a request brings to a web program: form fields,
 * cookies, languages, the page's name. Pure functions over untrusted bytes: they
 * open nothing and keep nothing, and what they make is no larger than what they
 * read. */
#ifndef TOOLS_REQUEST_H
#define TOOLS_REQUEST_H

#include <stddef.h>
#include <string>
#include <string_view>
#include <vector>

// Limits of one request, in bytes unless said otherwise.
inline constexpr size_t MAX_FORM = 16384;
inline constexpr size_t MAX_FIELD_NAME = 32;
inline constexpr size_t MAX_FIELD_VALUE = 2048;
inline constexpr size_t MAX_FIELDS = 64;    // fields
inline constexpr size_t MAX_LANGUAGES = 16; // languages
inline constexpr size_t MAX_PAGE_NAME = 128;

struct FormField {
    std::string name;  // letters and digits: neither an array element nor part of one
    std::string value; // UTF-8 without a zero byte
};

/* Whether text is UTF-8 without a zero byte, which would end a C text early. */
bool isText(std::string_view text);

/* Results of decodeForm. */
enum FormResult { FORM_DONE, FORM_BAD, FORM_TOO_LARGE };

/* Decodes a query string or a body of type application/x-www-form-urlencoded and
 * sets fields to what it holds, in order.
 *
 * Returns FORM_BAD for a % without two hexadecimal digits, a name that is no
 * variable's name, a zero byte, or a value that is not UTF-8; FORM_TOO_LARGE
 * beyond a limit. No fields are left then. */
FormResult decodeForm(std::string_view form, std::vector<FormField> &fields);

/* The same for a body of type multipart/form-data with that boundary, by which
 * browsers send files: a file is a field like others, its name and type are left
 * out. FORM_BAD for a body without its end, too. */
FormResult decodeMultipart(std::string_view body, std::string_view boundary,
                           std::vector<FormField> &fields);

/* Returns a field's name and value as a piece of a query string. */
std::string encodeField(const FormField &field);

/* Returns the last field of that name, borrowed from fields; null for none. */
const std::string *findField(const std::vector<FormField> &fields, std::string_view name);

/* Returns the value of the first cookie of that name in a Cookie header, a part of
 * header; empty when there is none. */
std::string_view findCookie(std::string_view header, std::string_view name);

/* Returns the languages of an Accept-Language header, two small letters each and
 * none twice, the most wanted first. Those refused by q=0 are left out. */
std::vector<std::string> acceptedLanguages(std::string_view header);

/* Whether text is two small letters. */
bool isLanguage(std::string_view text);

/* Whether path, relative to the document root, names a page: it ends in .htm, and
 * its steps are made of letters, digits, '-', '_' and '.', with no '.' in front. */
bool isPageName(std::string_view path);

/* Whether a Content-Type header names the encoding of a form. */
bool isFormType(std::string_view type);

/* Returns the boundary that a Content-Type header of multipart/form-data names, a part
 * of type; empty when there is none. */
std::string_view multipartBoundary(std::string_view type);

/* Sets *number to the number of a Content-Length header or a field, digits alone.
 * Returns false when it is none; one beyond MAX_FORM reads as MAX_FORM + 1. */
bool readNumber(std::string_view text, size_t *number);

#endif
