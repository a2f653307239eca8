// Runs a fuzz target over files and folders of inputs without libFuzzer, so
// that the corpus doubles as a regression suite in every build.
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace {

void replay(const std::filesystem::path& path) {
    std::ifstream file(path, std::ios::binary);
    std::vector<char> bytes((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
    // A copy of exactly the input's size, so that a read past it is caught.
    std::vector<std::uint8_t> input(bytes.begin(), bytes.end());
    LLVMFuzzerTestOneInput(input.data(), input.size());
}

}  // namespace

int main(int argc, char** argv) {
    std::size_t count = 0;
    for (int i = 1; i < argc; ++i) {
        std::filesystem::path path(argv[i]);
        if (std::filesystem::is_directory(path)) {
            for (const auto& entry : std::filesystem::recursive_directory_iterator(path))
                if (entry.is_regular_file()) replay(entry.path()), ++count;
        } else {
            replay(path), ++count;
        }
    }
    if (count == 0) {
        std::fprintf(stderr, "usage: %s FILE|FOLDER... (no input found)\n", argv[0]);
        return 1;
    }
    std::printf("replayed %zu inputs\n", count);
    return 0;
}
