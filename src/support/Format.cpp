#include "support/Format.h"

#include <cstdarg>
#include <cstdio>

std::string Format(const char* format, ...)
{
    va_list args;
    va_start(args, format);
    va_list copy;
    va_copy(copy, args);
    int length = std::vsnprintf(nullptr, 0, format, copy);
    va_end(copy);
    std::string text;
    if (length > 0) {
        text.resize(static_cast<size_t>(length) + 1);
        std::vsnprintf(&text[0], text.size(), format, args);
        text.resize(static_cast<size_t>(length));
    }
    va_end(args);
    return text;
}
