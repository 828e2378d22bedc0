#include "cvbase.h"

#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <string_view>

#include "utf8.h"

int V_snprintf(char* buffer, std::size_t size, const char* format, ...) {
    std::va_list arguments;
    va_start(arguments, format);
    const int length = std::vsnprintf(buffer, size, format, arguments);
    va_end(arguments);
    return length;
}

int V_cat_snprintf(char* buffer, std::size_t size, const char* format, ...) {
    const std::size_t used = ::strnlen(buffer, size);
    if (used == size) {
        // No NUL within the buffer: there is no end to append at.
        return -1;
    }
    std::va_list arguments;
    va_start(arguments, format);
    const int length = std::vsnprintf(buffer + used, size - used, format, arguments);
    va_end(arguments);
    return length < 0 ? length : static_cast<int>(used) + length;
}

std::size_t _utf8_mbstowcs_len(const char* text) {
    std::size_t count = 0;
    std::string_view rest = text == nullptr ? "" : text;
    while (!rest.empty()) {
        const std::size_t length = utf8::sequenceLength(rest);
        rest.remove_prefix(length == 0 ? 1 : length);
        ++count;
    }
    return count;
}
