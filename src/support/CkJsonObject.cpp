#include "support/CkJsonObject.h"

#include <cstring>
#include <exception>
#include <new>
#include <vector>

#include "platform/Platform.h"
#include "support/JsonNodes.h"

// The document behind a CkJsonObject: the tree, the path delimiter, the account of the last
// call and the lock that every operation holds for its whole length.
class ClsJsonObject {
public:
    ClsJsonObject() : m_doc(nullptr), m_delimiter('.') {}
    ~ClsJsonObject() { delete m_doc; }
    ClsJsonObject(const ClsJsonObject&) = delete;
    ClsJsonObject& operator=(const ClsJsonObject&) = delete;

    // The account of a call: its operation, then notes. Short of memory it is cut short.
    void Begin(const char* operation) noexcept;
    void Note(const char* text) noexcept;
    void NoteQuoted(const char* label, const std::string& text) noexcept;
    const std::string& Log() const { return m_log; }

    // Takes over *takeOver instead of copying `text` if there is no document yet.
    bool Load(const char* text, size_t length, std::string* takeOver);
    // An object, or a value that holds text or an array; null if the path finds nothing.
    _ckJsonBase* Find(const char* path);
    // What StringOf gives, before any conversion; false for nothing.
    bool TextAt(const char* path, std::string& out);

    PlatformLock m_lock;

private:
    _ckJsonDoc* m_doc;
    char m_delimiter;
    std::string m_log;
};

