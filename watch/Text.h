/// Foreign texts, made fit to be shown: harmless, and of a known width.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace watch {

/// The text as a terminal or a picture may show it. A question mark stands for each control character, each character
/// that is invisible or turns the direction of writing, and each byte that is no UTF-8.
std::string harmless(std::string_view text);

/// How many columns a terminal gives a harmless text: 2 for a wide character (Chinese, Japanese, Korean, pictures),
/// none for one that stands on the character before it.
std::size_t columns(std::string_view text);

/// A harmless text of at most `most` columns; the end of a longer one is replaced by a "…", whole characters at a time.
std::string fitted(std::string_view text, std::size_t most);

/// A harmless text, filled up with blanks to `width` columns, or cut to them.
std::string padded(std::string_view text, std::size_t width);

} // namespace watch
