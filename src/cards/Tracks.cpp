#include "cards/Tracks.h"

#include <cctype>

#include "platform/Platform.h"
#include "support/Format.h"

namespace {

void TrimTrailingSpace(std::string& token)
{
    while (!token.empty() && std::isspace(static_cast<unsigned char>(token.back())))
        token.pop_back();
}

}  // namespace

void SplitFields(const char* text, std::vector<std::string>& fields)
{
    fields.clear();
    if (text[0] == 0)
        return;
    std::string token;
    for (const char* p = text; *p != 0; ++p) {
        if (*p == '|') {
            TrimTrailingSpace(token);
            fields.push_back(token);
            token.clear();
        } else {
            token += *p;
        }
    }
    TrimTrailingSpace(token);
    fields.push_back(token);
}

std::string MapTrackField(const std::string& field)
{
    std::string mapped = field;
    for (char& c : mapped) {
        if (c >= ':' && c <= '?')
            c = static_cast<char>('A' + (c - ':'));
    }
    return mapped;
}

int XorHexDigits(const std::string& text, NoticeFunction notice)
{
    int check = 0;
    for (char c : text) {
        int value = 0;
        if (c >= '0' && c <= '9') {
            value = c - '0';
        } else if (c >= 'A' && c <= 'F') {
            value = c - 'A' + 10;
        } else if (c >= 'a' && c <= 'f') {
            value = c - 'a' + 10;
        } else {
            notice(Format("error [%c]", c));
        }
        check ^= value;
    }
    return check;
}

int XorHexDigits(const std::string& text)
{
    return XorHexDigits(text, ShowNotice);
}

std::string RenderTrack(const std::string& field, NoticeFunction notice)
{
    const std::string mapped = MapTrackField(field);
    return Format("B%sF%X", mapped.c_str(), XorHexDigits(mapped, notice) & 0x0F);
}

TrackAnswer FormatTracks(const char* answer, std::string& text, NoticeFunction notice)
{
    std::vector<std::string> fields;
    SplitFields(answer, fields);
    if (fields.size() < 2)
        return TrackAnswer::PassedThrough;

    std::string first;
    std::string second;
    if (!fields[0].empty())
        first = RenderTrack(fields[0], notice);
    if (!fields[1].empty())
        second = RenderTrack(fields[1], notice);
    if (fields.size() == 2)
        return TrackAnswer::TwoFields;
    // The third field is the terminal's own text for the second part: taken as it stands.
    if (!fields[2].empty())
        second = fields[2];

    text = Format("%s|%s", first.c_str(), second.c_str());
    return TrackAnswer::Rendered;
}
