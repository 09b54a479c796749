#include "CommandLine.h"

#include <cctype>
#include <climits>
#include <cstdlib>
#include <cstring>

namespace {

Invocation Fail(const std::string& error)
{
    Invocation invocation;
    invocation.action = Invocation::Error;
    invocation.error = error;
    return invocation;
}

bool IsHelpOption(const std::string& word)
{
    return word == "-h" || word == "--help";
}

} // namespace

Invocation ParseCommandLine(const std::vector<std::string>& words)
{
    Invocation invocation;
    size_t i = 0;
    bool wantsHelp = false;
    bool wantsVersion = false;
    for (; i < words.size(); ++i) {
        const std::string& word = words[i];
        if (word == "--lib") {
            if (i + 1 >= words.size())
                return Fail("--lib needs a path");
            invocation.libraryGiven = true;
            invocation.libraryPath = words[++i];
        } else if (word.compare(0, 6, "--lib=") == 0) {
            invocation.libraryGiven = true;
            invocation.libraryPath = word.substr(6);
        } else if (word == "--timeout" || word.compare(0, 10, "--timeout=") == 0) {
            std::string value;
            if (word.size() > 9)
                value = word.substr(10);
            else if (i + 1 < words.size())
                value = words[++i];
            if (!ParseInt32(value, invocation.timeoutSeconds) || invocation.timeoutSeconds < 0 ||
                invocation.timeoutSeconds > 86400)
                return Fail("--timeout needs whole seconds from 0 (no limit) to 86400");
        } else if (word == "--version") {
            wantsVersion = true;
        } else if (IsHelpOption(word)) {
            wantsHelp = true;
        } else if (word.size() > 1 && word[0] == '-') {
            return Fail("unknown option " + word);
        } else {
            break;
        }
    }
    if (invocation.libraryGiven && invocation.libraryPath.empty())
        return Fail("--lib needs a path");

    if (wantsVersion && !wantsHelp) {
        if (i < words.size())
            return Fail("--version takes no command");
        invocation.action = Invocation::Version;
        return invocation;
    }
    if (wantsHelp) {
        invocation.action = Invocation::Help;
        if (i < words.size() && !SameWord(words[i], "help"))
            invocation.helpTopic = words[i];
        return invocation;
    }
    if (i >= words.size())
        return Fail("no command given");

    if (SameWord(words[i], "help")) {
        if (words.size() - i > 2)
            return Fail("help takes at most one command");
        invocation.action = Invocation::Help;
        if (i + 1 < words.size())
            invocation.helpTopic = words[i + 1];
        return invocation;
    }

    if (words.size() - i == 2 && IsHelpOption(words[i + 1])) {
        invocation.action = Invocation::Help;
        invocation.helpTopic = words[i];
        return invocation;
    }
    invocation.command = words[i];
    invocation.args.assign(words.begin() + static_cast<std::ptrdiff_t>(i) + 1, words.end());
    invocation.action = Invocation::Run;
    return invocation;
}

std::vector<std::string> LibraryCandidates(const Invocation& invocation,
                                           const std::string& executableFolder,
                                           const char* fileName, const char* environmentValue)
{
    if (invocation.libraryGiven)
        return {invocation.libraryPath};
    std::vector<std::string> candidates;
    if (!executableFolder.empty())
        candidates.push_back(executableFolder + fileName);
    if (environmentValue && *environmentValue)
        candidates.push_back(environmentValue);
    return candidates;
}

bool ParseInt32(const std::string& text, int& value)
{
    size_t i = 0;
    bool negative = false;
    if (i < text.size() && (text[i] == '+' || text[i] == '-'))
        negative = text[i++] == '-';
    if (i >= text.size())
        return false;
    long long number = 0;
    for (; i < text.size(); ++i) {
        if (!std::isdigit(static_cast<unsigned char>(text[i])))
            return false;
        number = number * 10 + (text[i] - '0');
        if (number > static_cast<long long>(INT_MAX) + 1)
            return false;
    }
    if (negative)
        number = -number;
    if (number < INT_MIN || number > INT_MAX)
        return false;
    value = static_cast<int>(number);
    return true;
}

std::string ConfigFolderOf(const std::string& libraryPath)
{
    size_t separator = libraryPath.find_last_of("/\\");
    std::string folder =
        separator == std::string::npos ? std::string() : libraryPath.substr(0, separator + 1);
    return folder + "config/";
}

