// A Windows host for the failure path of ReaderSelect: the winscard.dll beside it is the tests'
// stand-in without SCardTransmit (fake_winscard.c). Run under Wine against the terminal
// simulator by run-wine-tests.sh.
//
//   wine_notransmit_host.exe <path of Varnik.dll> <COM number> notransmit
//
// Checks, in this order: nothing has loaded winscard.dll yet (so neither this program nor the
// library imports it); LoadLibraryA finds the stand-in, whose five functions answer their own
// values; ReaderSelect shows the one notice "Not Found SCardTransmit" and gives -1; the five
// functions, called through the same pointers, now answer as the virtual reader; once the
// library is unloaded they answer as the stand-in again.
//
// The notice is a MessageBoxA, which waits for a person: a hook presses its OK.
#include <cstring>

#include "HostSupport.h"

namespace {

// Every one of the five reached the stand-in: it answers 0x1111 and up, in the order of its
// source, and 0x7777 as handle and state.
void CheckStandIn(const ReaderAnswers& a)
{
    Check(a.establish == 0x1111 && a.context == 0x7777,
          "SCardEstablishContext is not the stand-in's");
    Check(a.list == 0x1113 && a.readersCount == 99 && std::strcmp(a.readers, "Fake") == 0,
          "SCardListReadersA is not the stand-in's");
    Check(a.connect == 0x1115 && a.card == 0x7777, "SCardConnectA is not the stand-in's");
    Check(a.status == 0x1112 && a.state == 0x7777, "SCardStatusA is not the stand-in's");
    Check(a.disconnect == 0x1114, "SCardDisconnect is not the stand-in's");
}

void RunNoTransmit(Host& host)
{
    auto readerSelect = host.Get<ReaderSelectFn>("ReaderSelect");
    Check(GetModuleHandleA("winscard.dll") == nullptr,
          "winscard.dll was loaded before anyone asked for it");
    HMODULE winscard = LoadLibraryA("winscard.dll");
    Check(winscard != nullptr,
          "LoadLibraryA(winscard.dll) failed: error " + std::to_string(GetLastError()));
    char path[MAX_PATH] = {};
    GetModuleFileNameA(winscard, path, sizeof path);
    Say("winscard.dll is %s", path);
    Check(GetProcAddress(winscard, "SCardTransmit") == nullptr,
          "this winscard.dll has SCardTransmit: it is not the stand-in");
    const ReaderFunctions functions = {
        Resolve<decltype(ReaderFunctions::establish)>(winscard, "SCardEstablishContext"),
        Resolve<decltype(ReaderFunctions::status)>(winscard, "SCardStatusA"),
        Resolve<decltype(ReaderFunctions::listReaders)>(winscard, "SCardListReadersA"),
        Resolve<decltype(ReaderFunctions::disconnect)>(winscard, "SCardDisconnect"),
        Resolve<decltype(ReaderFunctions::connect)>(winscard, "SCardConnectA")};

    Say("before ReaderSelect:");
    CheckStandIn(CallReader(functions));
    host.CheckPort();
    int result;
    {
        NoticeAnswerer answerer;
        result = readerSelect();
    }
    Say("ReaderSelect() = %d", result);
    Check(result == -1, "ReaderSelect did not give -1");
    Check(NoticeAnswerer::notices == std::vector<std::string>{"Not Found SCardTransmit"},
          "there was not the one notice \"Not Found SCardTransmit\"");
    Check(GetModuleHandleA("winscard.dll") == winscard, "the library hooked another winscard.dll");
    Say("after ReaderSelect:");
    CheckVirtualReader(CallReader(functions));

    // Unloading the library puts the stand-in's own code back.
    FreeLibrary(host.library);
    host.library = nullptr;
    Say("after FreeLibrary of the library:");
    CheckStandIn(CallReader(functions));
}

}  // namespace

int main(int argc, char** argv)
{
    return HostMain(argc, argv, "wine_notransmit_host.exe", {{"notransmit", RunNoTransmit}});
}
