/* Run one terminal command through PosExec and print its result and text.
 *
 *   posexec VERSION
 *   posexec '{"format":"BEEP"}'
 *   posexec '{"format":"FILE","cmd":"list"}'
 *   posexec '{"format":"SCREEN","slide":"welcome"}'
 *   posexec welcome.json          a document in <library folder>/libvarnik/json/
 *
 * Build: cc posexec.c $(pkg-config --cflags --libs varnik) -o posexec
 */
#include <stdio.h>
#include <varnik.h>

/* PosExec writes at most 204800 bytes with its NUL. */
static char out[204800];

int main(int argc, char** argv)
{
    if (argc != 2) {
        fprintf(stderr, "usage: posexec VERSION|JSON|DOCUMENT\n");
        return 2;
    }
    out[0] = '\0';
    int result = PosExec(out, argv[1]);
    printf("result %d\n", result);
    if (out[0])
        printf("%s\n", out);
    /* 1 for VERSION, 0 (or 5) done; 110 no port; negative: the command failed. */
    return result == 0 || result == 1 || result == 5 ? 0 : 1;
}
