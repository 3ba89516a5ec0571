/* fuzz/corpus_main.cpp - tries every file of the folders that it is given: the
 * main program of the fuzz targets where the compiler has no libFuzzer. */
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

#include "fuzz/fuzz.h"

int main(int argc, char **argv)
{
    int tried = 0;
    for (int i = 1; i < argc; ++i) {
        if (argv[i][0] == '-')
            continue; // an option for libFuzzer
        for (const auto &entry : std::filesystem::directory_iterator(argv[i])) {
            std::ifstream file(entry.path(), std::ios::binary);
            const std::vector<char> bytes(std::istreambuf_iterator<char>(file), {});
            LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t *>(bytes.data()), bytes.size());
            ++tried;
        }
    }
    printf("%d inputs\n", tried);
    return tried > 0 ? 0 : 1;
}
