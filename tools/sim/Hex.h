// Hexadecimal text for the command line and the traffic log.
#pragma once

#include "Protocol.h"

#include <string>

std::string HexCompact(const Bytes& bytes);               // "023B033B"
std::string HexSpaced(const Bytes& bytes);                // "02 3B 03 3B"
// "02:3B:03:3B"; beyond maxBytes it ends in "... (N bytes)".
std::string HexColon(const Bytes& bytes, size_t maxBytes = SIZE_MAX);

// Pairs of hex digits; ':', ' ', '-' and ',' may stand between bytes ("02:41:03:40",
// "024103 40"). False for an odd digit count or any other character.
bool ParseHex(const std::string& text, Bytes& out);
