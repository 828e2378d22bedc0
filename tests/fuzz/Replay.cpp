// Runs a fuzz target over the files of its corpus, and over nothing, without a fuzzer.
//
//     fuzz_TARGET FOLDER

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace {

void run(const std::string& input) {
    LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t*>(input.data()), input.size());
}

std::string bytesOf(const std::filesystem::path& file) {
    std::ifstream stream(file, std::ios::binary);
    return {std::istreambuf_iterator<char>(stream), {}};
}

} // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        std::fputs("usage: fuzz_TARGET FOLDER\n", stderr);
        return 2;
    }
    run("");
    std::size_t count = 0;
    for (const auto& entry : std::filesystem::directory_iterator(argv[1])) {
        // Where a promise breaks, this names the input: the program ends there.
        std::printf("%s\n", entry.path().c_str());
        std::fflush(stdout);
        run(bytesOf(entry.path()));
        ++count;
    }
    return count > 0 ? 0 : 1;
}
