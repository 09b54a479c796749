#include "support/CkJsonObject.h"

#include <gtest/gtest.h>

#include <climits>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <random>
#include <string>
#include <vector>

#include "support/JsonNodes.h"

namespace {

// What a path reads as: "<null>" stands for a null StringOf.
std::string Read(CkJsonObject& json, const char* path)
{
    const char* text = json.StringOf(path);
    return text == nullptr ? "<null>" : text;
}

// Loads `text` as a first load, or as a reload over an earlier document with long strings.
void LoadFreshOrAgain(CkJsonObject& json, const std::string& text, bool reload)
{
    json.put_Utf8(true);
    if (reload) {
        ASSERT_TRUE(json.Load(R"({"earlier":"a value well past fifteen bytes","a":"old"})"));
    }
    ASSERT_TRUE(json.Load(text.c_str()));
}

struct LookupCase {
    const char* text;
    const char* path;
    bool has;
    const char* string;  // "<null>" for none
};

const LookupCase LookupCases[] = {
    // No syntax errors: take what can be taken.
    {R"({"format":"BEEP")", "format", true, "BEEP"},
    {R"({"format":"BEEP)", "format", false, "<null>"},
    {R"({"a":1)", "a", false, "<null>"},  // a token cut off by the end is not stored
    {R"({"a":1 )", "a", true, "1"},
    {R"({"a")", "a", false, "<null>"},
    {R"(junk {"a":1})", "a", true, "1"},
    {R"({"a":1} junk {"b":2})", "b", false, "<null>"},
    {"\xEF\xBB\xBF{\"a\":\"b\"}", "a", true, "b"},
    {R"({"a":1 "b":2})", "b", true, "2"},
    {R"({"a":1,,,"b":2,})", "b", true, "2"},
    {"{\"a\":1,\n// the next one\n\"b\":2}", "b", true, "2"},
    {R"({"a" "b":1})", "a", true, "1"},
    {R"({"a" "b":1})", "b", false, "<null>"},
    {R"({"a":x y, "b":2})", "a", true, "x"},
    {R"({"a":x y, "b":2})", "b", true, "2"},
    {R"({"a":})", "a", true, ""},
    {R"({"a":,"b":1})", "a", true, ""},
    {R"({"a":,"b":1})", "b", true, "1"},
    {R"({"a":"x\"})", "a", false, "<null>"},  // the backslash hides the closing quote
    {"no braces here", "a", false, "<null>"},
    {"", "a", false, "<null>"},
    {R"([{"a":1},{"b":2}])", "a", true, "1"},
    {R"([{"a":1},{"b":2}])", "b", false, "<null>"},
    // Names: first match wins, case counts, raw bytes.
    {R"({"a":1,"a":2})", "a", true, "1"},
    {R"({"A":1})", "a", false, "<null>"},
    {R"({"a\"b":1})", R"(a\"b)", true, "1"},
    {R"({"a\u0041":1})", "aA", false, "<null>"},
    {R"({"":5})", "", false, "<null>"},
    {R"({"fifteen_bytes__":1,"sixteen_bytes___":"a value of more than fifteen bytes"})",
     "sixteen_bytes___", true, "a value of more than fifteen bytes"},
    // Paths.
    {R"({"a":{"b":1}})", "a", true, "<null>"},
    {R"({"a":{"b":1}})", "a.b", true, "1"},
    {R"({"a":{"b":1}})", " \t.a.b", true, "1"},
    {R"({"a":{"b":1}})", "a.c", false, "<null>"},
    {R"({"a":{"b":{"c":"deep"}}})", "a.b.c", true, "deep"},
    {R"({"a.b":1})", R"("a.b")", true, "1"},
    {R"({"a":{"b c":1}})", "a.b c", true, "1"},
    {R"({"a":1})", "a.b", false, "<null>"},
    {R"({"a":1})", "a\tb", false, "<null>"},
    {R"({"a":1})", "a[0]", false, "<null>"},
    {R"({"a":[1,[2,3],{"b":[4]}]})", "a[1]", true, "[2,3]"},
    {R"({"a":[1,[2,3],{"b":[4]}]})", "a[1][0]", true, "2"},
    {R"({"a":[1,[2,3],{"b":[4]}]})", "a[2].b", true, "[4]"},
    {R"({"a":[1,[2,3],{"b":[4]}]})", "a[2]", true, "<null>"},
    {R"({"a":[1,[2,3],{"b":[4]}]})", "a[3]", false, "<null>"},
    {R"({"a":[1,[2,3],{"b":[4]}]})", "a[x]", false, "<null>"},
    // Arrays come back as compact text with their raw strings.
    {R"({"a":[1,"x",{"b":2}]})", "a", true, R"([1,"x",{"b":2}])"},
    {R"({"a": [ 1 , "x" ,{ "b" : 2 } ] })", "a", true, R"([1,"x",{"b":2}])"},
    {R"({"a":["q\"x\u0041"]})", "a", true, R"(["q\"x\u0041"])"},
    {R"({"a":[[],{},[[true]]]})", "a", true, "[[],{},[[true]]]"},
    {R"({"a":[1,2}, "b":3})", "a", true, "[1,2]"},
    {R"({"a":[1,2}, "b":3})", "b", true, "3"},
    {R"({"a":[1,2)", "a", true, "[1]"},
    {R"({"a":[{"b":"x)", "a", true, R"([{"b":}])"},
    // Reading decodes; bare tokens are text.
    {R"({"a":"x\qy"})", "a", true, "xy"},
    {R"({"a":true})", "a", true, "true"},
    {R"({"a":ab\})", "a", true, "ab"},
    {R"({"mode":1})", "mode", true, "1"},
};

