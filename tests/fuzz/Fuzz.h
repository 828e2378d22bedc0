/// What the fuzz targets share. A target asserts what must hold for every input, beyond not crashing.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string_view>

#define FUZZ_TARGET(input)                                                                                             \
    static void fuzz(std::string_view input);                                                                          \
    extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {                                \
        fuzz({reinterpret_cast<const char*>(data), size});                                                             \
        return 0;                                                                                                      \
    }                                                                                                                  \
    static void fuzz(std::string_view input)

/// Ends the run, with the input kept by the fuzzer, where a promise is broken.
inline void demand(bool holds, const char* promise) {
    if (!holds) {
        std::fprintf(stderr, "broken promise: %s\n", promise);
        std::abort();
    }
}

/// Cuts the next piece, up to `separator`, off the text.
inline std::string_view takePiece(std::string_view& text, char separator) {
    const std::size_t length = text.find(separator);
    const std::string_view piece = text.substr(0, length);
    text.remove_prefix(length == std::string_view::npos ? text.size() : length + 1);
    return piece;
}
