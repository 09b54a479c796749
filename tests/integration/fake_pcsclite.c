/* A stand-in libpcsclite.so.1 that lacks SCardTransmit, for the failure path of ReaderSelect.
 * Each function answers a value of its own that the virtual reader never gives, so a caller
 * can tell whether the call reached it or our replacement. The bodies are long enough that a
 * jump written over their entry stays inside them. */
#include <string.h>

typedef long LONG;
typedef unsigned long DWORD;

static volatile long g_calls;

static LONG Answer(long tag)
{
    g_calls += tag;
    return 0x7E000000L + tag;
}

LONG SCardEstablishContext(DWORD scope, const void* reserved1, const void* reserved2,
                           LONG* context)
{
    (void)scope, (void)reserved1, (void)reserved2;
    *context = 0x7777;
    return Answer(1);
}

LONG SCardListReaders(LONG context, const char* groups, char* readers, DWORD* length)
{
    (void)context, (void)groups;
    if (readers != NULL)
        strcpy(readers, "Fake");
    *length = 99;
    return Answer(2);
}

LONG SCardConnect(LONG context, const char* reader, DWORD share, DWORD protocols, LONG* card,
                  DWORD* protocol)
{
    (void)context, (void)reader, (void)share, (void)protocols;
    *card = 0x7777;
    *protocol = 2;
    return Answer(3);
}

LONG SCardStatus(LONG card, char* names, DWORD* namesLength, DWORD* state, DWORD* protocol,
                 unsigned char* atr, DWORD* atrLength)
{
    (void)card, (void)names, (void)namesLength, (void)atr;
    *state = 0x7777;
    *protocol = 2;
    *atrLength = 0;
    return Answer(4);
}

LONG SCardDisconnect(LONG card, DWORD disposition)
{
    (void)card, (void)disposition;
    return Answer(5);
}
