/* tests/folder.cpp - the tests' main, which makes their folder. */
#include "tests/folder.h"

#include <gtest/gtest.h>
#include <stdlib.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>

std::string folder;

void writeFile(const std::string &path, const std::string &content)
{
    const auto slash = path.rfind('/');
    if (slash != std::string::npos)
        std::filesystem::create_directories(path.substr(0, slash));
    std::ofstream(path, std::ios::binary) << content;
}

std::string repeated(const std::string &text, size_t times)
{
    std::string result;
    for (size_t i = 0; i < times; ++i)
        result += text;
    return result;
}

std::vector<Block> readBlocks(const std::string &path)
{
    std::ifstream document(path);
    std::vector<Block> blocks;
    std::string heading;
    bool inside = false;
    int number = 0;
    for (std::string line; std::getline(document, line);) {
        ++number;
        if (inside && line == "```") {
            inside = false;
        } else if (inside) {
            blocks.back().text += line + '\n';
        } else if (line.starts_with("```")) {
            blocks.push_back({heading, line.substr(3), "", number + 1});
            inside = true;
        } else if (line.starts_with("#")) {
            heading = line;
        }
    }
    return blocks;
}

int main(int argc, char **argv)
{
    testing::InitGoogleTest(&argc, argv);
    char name[] = "/tmp/orv-tests-XXXXXX";
    if (!mkdtemp(name) || chdir(name) != 0)
        return 1;
    folder = name;
    const int result = RUN_ALL_TESTS();
    std::filesystem::remove_all(folder);
    return result;
}
