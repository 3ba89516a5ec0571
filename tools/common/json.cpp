/* tools/common/json.cpp - JSON values, and the library that reads and writes their texts. */
#include "tools/common/json.h"

#include <cstdlib>

#include <algorithm>
#include <limits>
#include <nlohmann/json.hpp>
#include <numeric>

using nlohmann::ordered_json;
using std::string;
using std::string_view;

static constexpr int DEEPEST_VALUE = 100; // values are copied and written by recursion

static bool isPair(const Json &value)
{
    return value.kind == Json::Kind::ARRAY && value.size() == 2 && value.items[0].isText();
}

Json::Json() = default;
Json::Json(const Json &) = default;
Json::Json(Json &&) noexcept = default;
Json &Json::operator=(const Json &) = default;
Json &Json::operator=(Json &&) noexcept = default;
Json::~Json() = default;

Json::Json(Kind of, int64_t number) : kind(of), integer(number)
{
}

Json::Json(const string &chars) : kind(Kind::TEXT), text(chars)
{
}

Json::Json(string_view chars) : kind(Kind::TEXT), text(chars)
{
}

Json::Json(const char *chars) : kind(Kind::TEXT), text(chars)
{
}

Json::Json(std::initializer_list<Json> list)
{
    if (!std::all_of(list.begin(), list.end(), isPair)) {
        *this = array(list);
        return;
    }
    kind = Kind::OBJECT;
    for (const Json &pair : list) {
        keys.push_back(pair.items[0].text);
        items.push_back(pair.items[1]);
    }
}

Json Json::array(std::initializer_list<Json> list)
{
    Json made;
    made.kind = Kind::ARRAY;
    made.items = list;
    return made;
}

Json Json::object()
{
    Json made;
    made.kind = Kind::OBJECT;
    return made;
}

void Json::push_back(Json item)
{
    kind = Kind::ARRAY;
    items.push_back(std::move(item));
}

const Json *Json::find(string_view key) const
{
    for (size_t i = 0; i < keys.size(); ++i)
        if (keys[i] == key)
            return &items[i];
    return nullptr;
}

Json &Json::operator[](string_view key)
{
    if (const Json *found = find(key))
        return items[static_cast<size_t>(found - items.data())];
    kind = Kind::OBJECT;
    keys.emplace_back(key);
    return items.emplace_back();
}

const Json &Json::at(string_view key) const
{
    if (const Json *found = find(key))
        return *found;
    throw JsonError{"there is no '" + string(key) + "'"};
}

const Json &Json::operator[](size_t index) const
{
    if (index >= items.size())
        throw JsonError{"a list is too short"};
    return items[index];
}

const string &Json::asText() const
{
    if (!isText())
        throw JsonError{"a text is expected"};
    return text;
}

uint32_t Json::asCount() const
{
    if (kind != Kind::INTEGER || integer < 0 || integer > std::numeric_limits<uint32_t>::max())
        throw JsonError{"a number from 0 is expected"};
    return static_cast<uint32_t>(integer);
}

Json Json::value(string_view key, const Json &other) const
{
    const Json *found = find(key);
    return found && (found->kind == other.kind || other.isNull()) ? *found : other;
}

// ---- texts ----

namespace
{
// Makes a value of what the library tells of a text, piece by piece: it gives these calls
// their names.
struct Maker : nlohmann::json_sax<ordered_json> {
    Json made;
    std::vector<Json *> open; // arrays and objects, the outermost first
    uint32_t line = 1;        // of the next byte
    uint32_t keyLine = 0;
    char last = ' '; // byte that was read
    bool isTooDeep = false;
    bool keepsLines = false; // as readJsonFile does: values of equal texts are equal otherwise
    std::string problem;

    bool add(Json value)
    {
        // A number has ended at the byte behind it.
        const bool isPassed = value.isNumber() && last == '\n';
        if (keepsLines)
            value.line = !open.empty() && open.back()->isObject() ? keyLine : line - isPassed;
        if (open.empty())
            made = std::move(value);
        else
            open.back()->items.push_back(std::move(value));
        return true;
    }
    bool begin(Json value)
    {
        isTooDeep = open.size() > DEEPEST_VALUE;
        add(std::move(value));
        open.push_back(open.empty() ? &made : &open.back()->items.back());
        return !isTooDeep;
    }
    bool end()
    {
        open.pop_back();
        return true;
    }

