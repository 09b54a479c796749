#include "support/JsonNodes.h"

#include <cstring>

_ckJsonMember::_ckJsonMember(_ckJsonDoc* doc)
    : _ckJsonBase(JsonMemberTag), m_doc(doc), m_nameKind(JsonInline), m_value(nullptr)
{
    std::memset(&m_name, 0, sizeof m_name);
}

_ckJsonMember::~_ckJsonMember()
{
    if (m_nameKind == JsonHeap)
        delete[] m_name.heap;
}

_ckJsonValue::_ckJsonValue(_ckJsonDoc* doc)
    : _ckJsonBase(JsonValueTag), m_doc(doc), m_kind(JsonInline), m_isString(0)
{
    std::memset(&m_payload, 0, sizeof m_payload);
}

_ckJsonValue::~_ckJsonValue()
{
    // Only the value's own storage: the nodes in an array or object are the document's to free.
    if (m_kind == JsonHeap)
        delete[] m_payload.heap;
    else if (m_kind == JsonArray)
        delete m_payload.array;
}

_ckJsonDoc::_ckJsonDoc() : _ckJsonBase(JsonDocTag), m_top(nullptr)
{
    m_top = new _ckJsonObject(this);
}

_ckJsonDoc::~_ckJsonDoc()
{
    Empty();
    delete m_top;
}

namespace {

void DeleteNode(_ckJsonBase* node)
{
    if (node == nullptr)
        return;
    switch (node->m_tag) {
    case JsonObjectTag:
        delete static_cast<_ckJsonObject*>(node);
        break;
    case JsonMemberTag:
        delete static_cast<_ckJsonMember*>(node);
        break;
    case JsonValueTag:
        delete static_cast<_ckJsonValue*>(node);
        break;
    }
}

// The slot in the list comes first, so that no node ever exists unlisted: if either
// allocation fails, everything made so far is still freed with the document.
template <class Node>
Node* ListedNode(std::vector<_ckJsonBase*>& nodes, _ckJsonDoc* doc)
{
    nodes.push_back(nullptr);
    Node* node = new Node(doc);
    nodes.back() = node;
    return node;
}

JsonText TextOf(const _ckJsonDoc* doc, const _ckJsonPayload& payload, uint8_t kind)
{
    switch (kind) {
    case JsonSpan:
        return JsonText{doc->m_text.data() + payload.span.offset, payload.span.length};
    case JsonInline:
        return JsonText{payload.inlined, std::strlen(payload.inlined)};
    case JsonHeap:
        return JsonText{payload.heap, std::strlen(payload.heap)};
    }
    return JsonText{"", 0};
}

}  // namespace

_ckJsonObject* _ckJsonDoc::NewObject()
{
    return ListedNode<_ckJsonObject>(m_nodes, this);
}

_ckJsonMember* _ckJsonDoc::NewMember()
{
    return ListedNode<_ckJsonMember>(m_nodes, this);
}

_ckJsonValue* _ckJsonDoc::NewValue()
{
    return ListedNode<_ckJsonValue>(m_nodes, this);
}

void _ckJsonDoc::Empty()
{
    for (_ckJsonBase* node : m_nodes)
        DeleteNode(node);
    // Swapping with an empty vector releases the storage without allocating.
    std::vector<_ckJsonBase*>().swap(m_nodes);
    std::vector<_ckJsonMember*>().swap(m_top->m_members);
}

JsonText NameText(const _ckJsonMember& member)
{
    return TextOf(member.m_doc, member.m_name, member.m_nameKind);
}

JsonText ValueText(const _ckJsonValue& value)
{
    return TextOf(value.m_doc, value.m_payload, value.m_kind);
}