TEST(CkJsonObjectTest, ForgivingParseAndLookupSameOnFirstLoadAndReload)
{
    for (const LookupCase& c : LookupCases) {
        for (bool reload : {false, true}) {
            SCOPED_TRACE(std::string(c.text) + " @ " + c.path + (reload ? " (reload)" : ""));
            CkJsonObject json;
            LoadFreshOrAgain(json, c.text, reload);
            EXPECT_EQ(c.has, json.HasMember(c.path));
            EXPECT_EQ(c.string, Read(json, c.path));
        }
    }
}

TEST(CkJsonObjectTest, EscapesAreDecodedOnRead)
{
    struct EscapeCase {
        const char* raw;
        std::string decoded;
    };
    const EscapeCase cases[] = {
        {R"(a\"b\\c\/d)", "a\"b\\c/d"},
        {R"(\n\r\t\f\b)", "\n\r\t\f\b"},
        {R"(\u0041)", "A"},
        {R"(\u00e9)", "\xC3\xA9"},
        {R"(\u07FF\u0800)", "\xDF\xBF\xE0\xA0\x80"},
        {R"(\u0e01)", "\xE0\xB8\x81"},
        {R"(\uFFFF)", "\xEF\xBF\xBF"},
        {R"(\ud83d\ude00)", "\xED\xA0\xBD\xED\xB8\x80"},  // halves are not joined
        {R"(x\u12)", "x12"},
        {R"(x\u)", "x"},
        {R"(x\u41zzy)", "xAy"},
        {R"(x\qy\z)", "xy"},
        {"\xE0\xB8\x81", "\xE0\xB8\x81"},
    };
    for (const EscapeCase& c : cases) {
        SCOPED_TRACE(c.raw);
        CkJsonObject json;
        json.put_Utf8(true);
        ASSERT_TRUE(json.Load((std::string(R"({"a":")") + c.raw + "\"}").c_str()));
        EXPECT_EQ(c.decoded, Read(json, "a"));
    }
}

TEST(CkJsonObjectTest, IntOfReadsTheLeadingInteger)
{
    struct IntCase {
        const char* value;  // as it stands after the colon
        int expected;
    };
    const IntCase cases[] = {
        {R"("7x")", 7},
        {R"(" \t-12")", -12},
        {R"("+5")", 5},
        {"-3 ", -3},
        {R"("0042")", 42},
        {R"("12.9")", 12},
        {R"("\t7")", 7},  // decoded first
        {R"("- 5")", 0},
        {R"("\n5")", 0},
        {"true", 0},
        {R"("")", 0},
        {"2147483647,", INT_MAX},
        {"-2147483648,", INT_MIN},
        {"4294967297,", 1},  // no overflow test: 32 bits wrap
        {"[5]", 0},
        {R"({"b":5})", 0},
    };
    for (const IntCase& c : cases) {
        SCOPED_TRACE(c.value);
        CkJsonObject json;
        json.put_Utf8(true);
        ASSERT_TRUE(json.Load((std::string(R"({"n":)") + c.value + "}").c_str()));
        EXPECT_EQ(c.expected, json.IntOf("n"));
    }
    CkJsonObject json;
    ASSERT_TRUE(json.Load(R"({"n":1})"));
    EXPECT_EQ(0, json.IntOf("missing"));
    EXPECT_EQ(0, json.IntOf(nullptr));
}

