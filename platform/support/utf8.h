/// What a valid UTF-8 sequence is (RFC 3629), for everything that counts, escapes or cuts text.
#pragma once

#include <algorithm>
#include <cstddef>
#include <string_view>

namespace utf8 {

namespace detail {

constexpr unsigned byteAt(std::string_view text, std::size_t position) {
    return static_cast<unsigned char>(text[position]);
}

/// The length that a lead byte announces, 0 for a byte that begins no sequence.
constexpr std::size_t announcedLength(unsigned lead) {
    if (lead < 0x80) {
        return 1;
    }
    if (lead < 0xC2 || lead > 0xF4) {
        return 0;
    }
    return lead < 0xE0 ? 2 : lead < 0xF0 ? 3 : 4;
}

/// Whether the second byte keeps the sequence from being overlong, a surrogate, or above U+10FFFF.
constexpr bool secondByteFits(unsigned lead, unsigned second) {
    const unsigned low = lead == 0xE0 ? 0xA0 : lead == 0xF0 ? 0x90 : 0x80;
    const unsigned high = lead == 0xED ? 0x9F : lead == 0xF4 ? 0x8F : 0xBF;
    return second >= low && second <= high;
}

} // namespace detail

/// The length in bytes of the valid sequence that `text` begins with, or 0 where it begins with none.
constexpr std::size_t sequenceLength(std::string_view text) {
    if (text.empty()) {
        return 0;
    }
    const unsigned lead = detail::byteAt(text, 0);
    const std::size_t length = detail::announcedLength(lead);
    if (length <= 1) {
        return length;
    }
    if (length > text.size() || !detail::secondByteFits(lead, detail::byteAt(text, 1))) {
        return 0;
    }
    for (std::size_t position = 2; position < length; ++position) {
        if ((detail::byteAt(text, position) & 0xC0U) != 0x80U) {
            return 0;
        }
    }
    return length;
}

/// Whether the whole of `text` is valid.
constexpr bool isValid(std::string_view text) {
    while (!text.empty()) {
        const std::size_t length = sequenceLength(text);
        if (length == 0) {
            return false;
        }
        text.remove_prefix(length);
    }
    return true;
}

/// `text` without the beginning of a sequence that a cut at its end has split.
constexpr std::string_view withoutSplitTail(std::string_view text) {
    const std::size_t longestTail = std::min<std::size_t>(text.size(), 3);
    for (std::size_t back = 1; back <= longestTail; ++back) {
        const unsigned byte = detail::byteAt(text, text.size() - back);
        if ((byte & 0xC0U) != 0x80U) {
            return detail::announcedLength(byte) > back ? text.substr(0, text.size() - back) : text;
        }
    }
    return text;
}

} // namespace utf8