namespace {

bool IsWhite(char c)
{
    return c == '\t' || c == '\n' || c == '\r' || c == ' ';
}

// The object that a node is or holds, else null.
_ckJsonObject* AsObject(_ckJsonBase* node)
{
    if (node == nullptr)
        return nullptr;
    if (node->m_tag == JsonObjectTag)
        return static_cast<_ckJsonObject*>(node);
    _ckJsonValue* value = static_cast<_ckJsonValue*>(node);
    return value->m_kind == JsonObject ? value->m_payload.object : nullptr;
}

bool IsArray(const _ckJsonBase* node)
{
    return node != nullptr && node->m_tag == JsonValueTag &&
           static_cast<const _ckJsonValue*>(node)->m_kind == JsonArray;
}

// First match wins; raw bytes, case counts, nothing decoded.
_ckJsonMember* FindMember(const _ckJsonObject& object, const char* name, size_t length)
{
    for (_ckJsonMember* member : object.m_members) {
        JsonText text = NameText(*member);
        if (text.length == length && std::memcmp(text.bytes, name, length) == 0)
            return member;
    }
    return nullptr;
}

// The leading hexadecimal digits of four bytes; all four are consumed whatever they hold.
unsigned HexValue(const char* four)
{
    unsigned value = 0;
    for (int i = 0; i < 4; ++i) {
        char c = four[i];
        unsigned digit;
        if (c >= '0' && c <= '9')
            digit = static_cast<unsigned>(c - '0');
        else if (c >= 'a' && c <= 'f')
            digit = static_cast<unsigned>(c - 'a' + 10);
        else if (c >= 'A' && c <= 'F')
            digit = static_cast<unsigned>(c - 'A' + 10);
        else
            break;
        value = value * 16 + digit;
    }
    return value;
}

// At most 0xFFFF, so never more than three bytes. Surrogate halves are written one by one,
// unjoined, which is what readers of these files have always got.
void AppendUtf8(unsigned code, std::string& out)
{
    if (code < 0x80) {
        out += static_cast<char>(code);
    } else if (code < 0x800) {
        out += static_cast<char>(0xC0 | (code >> 6));
        out += static_cast<char>(0x80 | (code & 0x3F));
    } else {
        out += static_cast<char>(0xE0 | (code >> 12));
        out += static_cast<char>(0x80 | ((code >> 6) & 0x3F));
        out += static_cast<char>(0x80 | (code & 0x3F));
    }
}

// Escape sequences are decoded only here, when a value is read. Bad ones are dropped, never
// refused.
void DecodeText(JsonText text, std::string& out)
{
    const char* bytes = text.bytes;
    size_t length = text.length;
    size_t at = 0;
    while (at < length) {
        char c = bytes[at++];
        if (c != '\\') {
            out += c;
            continue;
        }
        if (at == length)
            break;  // a lone backslash at the very end
        char escaped = bytes[at++];
        switch (escaped) {
        case '"':
        case '\\':
        case '/':
            out += escaped;
            break;
        case 'n':
            out += '\n';
            break;
        case 'r':
            out += '\r';
            break;
        case 't':
            out += '\t';
            break;
        case 'f':
            out += '\f';
            break;
        case 'b':
            out += '\b';
            break;
        case 'u':
            if (length - at < 4) {
                // Too short: the "\u" goes, what is left is copied as it stands.
                out.append(bytes + at, length - at);
                return;
            }
            AppendUtf8(HexValue(bytes + at), out);
            at += 4;
            break;
        default:
            break;  // both bytes dropped
        }
    }
}

void AppendQuoted(JsonText text, std::string& out)
{
    out += '"';
    out.append(text.bytes, text.length);
    out += '"';
}

// The compact JSON text of an array: no white space, strings in quotes with their raw text,
// bare tokens as they are. A stack on the heap instead of recursion, since the parser allows
// any depth.
void WriteCompactArray(const _ckJsonValue& array, std::string& out)
{
    struct Open {
        const _ckJsonBase* node;  // an array value or an object
        size_t next;              // the element or member to write next
    };
    std::vector<Open> open;
    out += '[';
    open.push_back(Open{&array, 0});

    while (!open.empty()) {
        Open& top = open.back();
        const _ckJsonBase* child;
        if (top.node->m_tag == JsonObjectTag) {
            const std::vector<_ckJsonMember*>& members =
                static_cast<const _ckJsonObject*>(top.node)->m_members;
            if (top.next == members.size()) {
                out += '}';
                open.pop_back();
                continue;
            }
            if (top.next > 0)
                out += ',';
            const _ckJsonMember& member = *members[top.next++];
            AppendQuoted(NameText(member), out);
            out += ':';
            child = member.m_value;  // null: the text ended before the value
        } else {
            const JsonElements& elements =
                *static_cast<const _ckJsonValue*>(top.node)->m_payload.array;
            if (top.next == elements.size()) {
                out += ']';
                open.pop_back();
                continue;
            }
            if (top.next > 0)
                out += ',';
            child = elements[top.next++];
        }

        // `top` is not used past here: the pushes below may move it.
        if (child == nullptr)
            continue;
        if (child->m_tag == JsonObjectTag) {
            out += '{';
            open.push_back(Open{child, 0});
            continue;
        }
        const _ckJsonValue& value = *static_cast<const _ckJsonValue*>(child);
        if (value.m_kind == JsonArray) {
            out += '[';
            open.push_back(Open{&value, 0});
        } else if (value.m_kind == JsonObject) {
            out += '{';
            open.push_back(Open{value.m_payload.object, 0});
        } else if (value.m_isString) {
            AppendQuoted(ValueText(value), out);
        } else {
            JsonText token = ValueText(value);
            out.append(token.bytes, token.length);
        }
    }
}

// Spaces and tabs, one optional sign, decimal digits up to the first other byte: 32 bits and
// no test for overflow. The sum is unsigned, where wrapping is defined.
int32_t LeadingInt(const char* text)
{
    while (*text == ' ' || *text == '\t')
        ++text;
    bool negative = false;
    if (*text == '-' || *text == '+')
        negative = *text++ == '-';
    uint32_t value = 0;
    while (*text >= '0' && *text <= '9')
        value = value * 10u + static_cast<uint32_t>(*text++ - '0');
    if (negative)
        value = 0u - value;
    return static_cast<int32_t>(value);
}

// A string coming in: with Utf8 off it is in the ANSI code page and the tree is UTF-8.
std::string Incoming(bool utf8, const char* text)
{
    return utf8 ? std::string(text) : AnsiToUtf8(text);
}

}  // namespace

// --- ClsJsonObject -------------------------------------------------------------------------

void ClsJsonObject::Begin(const char* operation) noexcept
{
    try {
        m_log = operation;
        m_log += ':';
    } catch (const std::exception&) {
        m_log.clear();
    }
}

void ClsJsonObject::Note(const char* text) noexcept
{
    try {
        m_log += ' ';
        m_log += text;
    } catch (const std::exception&) {
    }
}

void ClsJsonObject::NoteQuoted(const char* label, const std::string& text) noexcept
{
    try {
        m_log += ' ';
        m_log += label;
        m_log += " \"";
        m_log += text;
        m_log += "\".";
    } catch (const std::exception&) {
    }
}

