// The forgiving parser. It has no syntax errors: it skips what it does not expect and stops
// quietly wherever the text ends. One loop over a stack on the heap, so that nesting is limited
// by memory alone, never by the thread's stack.
#include "support/JsonNodes.h"

#include <cstring>

namespace {

enum ParseState : uint8_t { ObjectState, ValueState, ArrayState };

struct StackEntry {
    ParseState state;
    // ObjectState: the object; ValueState: the member waiting for its value; ArrayState: the
    // array value.
    _ckJsonBase* node;
};

bool IsWhite(char c)
{
    return c == '\t' || c == '\n' || c == '\r' || c == ' ';
}

bool EndsToken(char c)
{
    return IsWhite(c) || c == ',' || c == ']' || c == '}';
}

class JsonParser {
public:
    JsonParser(_ckJsonDoc& doc, const char* text, size_t length, bool spans)
        : m_doc(doc), m_text(text), m_length(length), m_pos(0),
          // Spans hold 32-bit offsets; a longer text is copied instead.
          m_spans(spans && length <= UINT32_MAX)
    {
    }

    void Run();

private:
    // Each step returns false if the text ran out: the parse stops there.
    bool ObjectStep(_ckJsonObject* object);
    bool ValueStep(_ckJsonMember* member);
    bool ArrayStep(_ckJsonValue* array);

    bool ScanString(size_t& start, size_t& length);
    bool ScanToken(size_t& start, size_t& length);
    void SkipWhite(bool commasToo);

    void StoreText(_ckJsonPayload& payload, uint8_t& kind, size_t start, size_t length);
    _ckJsonValue* NewTextValue(size_t start, size_t length, uint8_t isString);
    _ckJsonValue* NewArrayValue();
    void Push(ParseState state, _ckJsonBase* node) { m_stack.push_back(StackEntry{state, node}); }

