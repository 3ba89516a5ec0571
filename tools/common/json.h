/* tools/common/json.h - JSON values, read from a text and written as one.
 *
 * Only json.cpp knows the library that parses and prints: its headers would take each
 * source that includes them seconds to compile. */
#ifndef TOOLS_COMMON_JSON_H
#define TOOLS_COMMON_JSON_H

#include <stdint.h>

#include <concepts>
#include <initializer_list>
#include <string>
#include <string_view>
#include <vector>

/* Thrown where a value is not what the reader asks for. */
struct JsonError {
    std::string text;
};

/* A value. An element of an object is found by looking through its keys: objects with
 * many are not what the programs have. */
struct Json {
    enum class Kind : uint8_t { NOTHING, TRUTH, INTEGER, REAL, TEXT, ARRAY, OBJECT };

    Kind kind = Kind::NOTHING;
    int64_t integer = 0; // a truth's is 0 or 1
    double real = 0;
    std::string text;
    std::vector<Json> items;       // of an array; of an object, the values
    std::vector<std::string> keys; // of an object, one for each item
    uint32_t line = 0;             // where readJsonFile has found it, 0 elsewhere

    // Made, copied and released in json.cpp: tables of values are long otherwise.
    Json();
    Json(const Json &);
    Json(Json &&) noexcept;
    Json &operator=(const Json &);
    Json &operator=(Json &&) noexcept;
    ~Json();

    Json(std::nullptr_t) : Json()
    {
    }
    template <std::integral Number>
    Json(Number number)
        : Json(std::same_as<Number, bool> ? Kind::TRUTH : Kind::INTEGER,
               static_cast<int64_t>(number))
    {
    }
    Json(Kind of, int64_t number);
    Json(const std::string &chars);
    Json(std::string_view chars);
    Json(const char *chars);
    template <typename Item> Json(const std::vector<Item> &list) : Json(array())
    {
        items.assign(list.begin(), list.end());
    }
    /* An object when it is a list of pairs that begin with a text, else an array. */
    Json(std::initializer_list<Json> list);

    static Json array(std::initializer_list<Json> list = {});
    static Json object();

    bool isNull() const
    {
        return kind == Kind::NOTHING;
    }
    bool isNumber() const
    {
        return kind == Kind::INTEGER || kind == Kind::REAL;
    }
    bool isText() const
    {
        return kind == Kind::TEXT;
    }
    bool isObject() const
    {
        return kind == Kind::OBJECT;
    }

    /* Of an array or an object; other values have no items. */
    auto begin() const
    {
        return items.begin();
    }
    auto end() const
    {
        return items.end();
    }
    size_t size() const
    {
        return items.size();
    }
    bool empty() const
    {
        return items.empty();
    }
    void push_back(Json item);

    /* The value of a key, borrowed, or null. */
    const Json *find(std::string_view key) const;
    bool contains(std::string_view key) const
    {
        return find(key);
    }
    /* The value of a key, which is made when there is none. */
    Json &operator[](std::string_view key);
    /* These throw where there is no such item, and where it is of another kind. */
    const Json &at(std::string_view key) const;
    const Json &operator[](size_t index) const;
    const std::string &asText() const;
    uint32_t asCount() const;

    /* The value of a key, or another where there is none of its kind. */
    Json value(std::string_view key, const Json &other) const;
    std::string value(std::string_view key, const char *other) const
    {
        return value(key, Json(other)).text;
    }
    template <std::integral Number> Number value(std::string_view key, Number other) const
    {
        return static_cast<Number>(value(key, Json(other)).integer);
    }

    // Wherever they were found.
    friend bool operator==(const Json &a, const Json &b)
    {
        return a.kind == b.kind && a.integer == b.integer && a.real == b.real && a.text == b.text &&
               a.items == b.items && a.keys == b.keys;
    }
};

/* Makes a value of a text. Returns false with a problem where that is no JSON, or nested
 * deeper than anything that is meant. */
bool readJson(std::string_view text, Json *value, std::string *problem);

/* The same for a file that people write: comments, from // to the line's end and between
 * the signs of C, are left out, and each value knows its line, in an object that of its key.
 * The problem begins with its place, "LINE:COLUMN: ". */
bool readJsonFile(std::string_view text, Json *value, std::string *problem);

enum class JsonKeys { SORTED, AS_GIVEN };

/* A value's text. What is no UTF-8 in it is replaced.
 * indent: blanks a level; with a negative number it is one line. */
std::string writeJson(const Json &value, int indent, JsonKeys order = JsonKeys::SORTED);

#endif
