/* tests/folder.h - the tests' private folder, which is their working directory, and
 * texts in it and of it. */
#ifndef ORV_TESTS_FOLDER_H
#define ORV_TESTS_FOLDER_H

#include <string>
#include <vector>

extern std::string folder;

void writeFile(const std::string &path, const std::string &content);

std::string repeated(const std::string &text, size_t times);

/* A block of a document, between a line "```KIND" and a line "```". */
struct Block {
    std::string heading; // the last line in front of it that begins with "#"
    std::string kind;
    std::string text;
    int line; // of the document, where the text begins
};
std::vector<Block> readBlocks(const std::string &path);

#endif