bool ClsJsonObject::Load(const char* text, size_t length, std::string* takeOver)
{
    _ckJsonDoc* fresh = nullptr;
    try {
        if (m_doc == nullptr) {
            // First load: the document keeps the text, the tree's strings are spans into it.
            fresh = new _ckJsonDoc;
            if (takeOver != nullptr)
                fresh->m_text.swap(*takeOver);
            else
                fresh->m_text.assign(text, length);
            ParseJson(*fresh, fresh->m_text.data(), fresh->m_text.size(), true);
            m_doc = fresh;
        } else {
            // Reload: the tree gets copies; nothing points into the earlier text any more.
            m_doc->Empty();
            std::string().swap(m_doc->m_text);
            ParseJson(*m_doc, text, length, false);
        }
    } catch (const std::exception&) {
        // Short of memory: the document goes (only one of these two is set).
        delete fresh;
        delete m_doc;
        m_doc = nullptr;
        Note("Out of memory.");
        Note("Failed.");
        return false;
    }
    Note("Success.");
    return true;
}

_ckJsonBase* ClsJsonObject::Find(const char* path)
{
    if (m_doc == nullptr || m_doc->m_top == nullptr) {
        Note("No top JSON object.");
        return nullptr;
    }
    if (path == nullptr)
        return nullptr;
    const char* at = path;
    while (IsWhite(*at))
        ++at;
    if (*at == '\0')
        return nullptr;
    if (*at == m_delimiter)
        ++at;

    _ckJsonObject* object = m_doc->m_top;
    for (;;) {
        // The segment: quoted, with a backslash hiding the next byte, or up to the delimiter,
        // '[', tab, line feed, carriage return or the end. A space belongs to it.
        const char* segment;
        size_t length;
        if (*at == '"') {
            segment = ++at;
            while (*at != '\0' && *at != '"') {
                if (*at == '\\') {
                    if (at[1] == '\0') {
                        Note("JSON path syntax error..");
                        return nullptr;
                    }
                    ++at;
                }
                ++at;
            }
            length = static_cast<size_t>(at - segment);
            if (*at == '"')
                ++at;
        } else {
            segment = at;
            while (*at != '\0' && *at != m_delimiter && *at != '[' && *at != '\t' &&
                   *at != '\n' && *at != '\r')
                ++at;
            length = static_cast<size_t>(at - segment);
        }

        _ckJsonMember* member = FindMember(*object, segment, length);
        if (member == nullptr) {
            Note("JSON member not found.");
            return nullptr;
        }
        _ckJsonBase* node = member->m_value;

        // Subscripts: "a[0]", "a[0][2]". The program's own paths never hold them.
        while (*at == '[') {
            if (!IsArray(node)) {
                Note("Value expected to be an array.");
                Note("JSON path syntax error..");
                return nullptr;
            }
            const JsonElements& elements = *static_cast<_ckJsonValue*>(node)->m_payload.array;
            ++at;
            const char* digits = at;
            size_t index = 0;
            for (; *at >= '0' && *at <= '9'; ++at) {
                if (index <= elements.size())  // past the end it can only stay past it
                    index = index * 10 + static_cast<size_t>(*at - '0');
            }
            if (at == digits || *at != ']') {
                Note("JSON path syntax error..");
                return nullptr;
            }
            ++at;
            if (index >= elements.size()) {
                Note("JSON array index out of range.");
                return nullptr;
            }
            node = elements[index];
        }

        if (*at == '\0') {
            // A member without a value finds nothing; a value that holds an object gives it.
            _ckJsonObject* inner = AsObject(node);
            return inner != nullptr ? inner : node;
        }
        if (*at == m_delimiter) {
            object = AsObject(node);
            if (object == nullptr) {
                Note("Value expected to be an object.");
                Note("JSON path syntax error..");
                return nullptr;
            }
            ++at;
            continue;
        }
        Note("Expected a '.' or '[' char.");
        Note("JSON path syntax error (2).");
        return nullptr;
    }
}

bool ClsJsonObject::TextAt(const char* path, std::string& out)
{
    _ckJsonBase* node = Find(path);
    if (node == nullptr)
        return false;
    if (node->m_tag != JsonValueTag) {
        Note("Path did not end at a JSON value (3)");
        return false;
    }
    const _ckJsonValue& value = *static_cast<_ckJsonValue*>(node);
    if (value.m_kind == JsonArray)
        WriteCompactArray(value, out);
    else
        DecodeText(ValueText(value), out);
    return true;
}

// --- CkJsonObject --------------------------------------------------------------------------
// Every operation holds the lock for its whole length and turns a shortage of memory into a
// plain failure: no exception leaves the class. Without its ClsJsonObject (no memory when it
// was made) an object loads nothing and finds nothing.

