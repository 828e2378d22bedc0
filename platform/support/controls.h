/// Control characters, which must reach neither a terminal nor a line of a log as they are.
#pragma once

#include <string_view>

namespace controls {

/// U+0080 to U+009F are "C2 80" to "C2 9F" in UTF-8. `sequence` is one valid sequence.
constexpr bool isC1(std::string_view sequence) {
    return sequence.size() == 2 && sequence[0] == '\xC2' && static_cast<unsigned char>(sequence[1]) < 0xA0;
}

/// Whether the one valid sequence is a C0 control, DEL or a C1 control: terminals obey all three kinds.
constexpr bool isControl(std::string_view sequence) {
    const auto first = static_cast<unsigned char>(sequence[0]);
    return (sequence.size() == 1 && (first < 0x20 || first == 0x7F)) || isC1(sequence);
}

} // namespace controls
