/* A till program built against the unpacked release through pkg-config: it remembers port N,
 * then prints the terminal's version, a stripe read and a PIN entry, one line each. */
#include <stdio.h>
#include <stdlib.h>
#include <varnik.h>

static char text[204816];

int main(int argc, char** argv)
{
    unsigned char pin[204800] = {0};
    int port = argc > 1 ? atoi(argv[1]) : 7;
    int result = PosCheckPort(port);
    printf("checkport %d\n", result);
    if (result != 0)
        return 1;
    getVersion(text);
    printf("version %s\n", text);
    printf("stripe %d %s\n", MsreRead(text), text);
    printf("pin %d", PinReadKey(pin));
    for (int i = 0; i < 8; ++i)
        printf(" %02X", pin[i]);
    printf("\n");
    return 0;
}
