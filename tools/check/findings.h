/* tools/check/findings.h - what the checker finds, and the kinds of it. */
#ifndef ORV_CHECK_FINDINGS_H
#define ORV_CHECK_FINDINGS_H

#include <stdint.h>

#include <span>
#include <string>
#include <string_view>
#include <vector>

enum class Grade : uint8_t { HINT, WARNING, ERROR }; // a hint alone is nothing found

// One kind of finding, in the order in which its row reads. All texts are static.
// NOLINTNEXTLINE(clang-analyzer-optin.performance.Padding)
struct Kind {
    const char *id;
    Grade severity; // where nothing else is said
    const char *explanation;
    const char *example; // a template, or lines of one, that has it
    bool isOff = false;  // not looked for, unless --also says so
};

/* All kinds, in the order of the documentation. */
std::span<const Kind> allKinds();

/* The kind of that id, null when there is none. */
const Kind *findKind(std::string_view id);

// A place that belongs to a finding.
struct Note {
    std::string path;
    uint32_t line;
    uint32_t column;
    uint32_t unit; // the column in UTF-16 units
    std::string text;
};

struct Finding {
    const Kind *kind;
    Grade severity;
    std::string path; // as templates name it, or as it was given for other files
    uint32_t line;    // from 1
    uint32_t column;  // in bytes, from 1
    uint32_t endLine; // behind the last byte
    uint32_t endColumn;
    uint32_t unit; // the columns in UTF-16 units, from 1, as some forms count
    uint32_t endUnit;
    std::string text;
    std::vector<Note> notes;
};

/* Sorts by file, line and column, and leaves one of equal findings. */
void sortFindings(std::vector<Finding> *findings);

enum class Form : uint8_t { TEXT, JSON, SARIF };

/* "hint", "warning" or "error". */
const char *gradeName(Grade grade);

/* All findings in one of the forms, with a line end. */
std::string printFindings(const std::vector<Finding> &findings, Form form);

/* The ids of all kinds. */
std::vector<std::string_view> kindIds();

/* A kind with its explanation and example, for people; it is Markdown, too. */
std::string explainKind(const Kind &kind);

/* All of them. */
std::string listKinds();

/* Where that text can be read, as a URI; empty when it is not installed. */
std::string kindUri(const Kind &kind);

/* The word among candidates that was probably meant, empty when none is near. */
std::string_view nearest(std::string_view word, const std::vector<std::string_view> &candidates);

/* The same, empty also where another is as near. */
std::string_view onlyNearest(std::string_view word, std::vector<std::string_view> candidates);

#endif
