#include "Text.h"

#include <algorithm>

#include "controls.h"
#include "utf8.h"

namespace watch {

namespace {

struct Range {
    char32_t first;
    char32_t last;
};

/// Unicode 15, East Asian Width W and F, blocks rounded up to what is not assigned yet.
constexpr Range kWide[] = {
    {0x1100, 0x115F},   {0x2E80, 0x303E},   {0x3041, 0x33FF},   {0x3400, 0x4DBF},   {0x4E00, 0xA4CF},
    {0xA960, 0xA97F},   {0xAC00, 0xD7A3},   {0xF900, 0xFAFF},   {0xFE30, 0xFE6F},   {0xFF01, 0xFF60},
    {0xFFE0, 0xFFE6},   {0x16FE0, 0x18CFF}, {0x1AFF0, 0x1B2FF}, {0x1F300, 0x1F64F}, {0x1F680, 0x1F6FF},
    {0x1F7E0, 0x1F7FF}, {0x1F900, 0x1FAFF}, {0x20000, 0x3FFFD},
};

/// General categories Mn and Me of the scripts that file names are written in, and the selectors of variants.
constexpr Range kNoWidth[] = {
    {0x0300, 0x036F}, {0x0483, 0x0489}, {0x0591, 0x05BD}, {0x0610, 0x061A},   {0x064B, 0x065F},
    {0x0E34, 0x0E3A}, {0x0E47, 0x0E4E}, {0x1AB0, 0x1AFF}, {0x1DC0, 0x1DFF},   {0x20D0, 0x20FF},
    {0x3099, 0x309A}, {0xFE00, 0xFE0F}, {0xFE20, 0xFE2F}, {0xE0100, 0xE01EF},
};

/// Characters that are not seen, or change how others are: an administrator would read another name than there is. The
/// last two are no characters at all, and no XML may hold them.
constexpr Range kDeceiving[] = {
    {0x00AD, 0x00AD}, {0x061C, 0x061C}, {0x180E, 0x180E}, {0x200B, 0x200F}, {0x2028, 0x202E},
    {0x2060, 0x206F}, {0xFEFF, 0xFEFF}, {0xFFF9, 0xFFFB}, {0xFFFE, 0xFFFF}, {0xE0000, 0xE007F},
};

template <std::size_t count> bool isIn(const Range (&ranges)[count], char32_t character) {
    return std::any_of(std::begin(ranges), std::end(ranges),
                       [&](const Range& range) { return character >= range.first && character <= range.last; });
}

/// The character of one valid sequence.
char32_t decoded(std::string_view sequence) {
    const auto lead = static_cast<unsigned char>(sequence[0]);
    if (sequence.size() == 1) {
        return lead;
    }
    char32_t character = lead & (0xFFU >> (sequence.size() + 1));
    for (const char byte : sequence.substr(1)) {
        character = character << 6U | (static_cast<unsigned char>(byte) & 0x3FU);
    }
    return character;
}

std::size_t widthOf(std::string_view sequence) {
    const char32_t character = decoded(sequence);
    return isIn(kNoWidth, character) ? 0 : isIn(kWide, character) ? 2 : 1;
}

/// The bytes of the longest beginning of whole characters that has at most `most` columns.
std::size_t beginning(std::string_view text, std::size_t most) {
    std::size_t used = 0;
    std::size_t length = 0;
    while (length < text.size()) {
        const std::string_view rest = text.substr(length);
        const std::string_view sequence = rest.substr(0, utf8::sequenceLength(rest));
        used += widthOf(sequence);
        if (used > most) {
            break;
        }
        length += sequence.size();
    }
    return length;
}

} // namespace

std::string harmless(std::string_view text) {
    std::string shown;
    while (!text.empty()) {
        const std::size_t valid = utf8::sequenceLength(text);
        const std::string_view sequence = text.substr(0, std::max<std::size_t>(valid, 1));
        const bool shows = valid != 0 && !controls::isControl(sequence) && !isIn(kDeceiving, decoded(sequence));
        shown += shows ? sequence : "?";
        text.remove_prefix(sequence.size());
    }
    return shown;
}

std::size_t columns(std::string_view text) {
    std::size_t count = 0;
    while (!text.empty()) {
        const std::string_view sequence = text.substr(0, std::max<std::size_t>(utf8::sequenceLength(text), 1));
        count += widthOf(sequence);
        text.remove_prefix(sequence.size());
    }
    return count;
}

std::string fitted(std::string_view text, std::size_t most) {
    std::string shown = harmless(text);
    if (columns(shown) <= most) {
        return shown;
    }
    shown.resize(beginning(shown, most == 0 ? 0 : most - 1));
    return most == 0 ? shown : shown + "…";
}

std::string padded(std::string_view text, std::size_t width) {
    std::string shown = fitted(text, width);
    return shown.append(width - columns(shown), ' ');
}

} // namespace watch
