// The forgiving JSON reader of the configuration and command files: what a path reads as,
// integers, the error text and loading from a file.
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

struct LookupCase {
    std::string text;
    std::string path;
    bool has;
    std::string string;  // "<null>" for none
};

// A first load and a reload over an earlier document with long strings must read the same.
void ExpectLookup(const LookupCase& c)
{
    for (bool reload : {false, true}) {
        SCOPED_TRACE(c.text.substr(0, 40) + " @ " + c.path.substr(0, 20) + (reload ? " again" : ""));
        CkJsonObject json;
        json.put_Utf8(true);
        if (reload) {
            ASSERT_TRUE(json.Load(R"({"earlier":"a value well past fifteen bytes","a":"old"})"));
        }
        ASSERT_TRUE(json.Load(c.text.c_str()));
        EXPECT_EQ(c.has, json.HasMember(c.path.c_str()));
        EXPECT_EQ(c.string, Read(json, c.path.c_str()));
    }
}

TEST(CkJsonObjectTest, ForgivingParseAndLookup)
{
    const LookupCase cases[] = {
        // No syntax errors: take what can be taken.
        {R"({"format":"BEEP")", "format", true, "BEEP"},
        {R"({"format":"BEEP)", "format", false, "<null>"},
        {R"({"a":1)", "a", false, "<null>"},  // a token cut off by the end is not stored
        {R"({"a":1 )", "a", true, "1"},
        {R"(junk {"a":1})", "a", true, "1"},
        {R"({"a":1} junk {"b":2})", "b", false, "<null>"},
        {"{\"a\":1 \"b\":2,\n// a comment\n}", "b", true, "2"},  // commas, comments: skipped
        {R"({"a":x y, "b":2})", "a", true, "x"},
        {R"({"a":,"b":1})", "a", true, ""},
        {R"({"a":"x\"})", "a", false, "<null>"},  // the backslash hides the closing quote
        {R"([{"a":1},{"b":2}])", "b", false, "<null>"},
        // Names: the whole name, first match wins, case counts, raw bytes.
        {R"({"a":1,"a":2})", "a", true, "1"},
        {R"({"ab":1,"a":2})", "a", true, "2"},
        {R"({"a":1})", "ab", false, "<null>"},
        {R"({"A":1})", "a", false, "<null>"},
        {R"({"a\"b":1})", R"(a\"b)", true, "1"},
        {R"({"a\u0041":1})", "aA", false, "<null>"},
        {R"({"sixteen_bytes___":"a value of more than fifteen bytes"})", "sixteen_bytes___", true,
         "a value of more than fifteen bytes"},
        // Paths.
        {R"({"a":{"b":1}})", "a", true, "<null>"},
        {R"({"a":{"b":1}})", " \t.a.b", true, "1"},
        {R"({"a.b":1})", R"("a.b")", true, "1"},
        {R"({"a":1})", "a.b", false, "<null>"},
        {R"({"a":[1,[2,3],{"b":[4]}]})", "a[1][0]", true, "2"},
        {R"({"a":[1,[2,3],{"b":[4]}]})", "a[2].b", true, "[4]"},
        {R"({"a":[1,[2,3],{"b":[4]}]})", "a[3]", false, "<null>"},
        // Arrays come back as compact text with their raw strings.
        {R"({"a": [ 1 , "q\"x\u0041" ,{ "b" : 2 } ] })", "a", true, R"([1,"q\"x\u0041",{"b":2}])"},
        {R"({"a":[1,2}, "b":3})", "b", true, "3"},
        {R"({"a":[{"b":"x)", "a", true, R"([{"b":}])"},
        // Reading decodes; bad escapes are dropped; bare tokens are text.
        {R"({"a":"a\"b\\c\/d\n\t"})", "a", true, "a\"b\\c/d\n\t"},
        {R"({"a":"\u0041\u07FF\u0800\uFFFF"})", "a", true, "A\xDF\xBF\xE0\xA0\x80\xEF\xBF\xBF"},
        {R"({"a":"\ud83d\ude00"})", "a", true, "\xED\xA0\xBD\xED\xB8\x80"},  // halves stay apart
        {R"({"a":"x\u41zzy\q"})", "a", true, "xAy"},
        {R"({"a":ab\})", "a", true, "ab"},
    };
    for (const LookupCase& c : cases)
        ExpectLookup(c);
}