CkJsonObject::CkJsonObject() : m_impl(nullptr), m_utf8(false), m_nextResult(0)
{
    try {
        m_impl = new ClsJsonObject;
    } catch (...) {
        m_impl = nullptr;
    }
}

CkJsonObject::~CkJsonObject()
{
    delete m_impl;
}

bool CkJsonObject::Load(const char* text)
{
    if (m_impl == nullptr)
        return false;
    LockScope scope(m_impl->m_lock);
    m_impl->Begin("Load");
    if (text == nullptr) {
        m_impl->Note("No JSON text.");
        m_impl->Note("Failed.");
        return false;
    }
    return m_impl->Load(text, std::strlen(text), nullptr);
}

bool CkJsonObject::LoadFile(const char* path)
{
    if (m_impl == nullptr)
        return false;
    LockScope scope(m_impl->m_lock);
    m_impl->Begin("LoadFile");
    if (path == nullptr) {
        m_impl->Note("No file path.");
        m_impl->Note("Failed.");
        return false;
    }
    try {
        m_impl->NoteQuoted("File", Incoming(m_utf8, path));
        // The file system takes the path as the caller gave it.
        std::string content;
        if (!ReadWholeFile(path, content)) {
            m_impl->Note("The file could not be read.");
            m_impl->Note("Failed.");
            return false;
        }
        // The text ends at its first zero byte, as the text given to Load does.
        content.resize(std::strlen(content.c_str()));
        return m_impl->Load(content.data(), content.size(), &content);
    } catch (const std::exception&) {
        m_impl->Note("Out of memory.");
        m_impl->Note("Failed.");
        return false;
    }
}

bool CkJsonObject::HasMember(const char* path)
{
    if (m_impl == nullptr)
        return false;
    LockScope scope(m_impl->m_lock);
    m_impl->Begin("HasMember");
    if (path == nullptr)
        return false;
    try {
        std::string name = Incoming(m_utf8, path);
        m_impl->NoteQuoted("Path", name);
        return m_impl->Find(name.c_str()) != nullptr;
    } catch (const std::exception&) {
        m_impl->Note("Out of memory.");
        return false;
    }
}

const char* CkJsonObject::StringOf(const char* path)
{
    if (m_impl == nullptr)
        return nullptr;
    LockScope scope(m_impl->m_lock);
    m_impl->Begin("StringOf");
    if (path == nullptr)
        return nullptr;
    try {
        std::string name = Incoming(m_utf8, path);
        m_impl->NoteQuoted("Path", name);
        std::string text;
        if (!m_impl->TextAt(name.c_str(), text))
            return nullptr;
        return Keep(std::move(text));
    } catch (const std::exception&) {
        m_impl->Note("Out of memory.");
        return nullptr;
    }
}

int CkJsonObject::IntOf(const char* path)
{
    if (m_impl == nullptr)
        return 0;
    LockScope scope(m_impl->m_lock);
    m_impl->Begin("IntOf");
    if (path == nullptr)
        return 0;
    try {
        std::string name = Incoming(m_utf8, path);
        m_impl->NoteQuoted("Path", name);
        std::string text;
        if (!m_impl->TextAt(name.c_str(), text))
            return 0;
        return LeadingInt(text.c_str());
    } catch (const std::exception&) {
        m_impl->Note("Out of memory.");
        return 0;
    }
}

void CkJsonObject::Clear()
{
    if (m_impl == nullptr)
        return;
    LockScope scope(m_impl->m_lock);
    m_impl->Begin("Clear");
    m_impl->Load("{}", 2, nullptr);
}

const char* CkJsonObject::lastErrorText()
{
    if (m_impl == nullptr)
        return "No memory for the JSON object.";
    LockScope scope(m_impl->m_lock);
    try {
        return Keep(m_impl->Log());
    } catch (const std::exception&) {
        return "Out of memory.";
    }
}

void CkJsonObject::put_Utf8(bool utf8)
{
    if (m_impl == nullptr) {
        m_utf8 = utf8;
        return;
    }
    LockScope scope(m_impl->m_lock);
    m_utf8 = utf8;
}

// Puts a result into the next of the ten result strings, converted for the caller.
const char* CkJsonObject::Keep(std::string text)
{
    if (!m_utf8)
        text = Utf8ToAnsi(text);
    std::string& slot = m_results[m_nextResult];
    m_nextResult = (m_nextResult + 1) % 10;
    slot = std::move(text);
    return slot.c_str();
}
