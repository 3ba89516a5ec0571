/* fuzz/textdb_fuzz.cpp - lookups in damaged text database files.
 *
 * An input's first line holds the keys, between blanks; the rest is the file.
 * The bytes behind the file in its last page are poisoned, so a read there is
 * reported. Where the translators' tool finds the file sound, each of its texts
 * must be found and no other. */
#include <fcntl.h>
#include <sanitizer/asan_interface.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <map>
#include <random>
#include <sstream>
#include <string>

#include "fuzz/fuzz.h"
#include "textdb/textdb.h"
#include "tools/common/textdb_file.h"

static constexpr size_t HEADER_SIZE = 16;
static constexpr size_t NODE_SIZE = 8;

extern "C" size_t LLVMFuzzerMutate(uint8_t *data, size_t size, size_t maxSize);
extern "C" size_t LLVMFuzzerCustomMutator(uint8_t *data, size_t size, size_t maxSize,
                                          unsigned seed);

// Looks key up in the mapped file, which ends at end.
static const char *find(const char *image, const char *end, const std::string &key)
{
    int32_t attribute = -1;
    const char *text = findMmapVar(image, key.c_str(), &attribute);
    if (!text)
        return nullptr;
    MUST(attribute == 0 || attribute == 1);
    MUST(text >= image && text < end && memchr(text, 0, static_cast<size_t>(end - text)));
    return text;
}

static void check(const char *image, const char *end, std::string_view file,
                  const std::string &keys)
{
    std::map<std::string, std::string> texts;
    const bool sound = checkTextDb(file).faults.empty();
    if (sound)
        walkTextDb(file, [&](auto id, auto text) { texts[std::string(id)] = text; });
    for (const auto &[id, text] : texts) {
        const char *found = find(image, end, id);
        MUST(found && found == text);
    }
    std::istringstream stream(keys);
    for (std::string key; std::getline(stream, key, ' ');) {
        key.resize(strlen(key.c_str()));
        const char *found = find(image, end, key);
        MUST(!sound || (found != nullptr) == (texts.count(key) == 1));
    }
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    static const int target = memfd_create("textdb", MFD_CLOEXEC);
    static const std::string path = "/proc/self/fd/" + std::to_string(target);
    const std::string_view input(reinterpret_cast<const char *>(data), size);
    const size_t line = std::min(input.find('\n'), size);
    const std::string_view file = input.substr(std::min(line + 1, size));
    const auto length = static_cast<ssize_t>(file.size());
    MUST(ftruncate(target, 0) == 0 && pwrite(target, file.data(), file.size(), 0) == length);

    const char *image;
    const int32_t fd = loadMmapTree(path.c_str(), &image);
    MUST((fd >= 0) == !file.empty() && (fd >= 0) == (image != nullptr));
    MUST(!findMmapVar(nullptr, "a", nullptr));
    if (fd < 0)
        return 0;
    const auto pageSize = static_cast<size_t>(sysconf(_SC_PAGESIZE));
    const char *end = image - HEADER_SIZE + file.size();
    [[maybe_unused]] const size_t behind = (pageSize - file.size() % pageSize) % pageSize;
    ASAN_POISON_MEMORY_REGION(end, behind);
    check(image, end, file, std::string(input.substr(0, line)));
    ASAN_UNPOISON_MEMORY_REGION(end, behind);
    unloadMmapTree(path.c_str(), fd, &image);
    MUST(!image && fcntl(fd, F_GETFD) == -1);
    return 0;
}

#ifdef ORV_LIBFUZZER
// Every other time sets one field of one record to what leads on, back or outside.
extern "C" size_t LLVMFuzzerCustomMutator(uint8_t *data, size_t size, size_t maxSize, unsigned seed)
{
    std::minstd_rand random(seed);
    const auto *newline = static_cast<const uint8_t *>(size ? memchr(data, '\n', size) : nullptr);
    const size_t nodes = newline ? static_cast<size_t>(newline - data) + 1 + HEADER_SIZE : size;
    if (random() % 2 || nodes + NODE_SIZE > size)
        return LLVMFuzzerMutate(data, size, maxSize);
    const size_t records = (size - nodes) / NODE_SIZE;
    static constexpr uint32_t masks[] = {0xFFFFF, 0xFFF00000, 0x3FFFFFFF, 0x40000000};
    const size_t field = random() % 4;
    uint8_t *at = data + nodes + random() % records * NODE_SIZE + (field >= 2 ? 4 : 0);
    const size_t range = field == 0 ? records + 1 : field == 2 ? size - nodes + 2 : 9;
    const auto value = static_cast<uint32_t>(random() % range);
    uint32_t word = static_cast<uint32_t>(at[0] | at[1] << 8 | at[2] << 16) |
                    static_cast<uint32_t>(at[3]) << 24;
    word = (word & ~masks[field]) | (value * (masks[field] & -masks[field]) & masks[field]);
    for (int i = 0; i < 4; ++i)
        at[i] = static_cast<uint8_t>(word >> 8 * i);
    return size;
}
#endif
