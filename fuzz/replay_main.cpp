// Runs a target over the files of its argument folders, once each: what libFuzzer does with -runs=0, for every build.
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

#include "fuzz/input.h"

int main(int count, char** arguments) {
    size_t files = 0;
    for (int index = 1; index < count; ++index) {
        if (arguments[index][0] == '-') {
            continue;  // an option of libFuzzer
        }
        for (const auto& entry : std::filesystem::directory_iterator(arguments[index])) {
            std::ifstream file(entry.path(), std::ios::binary);
            REQUIRE(file.good());
            const std::vector<char> bytes(std::istreambuf_iterator<char>(file), {});
            std::printf("%s\n", entry.path().c_str());
            std::fflush(stdout);  // a crash comes after the name of its input
            LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size());
            ++files;
        }
    }
    REQUIRE(files > 0);
    return 0;
}