TEST(CkJsonObjectTest, ResultStringsLastThroughNineMoreCalls)
{
    std::string text = "{";
    for (int i = 0; i <= 10; ++i)
        text += "\"k" + std::to_string(i) + "\":\"value number " + std::to_string(i) + "\",";
    text += "}";
    CkJsonObject json;
    ASSERT_TRUE(json.Load(text.c_str()));

    const char* results[10];
    for (int i = 0; i < 9; ++i)
        results[i] = json.StringOf(("k" + std::to_string(i)).c_str());
    results[9] = json.lastErrorText();
    for (int i = 0; i < 9; ++i)
        EXPECT_STREQ(("value number " + std::to_string(i)).c_str(), results[i]);
    EXPECT_NE(nullptr, std::strstr(results[9], "StringOf"));

    // The eleventh result takes the first one's place.
    const char* eleventh = json.StringOf("k10");
    EXPECT_EQ(results[0], eleventh);
    EXPECT_STREQ("value number 10", results[0]);
    EXPECT_STREQ("value number 1", results[1]);
}

TEST(CkJsonObjectTest, LastErrorTextAccountsForTheLastCall)
{
    struct LogCase {
        const char* name;
        void (*call)(CkJsonObject&);
        std::vector<const char*> expected;
    };
    const LogCase cases[] = {
        {"load", [](CkJsonObject& j) { j.Load("{}"); }, {"Load", "Success."}},
        {"null text", [](CkJsonObject& j) { j.Load(nullptr); }, {"Load", "Failed."}},
        {"clear", [](CkJsonObject& j) { j.Clear(); }, {"Clear", "Success."}},
        {"missing file", [](CkJsonObject& j) { j.LoadFile("/nonexistent/x.json"); },
         {"LoadFile", "Failed."}},
        {"not found", [](CkJsonObject& j) { j.StringOf("zz"); },
         {"StringOf", "JSON member not found."}},
        {"object", [](CkJsonObject& j) { j.StringOf("o"); },
         {"StringOf", "Path did not end at a JSON value (3)"}},
        {"through a value", [](CkJsonObject& j) { j.HasMember("n.x"); },
         {"HasMember", "Value expected to be an object.", "JSON path syntax error.."}},
        {"not an array", [](CkJsonObject& j) { j.HasMember("n[0]"); },
         {"Value expected to be an array.", "JSON path syntax error.."}},
        {"bad byte after", [](CkJsonObject& j) { j.IntOf("n\tx"); },
         {"IntOf", "Expected a '.' or '[' char.", "JSON path syntax error (2)."}},
        {"cut in quotes", [](CkJsonObject& j) { j.HasMember("\"n\\"); },
         {"JSON path syntax error.."}},
    };
    for (const LogCase& c : cases) {
        SCOPED_TRACE(c.name);
        CkJsonObject json;
        ASSERT_TRUE(json.Load(R"({"n":1,"o":{}})"));
        c.call(json);
        std::string log = json.lastErrorText();
        for (const char* text : c.expected)
            EXPECT_NE(std::string::npos, log.find(text)) << log;
    }

    CkJsonObject empty;
    EXPECT_FALSE(empty.HasMember("a"));
    EXPECT_NE(nullptr, std::strstr(empty.lastErrorText(), "No top JSON object."));
}

TEST(CkJsonObjectTest, LoadsReplaceTheDocument)
{
    CkJsonObject json;
    json.Clear();
    EXPECT_FALSE(json.HasMember("a"));
    ASSERT_TRUE(json.Load(R"({"a":1})"));
    ASSERT_TRUE(json.Load(R"({"b":2})"));
    EXPECT_FALSE(json.HasMember("a"));
    EXPECT_EQ(2, json.IntOf("b"));
    ASSERT_TRUE(json.Load(""));
    EXPECT_FALSE(json.HasMember("b"));
}

TEST(CkJsonObjectTest, LoadFileKeepsTheDocumentWhenTheFileIsMissing)
{
    std::string path = ::testing::TempDir() + "CkJsonObjectTest.json";
    {
        std::ofstream file(path, std::ios::binary);
        file << "\xEF\xBB\xBF{\"port\":\"7\",\r\n\"name\":\"NEW6210\"}";
    }
    CkJsonObject json;
    json.put_Utf8(true);
    ASSERT_TRUE(json.LoadFile(path.c_str()));
    EXPECT_EQ(7, json.IntOf("port"));

    EXPECT_FALSE(json.LoadFile((path + ".missing").c_str()));
    EXPECT_EQ("NEW6210", Read(json, "name"));

    // A zero byte ends the text, as it does for Load.
    {
        std::ofstream file(path, std::ios::binary);
        file.write("{\"a\":1,\0\"b\":2}", 14);
    }
    ASSERT_TRUE(json.LoadFile(path.c_str()));
    EXPECT_EQ(1, json.IntOf("a"));
    EXPECT_FALSE(json.HasMember("b"));
    EXPECT_FALSE(json.HasMember("name"));
    std::remove(path.c_str());
}

