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

/// Unicode 16, East Asian Width W and F, and what is not assigned between them.
constexpr Range kWide[] = {
    {0x1100, 0x115F},   {0x231A, 0x231B},   {0x2329, 0x232A},   {0x23E9, 0x23EC},   {0x23F0, 0x23F0},
    {0x23F3, 0x23F3},   {0x25FD, 0x25FE},   {0x2614, 0x2615},   {0x2630, 0x2637},   {0x2648, 0x2653},
    {0x267F, 0x267F},   {0x268A, 0x268F},   {0x2693, 0x2693},   {0x26A1, 0x26A1},   {0x26AA, 0x26AB},
    {0x26BD, 0x26BE},   {0x26C4, 0x26C5},   {0x26CE, 0x26CE},   {0x26D4, 0x26D4},   {0x26EA, 0x26EA},
    {0x26F2, 0x26F3},   {0x26F5, 0x26F5},   {0x26FA, 0x26FA},   {0x26FD, 0x26FD},   {0x2705, 0x2705},
    {0x270A, 0x270B},   {0x2728, 0x2728},   {0x274C, 0x274C},   {0x274E, 0x274E},   {0x2753, 0x2755},
    {0x2757, 0x2757},   {0x2795, 0x2797},   {0x27B0, 0x27B0},   {0x27BF, 0x27BF},   {0x2B1B, 0x2B1C},
    {0x2B50, 0x2B50},   {0x2B55, 0x2B55},   {0x2E80, 0x303E},   {0x3041, 0x3247},   {0x3250, 0xA4C6},
    {0xA960, 0xA97C},   {0xAC00, 0xD7A3},   {0xF900, 0xFAFF},   {0xFE10, 0xFE6B},   {0xFF01, 0xFF60},
    {0xFFE0, 0xFFE6},   {0x16FE0, 0x1B2FF}, {0x1D300, 0x1D376}, {0x1F004, 0x1F004}, {0x1F0CF, 0x1F0CF},
    {0x1F18E, 0x1F18E}, {0x1F191, 0x1F19A}, {0x1F200, 0x1F320}, {0x1F32D, 0x1F335}, {0x1F337, 0x1F37C},
    {0x1F37E, 0x1F393}, {0x1F3A0, 0x1F3CA}, {0x1F3CF, 0x1F3D3}, {0x1F3E0, 0x1F3F0}, {0x1F3F4, 0x1F3F4},
    {0x1F3F8, 0x1F43E}, {0x1F440, 0x1F440}, {0x1F442, 0x1F4FC}, {0x1F4FF, 0x1F53D}, {0x1F54B, 0x1F54E},
    {0x1F550, 0x1F567}, {0x1F57A, 0x1F57A}, {0x1F595, 0x1F596}, {0x1F5A4, 0x1F5A4}, {0x1F5FB, 0x1F64F},
    {0x1F680, 0x1F6C5}, {0x1F6CC, 0x1F6CC}, {0x1F6D0, 0x1F6D2}, {0x1F6D5, 0x1F6DF}, {0x1F6EB, 0x1F6EC},
    {0x1F6F4, 0x1F6FC}, {0x1F7E0, 0x1F7FF}, {0x1F90C, 0x1F93A}, {0x1F93C, 0x1F945}, {0x1F947, 0x1F9FF},
    {0x1FA70, 0x1FAFF}, {0x20000, 0x3FFFD},
};

/// General categories Mn and Me of the scripts that file names are written in, and the selectors of variants.
constexpr Range kNoWidth[] = {
    {0x0300, 0x036F},   {0x0483, 0x0489}, {0x0591, 0x05BD}, {0x0610, 0x061A},   {0x064B, 0x065F}, {0x0E34, 0x0E3A},
    {0x0E47, 0x0E4E},   {0x1AB0, 0x1AFF}, {0x1DC0, 0x1DFF}, {0x20D0, 0x20FF},   {0x302A, 0x302D}, {0x3099, 0x309A},
    {0x16FE4, 0x16FE4}, {0xFE00, 0xFE0F}, {0xFE20, 0xFE2F}, {0xE0100, 0xE01EF},
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

/// Asks that the character before it be shown as a picture, which is wide.
constexpr char32_t kAsPicture = 0xFE0F;

/// Adds up the columns of a text, character by character.
class Ruler {
  public:
    void add(std::string_view sequence) {
        const char32_t character = decoded(sequence);
        if (character == kAsPicture) {
            m_columns += m_last == 1 ? 1 : 0;
            m_last = 2;
        } else if (!isIn(kNoWidth, character)) {
            m_last = isIn(kWide, character) ? 2 : 1;
            m_columns += m_last;
        }
    }
    [[nodiscard]] std::size_t columns() const { return m_columns; }

  private:
    std::size_t m_columns = 0;
    /// Of the last character that has columns of its own; 2 where there was none.
    std::size_t m_last = 2;
};

/// The bytes of the longest beginning of whole characters that has at most `most` columns.
std::size_t beginning(std::string_view text, std::size_t most) {
    Ruler used;
    std::size_t length = 0;
    while (length < text.size()) {
        const std::string_view rest = text.substr(length);
        const std::string_view sequence = rest.substr(0, utf8::sequenceLength(rest));
        used.add(sequence);
        if (used.columns() > most) {
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
    Ruler count;
    while (!text.empty()) {
        const std::string_view sequence = text.substr(0, std::max<std::size_t>(utf8::sequenceLength(text), 1));
        count.add(sequence);
        text.remove_prefix(sequence.size());
    }
    return count.columns();
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
