// printf-style formatting into a std::string.
#pragma once

#include <string>

#if defined(__GNUC__)
__attribute__((format(printf, 1, 2)))
#endif
std::string Format(const char* format, ...);
