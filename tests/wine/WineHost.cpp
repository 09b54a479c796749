// A small Windows host for Varnik.dll, run under Wine against the terminal simulator. It loads
// the library by path as a point-of-sale application would, resolves the exports by name and
// runs the named scenarios in order.
//
//   wine_host.exe <path of Varnik.dll> <COM number> [name=value ...] <scenario> [<scenario> ...]
//
// Settings (name=value) may stand anywhere among the scenarios:
//   version=TEXT   the version text the simulator answers with; "version" checks it when given
//   stripe=TEXT    the simulator's --stripe; "swipe" works out the track text it must give
//   photo=N        the size of the simulator's ID card photo; "thaiid" needs it for mode 2
//   file=PATH      the file (with forward slashes) that "upload" writes through PosExec
//
// Prints one line per step and "PASS <scenario>" or "FAIL <scenario>: why"; the exit code is 0
// only if every scenario passed (2 for a usage or load error).
#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "HostSupport.h"

namespace {

using PosSelectFn = decltype(&::PosSelect);
using ReadFn = decltype(&::getVersion);  // MsreRead's type as well
using ThaiIDReadFn = decltype(&::ThaiIDRead);
using TransmitFn = decltype(&::SCardTransmit);

// The library copies whole replies into caller buffers; make ours larger than its receive
// buffer so that no reply can overrun it. Filled with g_fill before a call whose reach counts.
char g_out[256 * 1024];
constexpr char g_fill = 0x55;

// True if the 64 bytes of g_out from `from` on still hold the fill.
bool Untouched(size_t from)
{
    return std::string(g_out + from, 64) == std::string(64, g_fill);
}

// The simulator's default card: its citizen number and, in UTF-8, the first name สมชาย.
const char g_citizenNumber[] = "1234567890121";
const char g_thaiFirstName[] = "\xE0\xB8\xAA\xE0\xB8\xA1\xE0\xB8\x8A\xE0\xB8\xB2\xE0\xB8\xA2";

// Probe through PosCheckPort and PosSelect, then read the terminal's version text.
void RunVersion(Host& host)
{
    auto select = host.Get<PosSelectFn>("PosSelect");
    auto version = host.Get<ReadFn>("getVersion");
    host.CheckPort();
    int result = select();
    Say("PosSelect() = %d", result);
    Check(result == 0, "PosSelect did not give 0");

    std::memset(g_out, g_fill, sizeof g_out);
    result = version(g_out);
    const size_t length = strnlen(g_out, sizeof g_out);
    Say("getVersion() = %d, out \"%.*s\" (%d bytes)", result, static_cast<int>(length), g_out,
        static_cast<int>(length));
    Check(length < sizeof g_out, "getVersion left out unterminated");
    Check(result == static_cast<int>(length), "getVersion's result is not the length of its text");
    const std::string expected = host.Setting("version");
    Check(expected.empty() || expected == g_out, "version text differs from \"" + expected + "\"");
    Check(length != 0, "empty version text");
}

// --- cancel through a window message ---------------------------------------------------

// Reads into g_out with a cancel posted to a hidden window before: the library's wait
// dispatches it and one CAN goes out; the simulator (run with --hold 3B or --swipe-wait)
// answers CAN, which ends the wait. Gives the read's result.
int ReadCancelled(Host& host, const char* readName, const char* cancelName)
{
    auto read = host.Get<ReadFn>(readName);
    CancelWindow window(host.Get<PosCancelFn>(cancelName));
    host.CheckPort();  // the probe's own loop pumps messages too: post only once it is over
    window.Post();
    std::memset(g_out, 0, sizeof g_out);
    const int result = read(g_out);
    Say("%s() = %d, out %s; %s ran %d time(s) and gave %d", readName, result,
        Hex(g_out, strnlen(g_out, sizeof g_out)).c_str(), cancelName, CancelWindow::calls,
        CancelWindow::result);
    window.CheckCalledOnce();
    return result;
}

void RunCancel(Host& host)
{
    ReadCancelled(host, "getVersion", "PosCancel");
    Check(g_out[0] == 0x18, "the reply was not the terminal's CAN");
}

// A swipe that nobody makes: the terminal's CAN comes back as the text.
void RunSwipeCancel(Host& host)
{
    // A one-byte answer has no fields to render and reaches the caller as it came.
    Check(ReadCancelled(host, "MsreRead", "MsreCancel") == 1 && g_out[0] == 0x18 && g_out[1] == 0,
          "the terminal's CAN did not come back as a one-byte text");
}

// A window message that keeps the thread busy while the terminal answers: the reply that
// arrives during the dispatch is read whole as soon as the handler returns.
int VARNIK_CALL BusyHandler()
{
    Sleep(200);
    return 0;
}

void RunBusyMessage(Host& host)
{
    CancelWindow window(BusyHandler);
    host.CheckPort();
    window.Post();
    std::memset(g_out, 0, sizeof g_out);
    const int result = host.Get<ReadFn>("getVersion")(g_out);
    Say("getVersion() = %d, out \"%s\"; the message ran %d time(s)", result, g_out,
        CancelWindow::calls);
    window.CheckCalledOnce();
    Check(host.Setting("version") == g_out, "the reply that came during the dispatch was not read whole");
}

// --- the card slot as the PC/SC reader --------------------------------------------------

// One APDU through `transmit`; a T=0 "61 xx" is followed by GET RESPONSE through the import.
std::vector<BYTE> Exchange(TransmitFn transmit, SCARDHANDLE card, const std::vector<BYTE>& command)
{
    BYTE reply[300];
    DWORD length = sizeof reply;
    const LONG result = transmit(card, SCARD_PCI_T0, command.data(),
                                 static_cast<DWORD>(command.size()), nullptr, reply, &length);
    Say("SCardTransmit(%s) = 0x%lX, %s", Hex(command.data(), command.size()).c_str(), result,
        Hex(reply, std::min<DWORD>(length, sizeof reply)).c_str());
    Check(result == SCARD_S_SUCCESS && length >= 2 && length <= sizeof reply,
          "SCardTransmit failed");
    if (reply[length - 2] == 0x61)
        return Exchange(::SCardTransmit, card, {0x00, 0xC0, 0x00, 0x00, reply[length - 1]});
    return std::vector<BYTE>(reply, reply + length);
}

// ReaderSelect hooks winscard.dll in this process. SCardTransmit is bound twice before it:
// through the import table and by GetProcAddress; both must reach the terminal afterwards.
void RunPcsc(Host& host)
{
    auto readerSelect = host.Get<ReaderSelectFn>("ReaderSelect");
    auto transmitEarly = Resolve<TransmitFn>(GetModuleHandleA("winscard.dll"), "SCardTransmit");
    host.CheckPort();
    for (int i = 0; i < 2; ++i) {
        const int result = readerSelect();
        Say("ReaderSelect() = %d", result);
        Check(result == 0, "ReaderSelect did not give 0");
    }
    const ReaderFunctions imports = {SCardEstablishContext, SCardStatusA, SCardListReadersA,
                                     SCardDisconnect, SCardConnectA};
    CheckVirtualReader(CallReader(imports, [&](const ReaderAnswers& a) {
        LPSTR allocated = nullptr;
        DWORD count = SCARD_AUTOALLOCATE;
        const LONG status =
            SCardListReadersA(a.context, nullptr, reinterpret_cast<LPSTR>(&allocated), &count);
        Say("SCardListReadersA(SCARD_AUTOALLOCATE) = 0x%lX", status);
        Check(status == static_cast<LONG>(SCARD_E_INVALID_PARAMETER) && allocated == nullptr,
              "SCARD_AUTOALLOCATE was not refused");

        Exchange(transmitEarly, a.card,
                 {0x00, 0xA4, 0x04, 0x00, 0x08, 0xA0, 0x00, 0x00, 0x00, 0x54, 0x48, 0x00, 0x01});
        const auto answer =
            Exchange(transmitEarly, a.card, {0x80, 0xB0, 0x00, 0x04, 0x02, 0x00, 0x0D});
        const std::string citizen(answer.begin(), answer.end() - 2);
        Say("citizen number \"%s\"", citizen.c_str());
        Check(citizen == g_citizenNumber && answer[answer.size() - 2] == 0x90,
              "the citizen number did not come back");
    }));
}

// --- the stripe reader ------------------------------------------------------------------

// One field of the terminal's answer in track notation: B, the field with ':'..'?' as 'A'..'F',
// F, and the XOR of its hex digits as one upper-case hex digit; an empty field stays empty.
// Worked out apart from the library's code. Any other character would stop the library at a
// message box, so a stripe with one is refused.
std::string TrackNotation(const std::string& field)
{
    static const char digits[] = "0123456789ABCDEF";
    if (field.empty())
        return field;
    std::string track = "B";
    int check = 0;
    for (char c : field) {
        if (c >= ':' && c <= '?')
            c = static_cast<char>('A' + (c - ':'));
        const char* digit = c == '\0' ? nullptr : std::strchr(digits, c);
        Check(digit != nullptr,
              "stripe field \"" + field + "\" is not all hex digits and ':'..'?'");
        check ^= static_cast<int>(digit - digits);
        track += c;
    }
    return track + "F" + digits[check];
}

// MsreRead's text for the answer "track1|track2|text": the two tracks in track notation, a
// non-empty third field in place of the second, joined by '|'.
std::string ExpectedTracks(const std::string& stripe)
{
    std::vector<std::string> fields(1);
    for (char c : stripe) {
        if (c == '|')
            fields.emplace_back();
        else
            fields.back() += c;
    }
    Check(fields.size() >= 3, "stripe=" + stripe + " has not the three fields track1|track2|text");
    const std::string second = TrackNotation(fields[1]);  // refused even where text replaces it
    return TrackNotation(fields[0]) + "|" + (fields[2].empty() ? second : fields[2]);
}

// One swipe of the simulator's stripe (the stripe= setting): the caller's buffer gets the
// track text and its NUL, nothing past what the raw answer and the text cover.
void RunSwipe(Host& host)
{
    auto msreRead = host.Get<ReadFn>("MsreRead");
    const std::string stripe = host.Setting("stripe");
    const std::string expected = ExpectedTracks(stripe);
    host.CheckPort();

    std::memset(g_out, g_fill, sizeof g_out);
    const int result = msreRead(g_out);
    Say("MsreRead() = %d, out \"%.*s\"; expected \"%s\"", result,
        static_cast<int>(strnlen(g_out, sizeof g_out)), g_out, expected.c_str());
    Check(result == static_cast<int>(expected.size()),
          "MsreRead's result is not the length of the track text");
    Check(std::memcmp(g_out, expected.c_str(), expected.size() + 1) == 0,
          "out is not the track text with its NUL");
    // The answer went in first with its own NUL; past that and the track text nothing changes.
    Check(Untouched(std::max(stripe.size(), expected.size()) + 1),
          "MsreRead wrote past the answer and the track text");
}

// --- the Thai ID card ---------------------------------------------------------------------

// The text form back in TIS-620; it must be well-formed UTF-8 of ASCII and Thai letters
// (U+0E01..U+0E5B, the only characters the conversion makes).
std::string Utf8ThaiToTis620(const std::string& text)
{
    std::string tis620;
    for (size_t i = 0; i < text.size(); ++i) {
        const unsigned char lead = static_cast<unsigned char>(text[i]);
        if (lead < 0x80) {
            tis620 += static_cast<char>(lead);
            continue;
        }
        // E0 leads the three-byte forms of U+0800..U+0FFF; its own four bits are 0.
        unsigned codePoint = 0;
        if (lead == 0xE0 && i + 2 < text.size() && (text[i + 1] & 0xC0) == 0x80 &&
            (text[i + 2] & 0xC0) == 0x80)
            codePoint = static_cast<unsigned>(text[i + 1] & 0x3F) << 6 | (text[i + 2] & 0x3F);
        Check(codePoint >= 0x0E01 && codePoint <= 0x0E5B,
              "byte " + std::to_string(i) + " of the text is not a Thai letter in UTF-8");
        tis620 += static_cast<char>(codePoint - 0x0D60);
        i += 2;
    }
    return tis620;
}

// The card read in text form (mode 0) and as the binary block (mode 2). The block is the
// TIS-620 record that mode 0 gives as UTF-8, then the photo (photo= bytes, a JPEG).
void RunThaiId(Host& host)
{
    auto thaiIdRead = host.Get<ThaiIDReadFn>("ThaiIDRead");
    const int photo = std::atoi(host.Setting("photo").c_str());
    Check(photo >= 4, "photo= must give the size of the simulator's photo");
    host.CheckPort();

    std::memset(g_out, g_fill, sizeof g_out);
    int result = thaiIdRead(g_out, 0);
    const size_t length = strnlen(g_out, sizeof g_out);
    Say("ThaiIDRead(out, 0) = %d, out %d bytes, begins \"%.14s\"", result,
        static_cast<int>(length), g_out);
    Check(length < sizeof g_out, "ThaiIDRead left the text unterminated");
    Check(result == static_cast<int>(length) && length != 0,
          "ThaiIDRead's result is not the length of its text");
    const std::string text(g_out, length);
    Check(text.compare(0, sizeof g_citizenNumber, std::string(g_citizenNumber) + "|") == 0,
          std::string("the text does not begin with ") + g_citizenNumber + "|");
    Check(text.find(g_thaiFirstName) != std::string::npos,
          "the text has no UTF-8 of the Thai first name");
    const std::string record = Utf8ThaiToTis620(text);

    std::memset(g_out, g_fill, sizeof g_out);
    result = thaiIdRead(g_out, 2);
    Say("ThaiIDRead(out, 2) = %d, the record %d bytes and the photo %d", result,
        static_cast<int>(record.size()), photo);
    Check(result == static_cast<int>(record.size()) + photo,
          "ThaiIDRead's result is not the length of the block");
    Check(std::memcmp(g_out, record.data(), record.size()) == 0,
          "the block does not begin with the TIS-620 record");
    const unsigned char* jpeg = reinterpret_cast<unsigned char*>(g_out) + record.size();
    Check(jpeg[0] == 0xFF && jpeg[1] == 0xD8 && jpeg[photo - 2] == 0xFF && jpeg[photo - 1] == 0xD9,
          "the photo of the block is not a whole JPEG (FF D8 .. FF D9)");
    // The length word stays behind and no terminator follows the block.
    Check(Untouched(static_cast<size_t>(result)), "ThaiIDRead wrote past the block");
}

// PosExec's "write" of the file= file; the run script checks what the terminal stored.
void RunUpload(Host& host)
{
    auto exec = host.Get<decltype(&::PosExec)>("PosExec");
    host.CheckPort();
    const std::string command = "{\"format\":\"FILE\",\"cmd\":\"write\",\"file\":\"" + host.Setting("file") + "\"}";
    const int result = exec(g_out, command.c_str());
    Say("PosExec(%s) = %d", command.c_str(), result);
    Check(result == 0, "the upload did not give 0");
}

}  // namespace

int main(int argc, char** argv)
{
    return HostMain(argc, argv, "wine_host.exe",
                    {{"version", RunVersion}, {"cancel", RunCancel}, {"pcsc", RunPcsc},
                     {"swipe", RunSwipe}, {"swipecancel", RunSwipeCancel}, {"thaiid", RunThaiId},
                     {"busymessage", RunBusyMessage}, {"upload", RunUpload}});
}
