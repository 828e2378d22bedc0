#include "mofile.h"

#include <algorithm>
#include <cstdint>

#include "utf8.h"

namespace mofile {

namespace {

// The layout is the one of "The Format of GNU MO Files" in the gettext manual: seven 32-bit words, of which the first
// five are the magic number, the revision (major number in the upper half), the number of texts, and the offsets of the
// tables of originals and of translations; a table row is a length without the closing NUL, and an offset.
constexpr std::uint32_t kMagic = 0x950412de;
constexpr std::uint64_t kHeaderSize = 28;
constexpr std::uint64_t kRevisionOffset = 4;
constexpr std::uint64_t kCountOffset = 8;
constexpr std::uint64_t kOriginalsOffset = 12;
constexpr std::uint64_t kTranslationsOffset = 16;
constexpr std::uint64_t kRowSize = 8;

/// Between a context and its text.
constexpr char kContextEnd = '\4';

/// More would make vsnprintf pad for seconds.
constexpr std::size_t kMaxWidthDigits = 3;

/// A catalog's bytes in its own byte order. Offsets are 64 bits wide, so that sums of what a file says cannot wrap.
class Bytes {
  public:
    explicit Bytes(std::string_view bytes) : m_bytes(bytes) {}

    [[nodiscard]] bool hasHeader() {
        if (m_bytes.size() < kHeaderSize) {
            return false;
        }
        m_bigEndian = word(0) != kMagic;
        return word(0) == kMagic && word(kRevisionOffset) >> 16U <= 1;
    }

    /// `offset` + 4 is within the bytes.
    [[nodiscard]] std::uint32_t word(std::uint64_t offset) const {
        std::uint32_t value = 0;
        for (unsigned index = 0; index < 4; ++index) {
            const unsigned place = m_bigEndian ? index : 3 - index;
            value = value << 8U | static_cast<unsigned char>(m_bytes[offset + place]);
        }
        return value;
    }

    [[nodiscard]] bool holds(std::uint64_t offset, std::uint64_t length) const {
        return offset <= m_bytes.size() && length <= m_bytes.size() - offset;
    }

    /// The text of a row of a table that the bytes hold; nothing unless they hold it and its NUL.
    [[nodiscard]] std::optional<std::string_view> text(std::uint64_t table, std::uint64_t row) const {
        const std::uint64_t length = word(table + row * kRowSize);
        const std::uint64_t offset = word(table + row * kRowSize + 4);
        if (!holds(offset, length + 1) || m_bytes[offset + length] != '\0') {
            return {};
        }
        return m_bytes.substr(offset, length);
    }

  private:
    std::string_view m_bytes;
    bool m_bigEndian = false;
};

bool isEntryOf(std::string_view original, std::string_view context, std::string_view id) {
    return original.size() == context.size() + 1 + id.size() && original.starts_with(context) &&
           original[context.size()] == kContextEnd && original.ends_with(id);
}

bool isUsableText(std::string_view text) {
    return !text.empty() && text.find('\0') == std::string_view::npos && utf8::isValid(text);
}

/// Takes the bytes of `set` off the beginning of `text` and returns how many there were.
std::size_t skip(std::string_view& text, std::string_view set) {
    const std::size_t end = std::min(text.find_first_not_of(set), text.size());
    text.remove_prefix(end);
    return end;
}

/// Takes a width or precision off `text`. False when it is too large.
bool skipNumber(std::string_view& text, std::vector<std::string>& found) {
    if (text.starts_with('*')) {
        text.remove_prefix(1);
        found.emplace_back("*");
        return true;
    }
    return skip(text, "0123456789") <= kMaxWidthDigits;
}

/// Consumes one conversion after its %; false if it is not allowed. A positional one ends at its $, which is none.
bool takeConversion(std::string_view& text, std::vector<std::string>& found) {
    skip(text, "-+ #0");
    if (!skipNumber(text, found)) {
        return false;
    }
    if (text.starts_with('.')) {
        text.remove_prefix(1);
        if (!skipNumber(text, found)) {
            return false;
        }
    }
    std::string_view rest = text;
    const std::size_t modifiers = skip(rest, "hlLjzt");
    constexpr std::string_view kConversions = "diouxXeEfFgGaAcsp";
    if (modifiers > 2 || rest.empty() || kConversions.find(rest[0]) == std::string_view::npos) {
        return false;
    }
    // To printf, i is another spelling of d.
    found.push_back(std::string(text.substr(0, modifiers)) + (rest[0] == 'i' ? 'd' : rest[0]));
    text = rest.substr(1);
    return true;
}

} // namespace

std::optional<std::string_view> find(std::string_view bytes, std::string_view context, std::string_view id) {
    Bytes file(bytes);
    if (!file.hasHeader()) {
        return {};
    }
    const std::uint64_t count = file.word(kCountOffset);
    const std::uint64_t originals = file.word(kOriginalsOffset);
    const std::uint64_t translations = file.word(kTranslationsOffset);
    if (!file.holds(originals, count * kRowSize) || !file.holds(translations, count * kRowSize)) {
        return {};
    }
    // From the first to the last: a damaged file may not be sorted, and this one has some forty rows.
    for (std::uint64_t row = 0; row < count; ++row) {
        const std::optional<std::string_view> original = file.text(originals, row);
        if (original && isEntryOf(*original, context, id)) {
            const std::optional<std::string_view> translation = file.text(translations, row);
            return translation && isUsableText(*translation) ? translation : std::nullopt;
        }
    }
    return {};
}

std::optional<std::vector<std::string>> conversions(std::string_view format) {
    std::vector<std::string> found;
    while (true) {
        const std::size_t percent = format.find('%');
        if (percent == std::string_view::npos) {
            return found;
        }
        format.remove_prefix(percent + 1);
        if (format.starts_with('%')) {
            format.remove_prefix(1);
        } else if (!takeConversion(format, found)) {
            return {};
        }
    }
}

bool takesSameArguments(std::string_view original, std::string_view translation) {
    const auto wanted = conversions(original);
    return wanted && wanted == conversions(translation);
}

} // namespace mofile
