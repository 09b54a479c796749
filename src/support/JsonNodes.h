// The tree behind CkJsonObject: a small family of nodes told apart by a one-byte tag (no
// virtual operations), and the parser that builds it. Internal to the JSON document class.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

struct _ckJsonBase;
struct _ckJsonDoc;
struct _ckJsonObject;
struct _ckJsonMember;
struct _ckJsonValue;

// Tags of the node kinds.
constexpr uint8_t JsonObjectTag = 1;
constexpr uint8_t JsonMemberTag = 2;
constexpr uint8_t JsonValueTag = 3;
constexpr uint8_t JsonDocTag = 4;

// Forms of a value's payload. The first three are also the forms of a member's name.
constexpr uint8_t JsonSpan = 0;    // offset and length into the text the document retains
constexpr uint8_t JsonInline = 1;  // up to JsonInlineMax bytes and a terminator, in the node
constexpr uint8_t JsonHeap = 2;    // zero-terminated heap copy of a longer text
constexpr uint8_t JsonArray = 3;   // ordered list of elements
constexpr uint8_t JsonObject = 4;  // an object

constexpr size_t JsonInlineMax = 15;

// An element of an array is a _ckJsonValue, or a bare _ckJsonObject for an object.
typedef std::vector<_ckJsonBase*> JsonElements;

union _ckJsonPayload {
    struct {
        uint32_t offset;
        uint32_t length;
    } span;
    char inlined[JsonInlineMax + 1];
    char* heap;
    JsonElements* array;
    _ckJsonObject* object;
};

struct _ckJsonBase {
    explicit _ckJsonBase(uint8_t tag) : m_tag(tag) {}
    uint8_t m_tag;
};

// Nodes own no other node: the document lists every node it makes and frees them in one flat
// loop, so that neither freeing nor a failed parse needs recursion or memory.
struct _ckJsonObject : _ckJsonBase {
    explicit _ckJsonObject(_ckJsonDoc* doc) : _ckJsonBase(JsonObjectTag), m_doc(doc) {}
    _ckJsonDoc* m_doc;
    std::vector<_ckJsonMember*> m_members;  // allocates when the first member arrives
};

struct _ckJsonMember : _ckJsonBase {
    explicit _ckJsonMember(_ckJsonDoc* doc);
    ~_ckJsonMember();
    _ckJsonMember(const _ckJsonMember&) = delete;
    _ckJsonMember& operator=(const _ckJsonMember&) = delete;

    _ckJsonDoc* m_doc;
    _ckJsonPayload m_name;
    uint8_t m_nameKind;     // JsonSpan, JsonInline or JsonHeap
    _ckJsonValue* m_value;  // null if the text ended before the value began
};

struct _ckJsonValue : _ckJsonBase {
    explicit _ckJsonValue(_ckJsonDoc* doc);
    ~_ckJsonValue();
    _ckJsonValue(const _ckJsonValue&) = delete;
    _ckJsonValue& operator=(const _ckJsonValue&) = delete;

    _ckJsonDoc* m_doc;
    _ckJsonPayload m_payload;
    uint8_t m_kind;
    uint8_t m_isString;  // 1 if the text stood in quotes
};

struct _ckJsonDoc : _ckJsonBase {
    _ckJsonDoc();
    ~_ckJsonDoc();
    _ckJsonDoc(const _ckJsonDoc&) = delete;
    _ckJsonDoc& operator=(const _ckJsonDoc&) = delete;

    // New nodes, listed for freeing before they are made.
    _ckJsonObject* NewObject();
    _ckJsonMember* NewMember();
    _ckJsonValue* NewValue();
    // Frees every node but the top object and empties its members.
    void Empty();

    _ckJsonObject* m_top;
    std::string m_text;  // what spans point into
    std::vector<_ckJsonBase*> m_nodes;
};

// A stretch of bytes in the tree, raw as it stood in the text.
struct JsonText {
    const char* bytes;
    size_t length;
};

JsonText NameText(const _ckJsonMember& member);
// Of a value in one of the three text forms.
JsonText ValueText(const _ckJsonValue& value);

// Parses `length` bytes of `text` into the document's top object, which should be empty. With
// `spans` the strings of the tree are spans, and `text` must be the document's own m_text;
// otherwise they are copies. Never fails on the text; throws std::bad_alloc when memory runs
// out, with everything made so far listed in the document.
void ParseJson(_ckJsonDoc& doc, const char* text, size_t length, bool spans);
