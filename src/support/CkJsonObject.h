// The JSON document class. Its parser has no syntax errors: it takes what it can from any
// text and fails only when a file can't be read or memory runs out. It reads; it never writes.
#pragma once

#include <string>

class ClsJsonObject;

class CkJsonObject {
public:
    CkJsonObject();
    ~CkJsonObject();
    CkJsonObject(const CkJsonObject&) = delete;
    CkJsonObject& operator=(const CkJsonObject&) = delete;

    bool Load(const char* text);
    bool LoadFile(const char* path);
    // True if the path leads to a value or an object.
    bool HasMember(const char* path);
    // Decoded text of a string or bare token, compact text of an array; null for nothing or an
    // object. The pointer stays good through the next nine calls that return text.
    const char* StringOf(const char* path);
    // Leading decimal integer of StringOf, 0 if there is none.
    int IntOf(const char* path);
    // Loads "{}".
    void Clear();
    const char* lastErrorText();
    // True: strings cross as the raw bytes of the document. False (the default): converted
    // between UTF-8 and the system's ANSI code page.
    void put_Utf8(bool utf8);
    bool get_Utf8() const { return m_utf8; }

private:
    const char* Keep(std::string text);

    ClsJsonObject* m_impl;
    bool m_utf8;
    std::string m_results[10];
    int m_nextResult;
};
