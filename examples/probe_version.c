/* Probe the terminal and print its version.
 *
 *   probe_version        uses the port in varnik.json
 *   probe_version 7      tries COM7 and, when the terminal answers, remembers it there
 *
 * Build: cc probe_version.c $(pkg-config --cflags --libs varnik) -o probe_version
 */
#include <stdio.h>
#include <stdlib.h>
#include <varnik.h>

/* getVersion writes at most 204800 bytes with its NUL. */
static char version[204800];

int main(int argc, char** argv)
{
    int result = argc > 1 ? PosCheckPort(atoi(argv[1])) : PosSelect();
    if (result == 110) {
        fprintf(stderr, "no port configured, or it would not open (110)\n");
        return 1;
    }
    if (result == 1538) {
        fprintf(stderr, "no terminal answered on the port (1538)\n");
        return 1;
    }
    if (result != 0) {
        fprintf(stderr, "probe failed: %d\n", result);
        return 1;
    }
    /* A text export returns the length: 110 may be a length too, so look at the buffer. */
    version[0] = '\0';
    int length = getVersion(version);
    if (length < 0 || (length == 110 && version[0] == '\0')) {
        fprintf(stderr, "getVersion failed: %d\n", length);
        return 1;
    }
    printf("terminal: %s\n", version);
    return 0;
}
