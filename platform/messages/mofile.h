/// The bytes of a GNU message catalog, and the check that makes a translation safe to format with. Pure: no byte
/// sequence is read out of bounds.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace mofile {

/// The translation that the catalog `bytes` (a whole .mo file, of either byte order) has for the English text `id` in
/// the context `context`; nothing where it has none, or the file is damaged on the way to it. The view points into
/// `bytes`. It is never empty and is valid UTF-8 without NUL bytes.
std::optional<std::string_view> find(std::string_view bytes, std::string_view context, std::string_view id);

/// What a printf format takes from its arguments, one entry an argument, in order: the length modifier and the
/// conversion, such as "d", "s", "ld", or "*" for a width or precision that is an argument. Nothing for a format that
/// is no sound one: cut short, unknown conversions, positional ones (%1$s), %n, or a width above three digits.
std::optional<std::vector<std::string>> conversions(std::string_view format);

/// Whether `translation` can be formatted with the arguments of `original`.
bool takesSameArguments(std::string_view original, std::string_view translation);

} // namespace mofile
