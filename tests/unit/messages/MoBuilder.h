/// Builds the bytes of a message catalog in either byte order.
#pragma once

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

/// Originals (context, \4, English text) and their translations.
using MoEntries = std::vector<std::pair<std::string, std::string>>;

class MoBuilder {
  public:
    explicit MoBuilder(bool isBigEndian = false) : m_isBigEndian(isBigEndian) {}

    [[nodiscard]] std::string build(const MoEntries& entries) const {
        const auto count = static_cast<std::uint32_t>(entries.size());
        std::string head = word(0x950412de) + word(0) + word(count) + word(28) + word(28 + 8 * count) + word(0) +
                           word(28 + 16 * count);
        std::string originals;
        std::string translations;
        std::string texts;
        const std::size_t textsAt = 28 + 16 * entries.size();
        for (const auto& [original, translation] : entries) {
            originals += row(original, textsAt + texts.size());
            texts += original + '\0';
            translations += row(translation, textsAt + texts.size());
            texts += translation + '\0';
        }
        return head + originals + translations + texts;
    }

    [[nodiscard]] std::string word(std::uint32_t value) const {
        std::string bytes;
        for (unsigned index = 0; index < 4; ++index) {
            const unsigned shift = 8 * (m_isBigEndian ? 3 - index : index);
            bytes += static_cast<char>(value >> shift & 0xFFU);
        }
        return bytes;
    }

  private:
    [[nodiscard]] std::string row(const std::string& text, std::size_t offset) const {
        return word(static_cast<std::uint32_t>(text.size())) + word(static_cast<std::uint32_t>(offset));
    }

    bool m_isBigEndian;
};
