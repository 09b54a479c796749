// PosExec's interpreter on a document and a terminal that both say anything: the document is
// the input up to its first NUL, the terminal's script the rest. `out` is exactly as large as
// the header promises. Documents that would upload host files are left out: their paths come
// from the document and could name anything on this machine.
#include <cctype>
#include <cstdint>
#include <memory>
#include <string>

#include "FuzzPort.h"
#include "commands/Commands.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    static FuzzPort port;
    const std::string input(reinterpret_cast<const char*>(data), size);
    const size_t end = std::min(input.find('\0'), input.size());
    const std::string document = input.substr(0, end);
    std::string lower = document;
    for (char& c : lower)
        c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    if (lower.find("upload") != std::string::npos || lower.find("write") != std::string::npos ||
        lower.find('\\') != std::string::npos)
        return 0;
    std::unique_ptr<char[]> out(new char[204800]);
    port.Play(end < size ? input.substr(end + 1) : std::string(), [&](size_t) {
        RunCommand(out.get(), document.c_str());
    }, true);
    return 0;
}
