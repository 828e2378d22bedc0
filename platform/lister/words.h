/// Words with blanks between them, taken off the front of a text. Pure.
#pragma once

#include <algorithm>
#include <string_view>

namespace lister {

constexpr std::string_view kBlanks = " \t";

inline void skipBlanks(std::string_view& text) {
    text.remove_prefix(std::min(text.find_first_not_of(kBlanks), text.size()));
}

/// Up to the first blank.
inline std::string_view firstWord(std::string_view text) {
    return text.substr(0, text.find_first_of(kBlanks));
}

/// Takes the next word off the text, and the blanks before it; empty when there is none.
inline std::string_view takeWord(std::string_view& text) {
    skipBlanks(text);
    const std::string_view word = firstWord(text);
    text.remove_prefix(word.size());
    return word;
}

} // namespace lister
