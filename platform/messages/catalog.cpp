#include "catalog.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include <fcntl.h>
#include <strings.h>
#include <sys/stat.h>
#include <unistd.h>

#include "UniqueFd.h"
#include "cvmessages.h"
#include "cvpaths.h"
#include "mofile.h"
#include "utf8.h"

namespace catalog {

namespace {

/// The bytes of setlocale(3)'s "language[_territory][.codeset][@modifier]". The name becomes part of a path that root
/// opens, and comes from the caller's environment.
bool isNameByte(char byte) {
    return (byte >= 'a' && byte <= 'z') || (byte >= 'A' && byte <= 'Z') || (byte >= '0' && byte <= '9') ||
           std::strchr("_-.@", byte) != nullptr;
}

bool isPlainName(std::string_view name) {
    return std::all_of(name.begin(), name.end(), [](char byte) { return byte != '\0' && isNameByte(byte); });
}

/// glibc takes both spellings, in any case.
bool isUtf8Codeset(const std::string& codeset) {
    return ::strcasecmp(codeset.c_str(), "UTF-8") == 0 || ::strcasecmp(codeset.c_str(), "UTF8") == 0;
}

std::string upTo(std::string_view text, char end) {
    return std::string(text.substr(0, text.find(end)));
}

/// Nothing where the file is missing, no regular one, or too large.
std::string readFile(const std::string& path) {
    const UniqueFd fd(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOCTTY | O_NONBLOCK));
    struct stat status {};
    if (!fd || ::fstat(fd.get(), &status) != 0 || !S_ISREG(status.st_mode) ||
        static_cast<std::size_t>(status.st_size) > kMaxFileSize) {
        return {};
    }
    std::string bytes(static_cast<std::size_t>(status.st_size), '\0');
    std::size_t used = 0;
    ssize_t got = 0;
    while (used < bytes.size() && (got = ::read(fd.get(), bytes.data() + used, bytes.size() - used)) > 0) {
        used += static_cast<std::size_t>(got);
    }
    bytes.resize(used);
    return bytes;
}

/// The catalog that was asked last; a run asks for one locale only.
const Catalog& catalogOf(const char* locale) {
    static Catalog last(product::kLocaleRoot, locale);
    if (last.locale() != locale) {
        last = Catalog(product::kLocaleRoot, locale);
    }
    return last;
}

/// A text that was cut may end within a character; what is left of that would be no character at all.
void dropSplitCharacter(char* buffer) {
    buffer[utf8::withoutSplitTail(buffer).size()] = '\0';
}

/// Copies a name that fits; else leaves the buffer empty and returns non-zero.
int copyName(const char* category, char* buffer, std::size_t size) {
    const char* name = localeName(std::getenv("LC_ALL"), std::getenv(category), std::getenv("LANG"));
    if (buffer == nullptr || size == 0) {
        return 1;
    }
    const std::size_t length = std::strlen(name);
    const bool fits = length < size;
    std::memcpy(buffer, name, fits ? length : 0);
    buffer[fits ? length : 0] = '\0';
    return fits ? 0 : 1;
}

} // namespace

std::vector<std::string> languagesOf(std::string_view locale) {
    const std::string name = upTo(locale, '@');
    const std::string country = upTo(name, '.');
    const std::string language = upTo(country, '_');
    if (!isPlainName(locale) || language.empty() || language == "C" || language == "POSIX" ||
        (country != name && !isUtf8Codeset(name.substr(country.size() + 1)))) {
        return {};
    }
    std::vector<std::string> languages{name};
    for (const std::string& shorter : {country, language}) {
        if (shorter != languages.back()) {
            languages.push_back(shorter);
        }
    }
    return languages;
}

const char* localeName(const char* all, const char* category, const char* lang) {
    for (const char* name : {all, category, lang}) {
        if (name != nullptr && *name != '\0') {
            return name;
        }
    }
    return "C";
}

Catalog::Catalog(const std::string& root, std::string_view locale) : m_locale(locale) {
    for (const std::string& language : languagesOf(locale)) {
        std::string bytes = readFile(root + '/' + language + "/LC_MESSAGES/" + product::kProgramName + ".mo");
        if (!bytes.empty()) {
            m_files.push_back(std::move(bytes));
        }
    }
}

std::string Catalog::format(const char* key, const char* defaultFormat) const {
    for (const std::string& file : m_files) {
        const auto translation = mofile::find(file, key, defaultFormat);
        if (translation && mofile::takesSameArguments(defaultFormat, *translation)) {
            return std::string(*translation);
        }
    }
    return defaultFormat;
}

} // namespace catalog

int qngetmsg(const char* key, const char* locale, std::size_t size, char* buffer, int, int, int,
             const char* defaultFormat, ...) {
    const std::string format =
        key == nullptr || locale == nullptr ? defaultFormat : catalog::catalogOf(locale).format(key, defaultFormat);
    std::va_list arguments;
    va_start(arguments, defaultFormat);
    const int length = std::vsnprintf(buffer, size, format.c_str(), arguments);
    va_end(arguments);
    if (length >= 0 && size > 0 && static_cast<std::size_t>(length) >= size) {
        catalog::dropSplitCharacter(buffer);
    }
    return length;
}

int qngetlocaleEx(char* messages, std::size_t messagesSize, char* ctype, std::size_t ctypeSize, char* time,
                  std::size_t timeSize, char* collate, std::size_t collateSize, char* numeric, std::size_t numericSize,
                  qnstatus* status) {
    int code = catalog::copyName("LC_MESSAGES", messages, messagesSize);
    code |= catalog::copyName("LC_CTYPE", ctype, ctypeSize);
    code |= catalog::copyName("LC_TIME", time, timeSize);
    code |= catalog::copyName("LC_COLLATE", collate, collateSize);
    code |= catalog::copyName("LC_NUMERIC", numeric, numericSize);
    if (status != nullptr) {
        status->code = code;
    }
    return code;
}
