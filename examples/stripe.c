/* Wait for a card to be swiped and print its tracks.
 *
 * MsreRead gives the tracks as "B<track 1>...|B<track 2>...|..." in the terminal's nibble
 * notation, or the terminal's answer as it came (e.g. "READ ERROR" for a bad swipe).
 *
 * Build: cc stripe.c $(pkg-config --cflags --libs varnik) -o stripe
 */
#include <stdio.h>
#include <string.h>
#include <varnik.h>

/* MsreRead writes at most 204810 bytes with its NUL. */
static char tracks[204810];

int main(void)
{
    printf("swipe a card...\n");
    fflush(stdout);
    tracks[0] = '\0';
    int length = MsreRead(tracks);
    if (length == 110 && tracks[0] == '\0') {
        fprintf(stderr, "no port configured, or it would not open (110)\n");
        return 1;
    }
    if (length < 0) {
        fprintf(stderr, "MsreRead failed: %d\n", length);
        return 1;
    }
    int track = 1;
    for (char* part = strtok(tracks, "|"); part; part = strtok(NULL, "|"))
        printf("track %d: %s\n", track++, part);
    return 0;
}
