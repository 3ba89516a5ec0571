/* tools/common/json.cpp - JSON values, and the library that reads and writes their texts. */
#include "tools/common/json.h"

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

static Json valueOf(const ordered_json &read)
{
    if (read.is_boolean())
        return read.get<bool>();
    if (read.is_number_integer() &&
        !(read.is_number_unsigned() && read.get<uint64_t>() > INT64_MAX))
        return read.get<int64_t>();
    if (read.is_string())
        return read.get_ref<const string &>();
    Json made;
    if (read.is_number()) {
        made.kind = Json::Kind::REAL;
        made.real = read.get<double>();
    } else if (read.is_structured()) {
        made.kind = read.is_array() ? Json::Kind::ARRAY : Json::Kind::OBJECT;
        for (const auto &[key, value] : read.items()) {
            made.items.push_back(valueOf(value));
            if (read.is_object())
                made.keys.push_back(key);
        }
    }
    return made;
}

bool readJson(string_view text, Json *value, string *problem)
{
    bool isTooDeep = false;
    const auto watchDepth = [&isTooDeep](int depth, ordered_json::parse_event_t, ordered_json &) {
        isTooDeep = isTooDeep || depth > DEEPEST_VALUE;
        return !isTooDeep;
    };
    const ordered_json read = ordered_json::parse(text, watchDepth, false);
    if (isTooDeep || read.is_discarded()) {
        *problem = isTooDeep ? "values are too deep" : "no JSON";
        return false;
    }
    *value = valueOf(read);
    return true;
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
