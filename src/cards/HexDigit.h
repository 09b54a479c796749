// The one digit rule of every hexadecimal decoder on the card side: a bad digit is no error,
// it simply counts as 0 (NUL included), because the terminal's replies are taken as they come.
#pragma once

inline int HexDigit(unsigned char c)
{
    if (c >= '0' && c <= '9')
        return c - '0';
    if (c >= 'A' && c <= 'F')
        return c - 'A' + 10;
    if (c >= 'a' && c <= 'f')
        return c - 'a' + 10;
    return 0;
}
