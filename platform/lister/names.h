/// Policy by name: what the names and paths of files and processes mean to the rules. Pure, over bytes that may be
/// hostile.
#pragma once

#include <string>
#include <string_view>

namespace lister {

/// Whether `path` lies below the folder `root`: "/usr/quarn2/x" is not below "/usr/quarn".
bool isBelow(std::string_view path, std::string_view root);

std::string_view lastComponent(std::string_view path);

/// Whether `path` may become part of a root shell's command line: at most 1023 bytes of letters, digits,
/// "/ . _ - + @ : , %" and valid UTF-8 from U+00A0 on.
bool isFitPath(std::string_view path);

/// Whether a control character (C0, DEL, C1) or a byte that is no UTF-8 stands in the text.
bool hasControls(std::string_view text);

/// The text with '?' for each of those.
std::string withoutControls(std::string_view text);

/// Whether a program of this name belongs to the host itself and is never ended on behalf of the product.
bool isHostServiceName(std::string_view name);

/// Whether a file system of this type may have to ask a server, which may never answer.
bool isServedType(std::string_view type);

} // namespace lister
