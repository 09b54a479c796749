// The stripe reader's answer turned into the caller's track text: fields split at '|', each
// track in nibble notation "B<data>F<check>" (start sentinel, data with ':'..'?' as 'A'..'F',
// end sentinel, XOR of the data digits).
#pragma once

#include <string>
#include <vector>

using NoticeFunction = void (*)(const std::string& text);

// Splits at '|'; every field loses its trailing white space; the last field is kept even when
// empty, and an empty text gives no field at all.
void SplitFields(const char* text, std::vector<std::string>& fields);

// ':' ';' '<' '=' '>' '?' become 'A' to 'F'; everything else stays.
std::string MapTrackField(const std::string& field);

// XOR of the hexadecimal digit values, 0 to 15. Each other character is shown as
// "error [%c]" through `notice` (one blocking notice each) and counts as 0.
int XorHexDigits(const std::string& text, NoticeFunction notice);
int XorHexDigits(const std::string& text);  // notices through ShowNotice

// "B%sF%X" of the mapped field and its check digit.
std::string RenderTrack(const std::string& field, NoticeFunction notice);

enum class TrackAnswer {
    PassedThrough,  // fewer than two fields: the answer stands as it came
    Rendered,       // `text` holds the caller's "%s|%s"
    TwoFields,      // exactly two fields: there is no third field to look at
};

// Builds the caller's text from the terminal's answer. Both tracks are rendered (with their
// notices) before the number of fields is looked at, as the reader always did.
TrackAnswer FormatTracks(const char* answer, std::string& text, NoticeFunction notice);
