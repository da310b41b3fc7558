// Replays fuzz inputs (files, or every file of a directory) through a libFuzzer entry point, so
// that every build runs the seed corpora as tests.
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size);

namespace {

int replay(const std::filesystem::path &file) {
    std::ifstream in(file, std::ios::binary);
    if (!in) {
        std::fprintf(stderr, "cannot read %s\n", file.c_str());
        return 1;
    }
    std::vector<uint8_t> data{std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
    LLVMFuzzerTestOneInput(data.data(), data.size());
    return 0;
}

} // namespace

int main(int argc, char **argv) {
    int failures = 0;
    int inputs = 0;
    for (int i = 1; i < argc; ++i) {
        std::filesystem::path path(argv[i]);
        if (std::filesystem::is_directory(path)) {
            for (const auto &entry : std::filesystem::directory_iterator(path))
                if (entry.is_regular_file()) failures += replay(entry.path()), ++inputs;
        } else {
            failures += replay(path), ++inputs;
        }
    }
    std::printf("replayed %d inputs\n", inputs);
    return failures == 0 && inputs > 0 ? 0 : 1;
}