    _ckJsonDoc& m_doc;
    const char* m_text;
    size_t m_length;
    size_t m_pos;
    bool m_spans;
    std::vector<StackEntry> m_stack;
};

void JsonParser::Run()
{
    // Everything before the first brace, a byte-order mark among it, is ignored.
    const void* brace = std::memchr(m_text, '{', m_length);
    if (brace == nullptr)
        return;
    m_pos = static_cast<size_t>(static_cast<const char*>(brace) - m_text) + 1;
    Push(ObjectState, m_doc.m_top);

    // The stack empties when the top object closes; what follows it is not looked at.
    while (!m_stack.empty()) {
        StackEntry entry = m_stack.back();
        m_stack.pop_back();
        bool more = false;
        switch (entry.state) {
        case ObjectState:
            more = ObjectStep(static_cast<_ckJsonObject*>(entry.node));
            break;
        case ValueState:
            more = ValueStep(static_cast<_ckJsonMember*>(entry.node));
            break;
        case ArrayState:
            more = ArrayStep(static_cast<_ckJsonValue*>(entry.node));
            break;
        }
        if (!more)
            return;
    }
}

bool JsonParser::ObjectStep(_ckJsonObject* object)
{
    // Commas, bare words, comment text: all dropped on the way to a name or the close.
    while (m_pos < m_length && m_text[m_pos] != '"' && m_text[m_pos] != '}')
        ++m_pos;
    if (m_pos == m_length)
        return false;
    if (m_text[m_pos] == '}') {
        ++m_pos;
        return true;
    }

    size_t start, length;
    if (!ScanString(start, length))
        return false;
    // Empty and repeated names are kept as they come.
    _ckJsonMember* member = m_doc.NewMember();
    StoreText(member->m_name, member->m_nameKind, start, length);
    object->m_members.push_back(member);

    // Anything up to the colon goes, quotes and braces included.
    while (m_pos < m_length && m_text[m_pos] != ':')
        ++m_pos;
    if (m_pos == m_length)
        return false;
    ++m_pos;

    Push(ObjectState, object);
    Push(ValueState, member);
    return true;
}

bool JsonParser::ValueStep(_ckJsonMember* member)
{
    SkipWhite(false);
    if (m_pos == m_length)
        return false;

    size_t start, length;
    switch (m_text[m_pos]) {
    case '"':
        if (!ScanString(start, length))
            return false;
        member->m_value = NewTextValue(start, length, 1);
        return true;
    case '{': {
        ++m_pos;
        _ckJsonValue* value = m_doc.NewValue();
        _ckJsonObject* object = m_doc.NewObject();
        value->m_payload.object = object;
        value->m_kind = JsonObject;
        member->m_value = value;
        Push(ObjectState, object);
        return true;
    }
    case '[': {
        ++m_pos;
        _ckJsonValue* array = NewArrayValue();
        member->m_value = array;
        Push(ArrayState, array);
        return true;
    }
    default:
        // May be empty: {"a":} and {"a":,"b":1} give "a" an empty value.
        if (!ScanToken(start, length))
            return false;
        member->m_value = NewTextValue(start, length, 0);
        return true;
    }
}

bool JsonParser::ArrayStep(_ckJsonValue* array)
{
    SkipWhite(true);
    if (m_pos == m_length)
        return false;

    JsonElements& elements = *array->m_payload.array;
    size_t start, length;
    switch (m_text[m_pos]) {
    case ']':
    case '}':  // closes an array too, on purpose: files in the field rely on it
        ++m_pos;
        return true;
    case '"':
        if (!ScanString(start, length))
            return false;
        elements.push_back(NewTextValue(start, length, 1));
        Push(ArrayState, array);
        return true;
    case '{': {
        ++m_pos;
        // An object in an array stands bare, with no value round it.
        _ckJsonObject* object = m_doc.NewObject();
        elements.push_back(object);
        Push(ArrayState, array);
        Push(ObjectState, object);
        return true;
    }
    case '[': {
        ++m_pos;
        _ckJsonValue* inner = NewArrayValue();
        elements.push_back(inner);
        Push(ArrayState, array);
        Push(ArrayState, inner);
        return true;
    }
    default:
        // Never empty: the byte here ends no token.
        if (!ScanToken(start, length))
            return false;
        elements.push_back(NewTextValue(start, length, 0));
        Push(ArrayState, array);
        return true;
    }
}

// From the opening quote at m_pos to the closing one; a backslash hides the byte after it.
// The text between the quotes is left undecoded.
bool JsonParser::ScanString(size_t& start, size_t& length)
{
    size_t at = m_pos + 1;
    while (at < m_length && m_text[at] != '"')
        at += m_text[at] == '\\' ? 2 : 1;
    if (at >= m_length) {
        m_pos = m_length;
        return false;
    }
    start = m_pos + 1;
    length = at - start;
    m_pos = at + 1;
    return true;
}

// Up to white space, a comma, ']' or '}', which stays for the next state. A token that
// reaches the end of the text is unfinished and not stored.
bool JsonParser::ScanToken(size_t& start, size_t& length)
{
    size_t at = m_pos;
    while (at < m_length && !EndsToken(m_text[at]))
        ++at;
    if (at == m_length) {
        m_pos = m_length;
        return false;
    }
    start = m_pos;
    length = at - m_pos;
    m_pos = at;
    return true;
}

void JsonParser::SkipWhite(bool commasToo)
{
    while (m_pos < m_length && (IsWhite(m_text[m_pos]) || (commasToo && m_text[m_pos] == ',')))
        ++m_pos;
}

// A first load points into the retained text; a reload copies, inline while it fits.
void JsonParser::StoreText(_ckJsonPayload& payload, uint8_t& kind, size_t start, size_t length)
{
    if (m_spans) {
        payload.span.offset = static_cast<uint32_t>(start);
        payload.span.length = static_cast<uint32_t>(length);
        kind = JsonSpan;
    } else if (length <= JsonInlineMax) {
        std::memcpy(payload.inlined, m_text + start, length);
        payload.inlined[length] = '\0';
        kind = JsonInline;
    } else {
        char* copy = new char[length + 1];
        std::memcpy(copy, m_text + start, length);
        copy[length] = '\0';
        payload.heap = copy;
        kind = JsonHeap;
    }
}

_ckJsonValue* JsonParser::NewTextValue(size_t start, size_t length, uint8_t isString)
{
    _ckJsonValue* value = m_doc.NewValue();
    StoreText(value->m_payload, value->m_kind, start, length);
    value->m_isString = isString;
    return value;
}

_ckJsonValue* JsonParser::NewArrayValue()
{
    _ckJsonValue* value = m_doc.NewValue();
    JsonElements* elements = new JsonElements;
    value->m_payload.array = elements;
    value->m_kind = JsonArray;
    return value;
}

}  // namespace

void ParseJson(_ckJsonDoc& doc, const char* text, size_t length, bool spans)
{
    JsonParser(doc, text, length, spans).Run();
}
