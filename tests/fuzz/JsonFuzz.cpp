// The JSON document. Whatever the bytes, loading and reading must neither crash nor write out
// of bounds, and a reload (copies) must read exactly as a first load (spans).
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

#include "support/CkJsonObject.h"

namespace {

const char* const Paths[] = {"a",     "b",    "format", "a.b",  "\"a\"", "a[0]",
                             "a[1].b", ".a",  " a",     "",     "a\\",   "\"a\\"};

void Compare(CkJsonObject& first, CkJsonObject& reloaded, const char* path)
{
    const bool same = first.HasMember(path) == reloaded.HasMember(path) &&
                      first.IntOf(path) == reloaded.IntOf(path);
    const char* left = first.StringOf(path);
    const char* right = reloaded.StringOf(path);
    if (!same || (left == nullptr) != (right == nullptr) || (left != nullptr && std::strcmp(left, right) != 0))
        std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    // Load takes a zero-terminated text, so a zero byte ends it.
    std::string text(reinterpret_cast<const char*>(data), size);

    CkJsonObject first;
    first.put_Utf8(true);
    first.Load(text.c_str());

    CkJsonObject reloaded;
    reloaded.put_Utf8(true);
    reloaded.Clear();
    reloaded.Load(text.c_str());

    for (const char* path : Paths)
        Compare(first, reloaded, path);
    // The first line of the input, when short, is one more path to ask for.
    size_t end = text.find('\n');
    if (end != std::string::npos && end < 64)
        Compare(first, reloaded, text.substr(0, end).c_str());
    first.lastErrorText();
    return 0;
}