TEST(CkJsonObjectTest, FirstLoadPointsIntoTheTextAndReloadCopies)
{
    const std::string text = R"({"a":"fifteen bytes..","b":"sixteen bytes...","c":[{"d":1}],"e":"x)";

    _ckJsonDoc first;
    first.m_text = text;
    ParseJson(first, first.m_text.data(), first.m_text.size(), true);
    _ckJsonDoc again;
    ParseJson(again, text.data(), text.size(), false);

    ASSERT_EQ(4u, first.m_top->m_members.size());
    ASSERT_EQ(4u, again.m_top->m_members.size());
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(JsonSpan, first.m_top->m_members[i]->m_nameKind);
        EXPECT_EQ(JsonInline, again.m_top->m_members[i]->m_nameKind);
    }
    EXPECT_EQ(JsonSpan, first.m_top->m_members[0]->m_value->m_kind);
    EXPECT_EQ(JsonSpan, first.m_top->m_members[1]->m_value->m_kind);
    EXPECT_EQ(JsonInline, again.m_top->m_members[0]->m_value->m_kind);
    EXPECT_EQ(JsonHeap, again.m_top->m_members[1]->m_value->m_kind);
    JsonText copied = ValueText(*again.m_top->m_members[1]->m_value);
    EXPECT_EQ("sixteen bytes...", std::string(copied.bytes, copied.length));

    // An object in an array stands bare; a member cut off by the end has no value.
    const _ckJsonValue* array = first.m_top->m_members[2]->m_value;
    ASSERT_EQ(JsonArray, array->m_kind);
    EXPECT_EQ(JsonObjectTag, (*array->m_payload.array)[0]->m_tag);
    EXPECT_EQ(nullptr, first.m_top->m_members[3]->m_value);
}

TEST(CkJsonObjectTest, DeepNestingIsBoundOnlyByMemory)
{
    const int depth = 100000;
    struct DeepCase {
        std::string text;
        const char* path;
        bool has;
    };
    std::string openObjects;
    std::string path;
    for (int i = 0; i < depth; ++i) {
        openObjects += "{\"a\":";
        path += i == 0 ? "a" : ".a";
    }
    const DeepCase cases[] = {
        {std::string(depth, '['), "a", false},
        {std::string(depth, '{'), "a", false},
        {"{\"a\":" + std::string(depth, '['), "a", true},
        {"{\"a\":" + std::string(depth, '[') + std::string(depth, ']') + ",\"b\":1}", "b", true},
        {"{\"a\":[" + std::string(depth, '{'), "a", true},
        {openObjects + "\"x\"" + std::string(depth, '}'), path.c_str(), true},
        {openObjects, path.c_str(), false},
    };
    for (const DeepCase& c : cases) {
        SCOPED_TRACE(c.text.substr(0, 12));
        for (bool reload : {false, true}) {
            CkJsonObject json;
            LoadFreshOrAgain(json, c.text, reload);
            EXPECT_EQ(c.has, json.HasMember(c.path));
        }
    }

    // Unclosed arrays come back closed.
    CkJsonObject json;
    ASSERT_TRUE(json.Load(("{\"a\":" + std::string(depth, '[')).c_str()));
    EXPECT_EQ(std::string(depth, '[') + std::string(depth, ']'), Read(json, "a"));
    ASSERT_TRUE(json.Load((openObjects + "\"x").c_str()));
    EXPECT_EQ("<null>", Read(json, path.c_str()));
    ASSERT_TRUE(json.Load((openObjects + "\"x\"}").c_str()));
    EXPECT_EQ("x", Read(json, path.c_str()));
}

// Random JSON-ish text: a reload must read exactly as a first load, and nothing may crash.
TEST(CkJsonObjectTest, RandomTextReadsTheSameOnFirstLoadAndReload)
{
    const char alphabet[] = "{}[]\"\":,\\ ab1u0.\t";
    const char* const paths[] = {"a", "b", "a.b", "\"a\"", "a[0]", "a[1].b", "", ".a"};
    std::mt19937 random(6210);
    for (int round = 0; round < 3000; ++round) {
        std::string text;
        size_t length = random() % 64;
        for (size_t i = 0; i < length; ++i)
            text += alphabet[random() % (sizeof alphabet - 1)];
        SCOPED_TRACE(text);
        CkJsonObject first;
        CkJsonObject again;
        LoadFreshOrAgain(first, text, false);
        LoadFreshOrAgain(again, text, true);
        for (const char* path : paths) {
            EXPECT_EQ(first.HasMember(path), again.HasMember(path));
            EXPECT_EQ(Read(first, path), Read(again, path));
            EXPECT_EQ(first.IntOf(path), again.IntOf(path));
        }
    }
}

}  // namespace
