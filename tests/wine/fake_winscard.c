/* A stand-in winscard.dll that lacks SCardTransmit, for the failure path of ReaderSelect on
 * Windows. Each function answers 0x1111 plus a number of its own and fills its outputs with
 * values the virtual reader never gives, so a caller can tell whether a call reached it or our
 * replacement. Built at -O0, each body is longer than the 14-byte jump written over its entry. */
#include <string.h>
#include <windows.h>

#define FAKE_EXPORT __declspec(dllexport)

typedef ULONG_PTR FakeHandle;

static volatile LONG g_calls;

static LONG Answer(LONG tag)
{
    g_calls += tag;
    return 0x1111 + tag - 1;
}

FAKE_EXPORT LONG WINAPI SCardEstablishContext(DWORD scope, const void* reserved1,
                                              const void* reserved2, FakeHandle* context)
{
    (void)scope, (void)reserved1, (void)reserved2;
    *context = 0x7777;
    return Answer(1);
}

FAKE_EXPORT LONG WINAPI SCardStatusA(FakeHandle card, char* names, DWORD* namesLength,
                                     DWORD* state, DWORD* protocol, BYTE* atr, DWORD* atrLength)
{
    (void)card, (void)names, (void)namesLength, (void)atr;
    *state = 0x7777;
    *protocol = 2;
    *atrLength = 0;
    return Answer(2);
}

FAKE_EXPORT LONG WINAPI SCardListReadersA(FakeHandle context, const char* groups, char* readers,
                                          DWORD* length)
{
    (void)context, (void)groups;
    if (readers != NULL)
        strcpy(readers, "Fake");
    *length = 99;
    return Answer(3);
}

FAKE_EXPORT LONG WINAPI SCardDisconnect(FakeHandle card, DWORD disposition)
{
    (void)card, (void)disposition;
    return Answer(4);
}

FAKE_EXPORT LONG WINAPI SCardConnectA(FakeHandle context, const char* reader, DWORD share,
                                      DWORD protocols, FakeHandle* card, DWORD* protocol)
{
    (void)context, (void)reader, (void)share, (void)protocols;
    *card = 0x7777;
    *protocol = 2;
    return Answer(5);
}