    bool null() override
    {
        return add(nullptr);
    }
    bool boolean(bool value) override
    {
        return add(value);
    }
    bool number_integer(int64_t value) override
    {
        return add(value);
    }
    bool number_unsigned(uint64_t value) override
    {
        return value > INT64_MAX ? number_float(static_cast<double>(value), "")
                                 : add(static_cast<int64_t>(value));
    }
    bool number_float(double value, const std::string &) override
    {
        Json real;
        real.kind = Json::Kind::REAL;
        real.real = value;
        return add(std::move(real));
    }
    bool string(std::string &value) override
    {
        return add(value);
    }
    bool binary(binary_t &) override
    {
        return false; // texts have none
    }
    bool start_object(size_t) override
    {
        return begin(Json::object());
    }
    bool key(std::string &value) override
    {
        open.back()->keys.push_back(value);
        keyLine = line;
        return true;
    }
    bool end_object() override
    {
        return end();
    }
    bool start_array(size_t) override
    {
        return begin(Json::array());
    }
    bool end_array() override
    {
        return end();
    }
    bool parse_error(size_t, const std::string &, const nlohmann::json::exception &error) override
    {
        problem = error.what();
        return false;
    }
};

// What the library reads, byte by byte; the maker learns how far it is.
struct Source {
    using iterator_category = std::input_iterator_tag;
    using value_type = char;
    using difference_type = std::ptrdiff_t;
    using pointer = const char *;
    using reference = const char &;

    const char *at;
    Maker *maker; // borrowed

    reference operator*() const
    {
        return *at;
    }
    Source &operator++()
    {
        maker->last = *at++;
        maker->line += maker->last == '\n';
        return *this;
    }
    bool operator==(const Source &other) const
    {
        return at == other.at;
    }
};
} // namespace

static bool make(string_view text, bool hasComments, Maker *maker)
{
    return ordered_json::sax_parse(Source{text.data(), maker},
                                   Source{text.data() + text.size(), maker}, maker,
                                   ordered_json::input_format_t::json, true, hasComments);
}

bool readJson(string_view text, Json *value, string *problem)
{
    Maker maker;
    if (!make(text, false, &maker)) {
        *problem = maker.isTooDeep ? "values are too deep" : "no JSON";
        return false;
    }
    *value = std::move(maker.made);
    return true;
}

bool readJsonFile(string_view text, Json *value, string *problem)
{
    Maker maker;
    maker.keepsLines = true;
    if (make(text, true, &maker)) {
        *value = std::move(maker.made);
        return true;
    }
    // "[...] parse error at line 1, column 2: what is wrong"
    const size_t place = maker.problem.find("at line ");
    const size_t comma = maker.problem.find(", column ", place);
    const auto numberAt = [&](size_t at) {
        return strtoul(maker.problem.c_str() + at, nullptr, 10);
    };
    const bool isPlaced = place != string::npos && comma != string::npos;
    const unsigned long line = isPlaced ? numberAt(place + 8) : maker.line;
    const unsigned long column = isPlaced ? numberAt(comma + 9) : 1;
    const string_view sign = place == string::npos ? "] " : ": ";
    const size_t what = maker.problem.find(sign, place == string::npos ? 0 : place);
    *problem = std::to_string(line) + ":" + std::to_string(column) + ": " +
               (maker.isTooDeep ? "values are too deep" : maker.problem.substr(what + sign.size()));
    return false;
}

static ordered_json readyToWrite(const Json &value, JsonKeys order)
{
    switch (value.kind) {
    case Json::Kind::NOTHING:
        return nullptr;
    case Json::Kind::TRUTH:
        return value.integer != 0;
    case Json::Kind::INTEGER:
        return value.integer;
    case Json::Kind::REAL:
        return value.real;
    case Json::Kind::TEXT:
        return value.text;
    case Json::Kind::ARRAY: {
        ordered_json made = ordered_json::array();
        for (const Json &item : value)
            made.push_back(readyToWrite(item, order));
        return made;
    }
    default:
        std::vector<size_t> indices(value.size());
        std::iota(indices.begin(), indices.end(), 0U);
        if (order == JsonKeys::SORTED)
            std::sort(indices.begin(), indices.end(),
                      [&](size_t a, size_t b) { return value.keys[a] < value.keys[b]; });
        ordered_json made = ordered_json::object();
        for (const size_t index : indices)
            made[value.keys[index]] = readyToWrite(value.items[index], order);
        return made;
    }
}

string writeJson(const Json &value, int indent, JsonKeys order)
{
    return readyToWrite(value, order)
        .dump(indent, ' ', false, ordered_json::error_handler_t::replace);
}
