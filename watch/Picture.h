/// The pieces of an SVG picture: numbers, texts and their room, the marks, and the style.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace watch::picture {

/// A little more than a column of any common monospaced font of 12 px has (0.6 em). Each text states its width, so that
/// no font of a viewer can make one run into the next.
inline constexpr double kColumn = 7.3;

/// The room that a harmless text gets.
double widthOf(std::string_view text);

/// A number of pixels, to a tenth, as short as it can be written.
std::string px(double number);

/// A foreign text, harmless and at most so many columns. Characters without a width could be any number: it is cut to
/// three bytes a column, too, which is enough for every script.
std::string cut(std::string_view text, std::size_t columns);

/// The same as XML.
std::string xml(std::string_view text, std::size_t columns);

/// <text> at a place, of the class `style` if there is one. The text is harmless and not yet XML.
std::string textAt(double x, double y, std::string_view text, std::string_view style = {});

/// What is drawn where something was asked; definitions() has them.
enum class Mark { command, signal, kill, start };

std::string markAt(Mark mark, double x, bool certain);

/// Style (light, and dark where the reader has it so) and marks, to stand at the head of the picture.
std::string definitions();

} // namespace watch::picture
