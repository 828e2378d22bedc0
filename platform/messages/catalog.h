/// Which catalogs a locale name stands for, and the look-up in them.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace catalog {

/// A larger file is no catalog of this program.
inline constexpr std::size_t kMaxFileSize = 1048576;

/// The folders that the catalogs of a locale may lie in, best first: for "de_DE.UTF-8@euro" those named "de_DE.UTF-8",
/// "de_DE" and "de". None for "C", "POSIX", a codeset other than UTF-8, and a name that is no plain file name. The
/// texts are UTF-8, and a name without a codeset is taken to mean just that.
std::vector<std::string> languagesOf(std::string_view locale);

/// The name of the user's locale in one category: the first of the three that is set and not empty, else "C". Each may
/// be null.
const char* localeName(const char* all, const char* category, const char* lang);

/// The catalogs of one locale, read once.
class Catalog {
  public:
    /// Reads ROOT/LANGUAGE/LC_MESSAGES/cvstop.mo for each language; a file that cannot be read is passed over.
    Catalog(const std::string& root, std::string_view locale);

    [[nodiscard]] const std::string& locale() const { return m_locale; }

    /// The translated format, or `defaultFormat` where no catalog has one that takes the same arguments.
    [[nodiscard]] std::string format(const char* key, const char* defaultFormat) const;

  private:
    std::string m_locale;
    std::vector<std::string> m_files;
};

} // namespace catalog
