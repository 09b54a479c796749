// printf-style formatting into a std::string.
#pragma once

#include <string>

#if defined(__GNUC__)
__attribute__((format(printf, 1, 2)))
#endif
std::string Format(const char* format, ...);

// Equal but for the case of ASCII letters, as command words and device names compare.
bool EqualNoCase(const std::string& left, const char* right);
