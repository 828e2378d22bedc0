/// The product's message library: texts by key in the user's language.
#pragma once

#include <cstddef>

/// How qngetlocaleEx fared; zero for well.
struct qnstatus {
    int code = 0;
};

/// Formats the text that the catalog has for `key` in `locale`, or `defaultFormat` where it has none, printf-style into
/// `buffer`, never more than `size` bytes, NUL included. A translation whose conversions differ from the default's is
/// not used. The three reserved arguments are zero. Returns the length that the whole text has, or a negative value.
int qngetmsg(const char* key, const char* locale, std::size_t size, char* buffer, int reserved1, int reserved2,
             int reserved3, const char* defaultFormat, ...) __attribute__((format(printf, 8, 9)));

/// Fills the buffers with the names of the user's locale, category by category, as the environment gives them. A name
/// that does not fit is left empty and makes `status` and the result non-zero.
int qngetlocaleEx(char* messages, std::size_t messagesSize, char* ctype, std::size_t ctypeSize, char* time,
                  std::size_t timeSize, char* collate, std::size_t collateSize, char* numeric, std::size_t numericSize,
                  qnstatus* status);
