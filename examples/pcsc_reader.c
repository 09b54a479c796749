/* The terminal's card slot as this process's PC/SC reader: after ReaderSelect, plain
 * pcsc-lite calls reach the terminal's slot as the reader "NEW6210 Reader Card".
 * Connects, prints the ATR and selects the Thai ID application.
 *
 * Build: cc pcsc_reader.c $(pkg-config --cflags --libs varnik libpcsclite) -o pcsc_reader
 */
#include <stdio.h>
#include <string.h>
#include <winscard.h>
#include <varnik.h>

int main(void)
{
    int selected = ReaderSelect();
    if (selected != 0) {
        fprintf(stderr, "ReaderSelect: %d\n", selected);
        return 1;
    }
    SCARDCONTEXT context;
    LONG rv = SCardEstablishContext(SCARD_SCOPE_SYSTEM, NULL, NULL, &context);
    if (rv != SCARD_S_SUCCESS) {
        fprintf(stderr, "SCardEstablishContext: %s\n", pcsc_stringify_error(rv));
        return 1;
    }
    char readers[1024];
    DWORD size = sizeof readers;
    rv = SCardListReaders(context, NULL, readers, &size);
    if (rv != SCARD_S_SUCCESS) {
        fprintf(stderr, "SCardListReaders: %s\n", pcsc_stringify_error(rv));
        return 1;
    }
    printf("reader: %s\n", readers);

    SCARDHANDLE card;
    DWORD protocol;
    rv = SCardConnect(context, readers, SCARD_SHARE_SHARED, SCARD_PROTOCOL_T0 | SCARD_PROTOCOL_T1,
                      &card, &protocol);
    if (rv != SCARD_S_SUCCESS) {
        fprintf(stderr, "SCardConnect: %s\n", pcsc_stringify_error(rv));
        return 1;
    }
    BYTE atr[MAX_ATR_SIZE];
    DWORD atr_length = sizeof atr, state, name_length = 0;
    if (SCardStatus(card, NULL, &name_length, &state, &protocol, atr, &atr_length) == SCARD_S_SUCCESS) {
        printf("ATR:");
        for (DWORD i = 0; i < atr_length; ++i)
            printf(" %02X", atr[i]);
        printf("\n");
    }
    static const BYTE select_thai_id[] = {0x00, 0xA4, 0x04, 0x00, 0x08, 0xA0, 0x00,
                                          0x00, 0x00, 0x54, 0x48, 0x00, 0x01};
    BYTE answer[258];
    DWORD answer_length = sizeof answer;
    rv = SCardTransmit(card, SCARD_PCI_T0, select_thai_id, sizeof select_thai_id, NULL, answer,
                       &answer_length);
    if (rv != SCARD_S_SUCCESS || answer_length < 2) {
        fprintf(stderr, "SCardTransmit: %s\n", pcsc_stringify_error(rv));
        return 1;
    }
    /* 61 xx: the card has xx bytes to give with GET RESPONSE; 90 00: done. */
    printf("SELECT Thai ID: %02X %02X\n", answer[answer_length - 2], answer[answer_length - 1]);
    SCardDisconnect(card, SCARD_LEAVE_CARD);
    SCardReleaseContext(context);
    return 0;
}
