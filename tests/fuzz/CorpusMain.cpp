#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

#include "Fuzz.h"

/// Runs a fuzzer over the files of a folder, where the compiler has no fuzzing engine.
int main(int argc, char** argv) {
    size_t files = 0;
    for (int i = 1; i < argc; ++i) {
        for (auto const& entry : std::filesystem::directory_iterator(argv[i])) {
            std::ifstream file(entry.path(), std::ios::binary);
            std::vector<char> const content{std::istreambuf_iterator<char>(file), {}};
            std::printf("%s\n", entry.path().c_str());
            std::fflush(stdout);
            LLVMFuzzerTestOneInput(reinterpret_cast<uint8_t const*>(content.data()),
                                   content.size());
            ++files;
        }
    }
    std::printf("%zu inputs\n", files);
    return files > 0 ? 0 : 1;
}
