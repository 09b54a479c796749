#include "support/CkJsonObject.h"

#include <gtest/gtest.h>

#include <climits>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <string>
#include <vector>


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
    std::string text;
    std::string path;
    bool has;
    std::string string;  // "<null>" for none
};

// Both ways of loading must read the same.
void ExpectLookup(const LookupCase& c)
{
    for (bool reload : {false, true}) {
        SCOPED_TRACE(c.text.substr(0, 40) + " @ " + c.path.substr(0, 20) + (reload ? " again" : ""));
        CkJsonObject json;
        LoadFreshOrAgain(json, c.text, reload);
        EXPECT_EQ(c.has, json.HasMember(c.path.c_str()));
        EXPECT_EQ(c.string, Read(json, c.path.c_str()));
    }
}

const LookupCase LookupCases[] = {
    // No syntax errors: take what can be taken.
    {R"({"format":"BEEP")", "format", true, "BEEP"},
    {R"({"format":"BEEP)", "format", false, "<null>"},
    {R"({"a":1)", "a", false, "<null>"},  // a token cut off by the end is not stored
    {R"({"a":1 )", "a", true, "1"},
    {R"({"a")", "a", false, "<null>"},
    {R"(junk {"a":1})", "a", true, "1"},
    {R"({"a":1} junk {"b":2})", "b", false, "<null>"},
    {R"({"a":1 "b":2})", "b", true, "2"},  // commas, bare words, comments: all skipped
    {"{\"a\":1,\n// the next one\n\"b\":2}", "b", true, "2"},
    {R"({"a" "b":1})", "a", true, "1"},
    {R"({"a":x y, "b":2})", "a", true, "x"},
    {R"({"a":x y, "b":2})", "b", true, "2"},
    {R"({"a":,"b":1})", "a", true, ""},
    {R"({"a":,"b":1})", "b", true, "1"},
    {R"({"a":"x\"})", "a", false, "<null>"},  // the backslash hides the closing quote
    {"no braces here", "a", false, "<null>"},
    {"", "a", false, "<null>"},
    {R"([{"a":1},{"b":2}])", "a", true, "1"},
    {R"([{"a":1},{"b":2}])", "b", false, "<null>"},
    // Names: first match wins, case counts, raw bytes.
    {R"({"a":1,"a":2})", "a", true, "1"},
    {R"({"ab":1,"a":2})", "a", true, "2"},
    {R"({"a":1})", "ab", false, "<null>"},
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
    {R"({"a.b":1})", R"("a.b")", true, "1"},
    {R"({"a":{"b c":1}})", "a.b c", true, "1"},
    {R"({"a":1})", "a.b", false, "<null>"},
    {R"({"a":1})", "a[0]", false, "<null>"},
    {R"({"a":[1,[2,3],{"b":[4]}]})", "a[1]", true, "[2,3]"},
    {R"({"a":[1,[2,3],{"b":[4]}]})", "a[1][0]", true, "2"},
    {R"({"a":[1,[2,3],{"b":[4]}]})", "a[2].b", true, "[4]"},
    {R"({"a":[1,[2,3],{"b":[4]}]})", "a[3]", false, "<null>"},
    {R"({"a":[1,[2,3],{"b":[4]}]})", "a[x]", false, "<null>"},
    // Arrays come back as compact text with their raw strings.
    {R"({"a": [ 1 , "x" ,{ "b" : 2 } ] })", "a", true, R"([1,"x",{"b":2}])"},
    {R"({"a":["q\"x\u0041"]})", "a", true, R"(["q\"x\u0041"])"},
    {R"({"a":[[],{},[[true]]]})", "a", true, "[[],{},[[true]]]"},
    {R"({"a":[1,2}, "b":3})", "a", true, "[1,2]"},
    {R"({"a":[1,2}, "b":3})", "b", true, "3"},
    {R"({"a":[1,2)", "a", true, "[1]"},
    {R"({"a":[{"b":"x)", "a", true, R"([{"b":}])"},
    // Reading decodes; bare tokens are text.
    {R"({"a":"a\"b\\c\/d"})", "a", true, "a\"b\\c/d"},
    {R"({"a":"\n\r\t\f\b"})", "a", true, "\n\r\t\f\b"},
    {R"({"a":"\u0041\u07FF\u0800\uFFFF"})", "a", true, "A\xDF\xBF\xE0\xA0\x80\xEF\xBF\xBF"},
    {R"({"a":"\ud83d\ude00"})", "a", true, "\xED\xA0\xBD\xED\xB8\x80"},  // halves stay apart
    {R"({"a":"x\u12"})", "a", true, "x12"},
    {R"({"a":"x\u"})", "a", true, "x"},
    {R"({"a":"x\u41zzy"})", "a", true, "xAy"},
    {R"({"a":"x\qy\z"})", "a", true, "xy"},
    {R"({"a":ab\})", "a", true, "ab"},
};

TEST(CkJsonObjectTest, ForgivingParseAndLookupSameOnFirstLoadAndReload)
{
    for (const LookupCase& c : LookupCases)
        ExpectLookup(c);
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
        {R"("\t7")", 7},  // decoded first
        {R"("- 5")", 0},
        {R"("\n5")", 0},
        {"true", 0},
        {"-2147483648,", INT_MIN},
        {"4294967297,", 1},  // no overflow test: 32 bits wrap
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

TEST(CkJsonObjectTest, LoadFileKeepsTheDocumentWhenTheFileIsMissing)
{
    const std::string path = ::testing::TempDir() + "CkJsonObjectTest.json";
    const auto write = [&](const std::string& bytes) {
        std::ofstream(path, std::ios::binary).write(bytes.data(), bytes.size());
    };
    CkJsonObject json;
    json.put_Utf8(true);
    write("\xEF\xBB\xBF{\"port\":\"7\",\r\n\"name\":\"NEW6210\"}");
    ASSERT_TRUE(json.LoadFile(path.c_str()));
    EXPECT_EQ(7, json.IntOf("port"));

    EXPECT_FALSE(json.LoadFile((path + ".missing").c_str()));
    EXPECT_EQ("NEW6210", Read(json, "name"));

    // A zero byte ends the text, as it does for Load.
    write(std::string("{\"a\":1,\0\"b\":2}", 14));
    ASSERT_TRUE(json.LoadFile(path.c_str()));
    EXPECT_EQ(1, json.IntOf("a"));
    EXPECT_FALSE(json.HasMember("b"));
    EXPECT_FALSE(json.HasMember("name"));
    std::remove(path.c_str());
}

TEST(CkJsonObjectTest, DeepNestingIsBoundOnlyByMemory)
{
    const int depth = 100000;
    std::string objects;  // {"a":{"a":...
    std::string path;     // a.a...
    for (int i = 0; i < depth; ++i) {
        objects += "{\"a\":";
        path += i == 0 ? "a" : ".a";
    }
    const std::string arrays(depth, '['), closed = arrays + std::string(depth, ']');
    const LookupCase cases[] = {
        {arrays, "a", false, "<null>"},
        {std::string(depth, '{'), "a", false, "<null>"},
        {"{\"a\":" + arrays, "a", true, closed},  // unclosed arrays come back closed
        {"{\"a\":" + closed + ",\"b\":1}", "b", true, "1"},
        {"{\"a\":[" + std::string(depth, '{'), "a", true, "[{}]"},  // a name was due
        {objects + "\"x\"" + std::string(depth, '}'), path, true, "x"},
        {objects, path, false, "<null>"},
    };
    for (const LookupCase& c : cases)
        ExpectLookup(c);
}

}  // namespace