int PortFromConfigText(const std::string& json)
{
    const std::string key = "\"port\"";
    size_t at = json.find(key);
    if (at == std::string::npos)
        return 0;
    at += key.size();
    auto skipBlanks = [&] {
        while (at < json.size() && std::isspace(static_cast<unsigned char>(json[at])))
            ++at;
    };
    skipBlanks();
    if (at >= json.size() || json[at] != ':')
        return 0;
    ++at;
    skipBlanks();
    if (at < json.size() && json[at] == '"')
        ++at;   // {"port":"7"} reads as 7 in the library too
    size_t end = at;
    if (end < json.size() && json[end] == '-')
        ++end;
    while (end < json.size() && std::isdigit(static_cast<unsigned char>(json[end])))
        ++end;
    int port = 0;
    return ParseInt32(json.substr(at, end - at), port) ? port : 0;
}

bool SameWord(const std::string& a, const std::string& b)
{
    if (a.size() != b.size())
        return false;
    for (size_t i = 0; i < a.size(); ++i) {
        if (std::tolower(static_cast<unsigned char>(a[i])) !=
            std::tolower(static_cast<unsigned char>(b[i])))
            return false;
    }
    return true;
}

namespace {

class JsonReader {
public:
    explicit JsonReader(const std::string& text) : m_text(text) {}
    size_t at = 0;

    void Space()
    {
        while (at < m_text.size() && std::strchr(" \t\r\n", m_text[at]) && m_text[at] != '\0')
            ++at;
    }
    bool Take(char c)
    {
        Space();
        if (at >= m_text.size() || m_text[at] != c)
            return false;
        ++at;
        return true;
    }
    // A string's value with its escapes kept as they are; names and values compare plainly.
    bool String(std::string& value)
    {
        if (!Take('"'))
            return false;
        value.clear();
        while (at < m_text.size() && m_text[at] != '"') {
            unsigned char c = static_cast<unsigned char>(m_text[at]);
            if (c < 0x20)
                return false;
            if (c == '\\') {
                if (++at >= m_text.size() || !std::strchr("\"\\/bfnrtu", m_text[at]))
                    return false;
                if (m_text[at] == 'u') {
                    for (int i = 1; i <= 4; ++i)
                        if (at + i >= m_text.size() || !std::isxdigit(static_cast<unsigned char>(m_text[at + i])))
                            return false;
                    value += m_text.substr(at - 1, 6);
                    at += 5;
                    continue;
                }
                value += m_text[at] == '"' || m_text[at] == '\\' || m_text[at] == '/' ? m_text[at] : '?';
            } else {
                value += static_cast<char>(c);
            }
            ++at;
        }
        return Take('"');
    }
    bool Value(std::string* text, int depth)
    {
        Space();
        if (at >= m_text.size() || depth > 64)
            return false;
        char c = m_text[at];
        if (c == '"') {
            std::string value;
            if (!String(value))
                return false;
            if (text)
                *text = value;
            return true;
        }
        if (c == '{' || c == '[') {
            ++at;
            const char close = c == '{' ? '}' : ']';
            if (Take(close))
                return true;
            do {
                std::string name;
                if (c == '{' && (!String(name) || !Take(':')))
                    return false;
                if (!Value(nullptr, depth + 1))
                    return false;
            } while (Take(','));
            return Take(close);
        }
        for (const char* word : {"true", "false", "null"}) {
            if (m_text.compare(at, std::strlen(word), word) == 0) {
                at += std::strlen(word);
                return true;
            }
        }
        const size_t start = at;
        if (m_text[at] == '-')
            ++at;
        while (at < m_text.size() && std::strchr("0123456789.eE+-", m_text[at]) && m_text[at] != '\0')
            ++at;
        return at > start && std::isdigit(static_cast<unsigned char>(m_text[at - 1]));
    }

private:
    const std::string& m_text;
};

} // namespace

bool ParseJsonObject(const std::string& text, std::map<std::string, std::string>& members,
                     size_t& errorAt)
{
    JsonReader reader(text);
    members.clear();
    bool good = reader.Take('{');
    if (good && !reader.Take('}')) {
        do {
            std::string name, value;
            good = reader.String(name) && reader.Take(':');
            const size_t valueAt = reader.at;
            reader.Space();
            const bool isString = reader.at < text.size() && text[reader.at] == '"';
            reader.at = valueAt;
            good = good && reader.Value(&value, 1);
            if (good && isString)
                members[name] = value;
        } while (good && reader.Take(','));
        good = good && reader.Take('}');
    }
    reader.Space();
    good = good && reader.at == text.size();
    errorAt = good ? 0 : reader.at;
    return good;
}