TEST(CkJsonObjectTest, DeepNestingIsBoundOnlyByMemory)
{
    const int depth = 100000;
    std::string objects, path;  // {"a":{"a":...  and  a.a...
    for (int i = 0; i < depth; ++i) {
        objects += "{\"a\":";
        path += i == 0 ? "a" : ".a";
    }
    const std::string arrays(depth, '['), closed = arrays + std::string(depth, ']');
    const LookupCase cases[] = {
        {"{\"a\":" + arrays, "a", true, closed},  // unclosed arrays come back closed
        {"{\"a\":" + closed + ",\"b\":1}", "b", true, "1"},
        {objects + "\"x\"" + std::string(depth, '}'), path, true, "x"},
        {objects, path, false, "<null>"},
    };
    for (const LookupCase& c : cases)
        ExpectLookup(c);
}

TEST(CkJsonObjectTest, IntOfReadsTheLeadingInteger)
{
    const struct {
        const char* value;  // as it stands after the colon
        int expected;
    } cases[] = {
        {R"("7x")", 7}, {R"(" \t-12")", -12}, {R"("+5")", 5}, {"-3 ", -3}, {R"("\t7")", 7},
        {R"("- 5")", 0}, {R"("\n5")", 0}, {"true", 0}, {"-2147483648,", INT_MIN},
        {"4294967297,", 1},  // 32 bits wrap
        {R"({"b":5})", 0},
    };
    for (const auto& c : cases) {
        CkJsonObject json;
        json.put_Utf8(true);
        ASSERT_TRUE(json.Load((std::string(R"({"n":)") + c.value + "}").c_str()));
        EXPECT_EQ(c.expected, json.IntOf("n")) << c.value;
        EXPECT_EQ(0, json.IntOf("missing"));
    }
}

TEST(CkJsonObjectTest, LastErrorTextAccountsForTheLastCall)
{
    const struct {
        void (*call)(CkJsonObject&);
        std::vector<const char*> expected;
    } cases[] = {
        {[](CkJsonObject& j) { j.Load(nullptr); }, {"Load", "Failed."}},
        {[](CkJsonObject& j) { j.LoadFile("/nonexistent/x.json"); }, {"LoadFile", "Failed."}},
        {[](CkJsonObject& j) { j.StringOf("zz"); }, {"StringOf", "JSON member not found."}},
        {[](CkJsonObject& j) { j.HasMember("n.x"); },
         {"HasMember", "Value expected to be an object.", "JSON path syntax error.."}},
        {[](CkJsonObject& j) { j.IntOf("n\tx"); },
         {"IntOf", "Expected a '.' or '[' char.", "JSON path syntax error (2)."}},
    };
    for (const auto& c : cases) {
        CkJsonObject json;
        ASSERT_TRUE(json.Load(R"({"n":1,"o":{}})"));
        c.call(json);
        const std::string log = json.lastErrorText();
        for (const char* text : c.expected)
            EXPECT_NE(std::string::npos, log.find(text)) << text << "\n" << log;
    }
}

TEST(CkJsonObjectTest, LoadFileKeepsTheDocumentWhenTheFileIsMissing)
{
    const std::string path = ::testing::TempDir() + "CkJsonObjectTest.json";
    const auto write = [&](const std::string& bytes) {
        std::ofstream(path, std::ios::binary).write(bytes.data(), static_cast<long>(bytes.size()));
    };
    CkJsonObject json;
    json.put_Utf8(true);
    write("\xEF\xBB\xBF{\"port\":\"7\",\r\n\"name\":\"NEW6210\"}");
    ASSERT_TRUE(json.LoadFile(path.c_str()));
    EXPECT_EQ(7, json.IntOf("port"));
    EXPECT_FALSE(json.LoadFile((path + ".missing").c_str()));
    EXPECT_EQ("NEW6210", Read(json, "name"));

    write(std::string("{\"a\":1,\0\"b\":2}", 14));  // a zero byte ends the text
    ASSERT_TRUE(json.LoadFile(path.c_str()));
    EXPECT_EQ(1, json.IntOf("a"));
    EXPECT_FALSE(json.HasMember("b"));
    std::remove(path.c_str());
}

}  // namespace
