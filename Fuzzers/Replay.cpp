// Runs a fuzzer over the files of folders that are given, without looking for new ones.
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size);
extern "C" int LLVMFuzzerInitialize(int *argumentCount, char ***arguments);

int main(int argumentCount, char **arguments) {
    LLVMFuzzerInitialize(&argumentCount, &arguments);
    size_t count = 0;
    for (int i = 1; i < argumentCount; ++i)
        for (const auto &entry : std::filesystem::directory_iterator(arguments[i])) {
            std::ifstream file(entry.path(), std::ios::binary);
            const std::vector<char> content{std::istreambuf_iterator<char>(file), {}};
            std::fprintf(stderr, "%s\n", entry.path().c_str());
            LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t *>(content.data()), content.size());
            ++count;
        }
    std::printf("%zu inputs\n", count);
    return count > 0 ? 0 : 1;
}
