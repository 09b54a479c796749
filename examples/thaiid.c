/* Read a Thai national ID card and print its fields; with a file name, save the photo too.
 *
 *   thaiid               the text form (mode 0): the record in UTF-8
 *   thaiid photo.jpg     the binary form (mode 2): the record in TIS-620, then the JPEG
 *
 * The record is nine fields apart by '|':
 *
 *   citizen id|Thai name|English name|birth date|sex|issuer|issue date|expiry date|address
 *
 * The citizen id has 13 digits. Names are "title#first#middle#last" (empty parts stay empty),
 * the address is its parts apart by '#'. Dates are YYYYMMDD in the Buddhist era (subtract 543
 * for the common era); an expiry of 99999999 means valid for life. Sex is "1" male, "2" female.
 * In the binary form the record's Thai text is TIS-620, and the photo starts at FF D8 FF.
 *
 * Build: cc thaiid.c $(pkg-config --cflags --libs varnik) -o thaiid
 */
#include <stdio.h>
#include <string.h>
#include <varnik.h>

/* Text form: at most 3 x 204799 + 1 bytes (each TIS-620 byte becomes up to 3 UTF-8 bytes);
 * binary form: at most 204792 bytes. */
static char out[3 * 204799 + 1];
/* The binary form's record, turned into UTF-8. */
static char record_utf8[3 * 204799 + 1];

enum { CitizenId, ThaiName, EnglishName, BirthDate, Sex, Issuer, IssueDate, ExpiryDate, Address,
       FieldCount };
static const char* const labels[FieldCount] = {
    "Citizen id", "Thai name", "English name", "Birth date", "Sex",
    "Issuer", "Issue date", "Expiry date", "Address"};

/* Splits `record` in place at each '|'; false unless there are exactly nine fields and the
 * first has 13 characters. */
static int split_record(char* record, char* fields[FieldCount])
{
    int count = 0;
    char* start = record;
    for (char* p = record;; ++p) {
        if (*p == '|' || *p == '\0') {
            int last = *p == '\0';
            if (count == FieldCount)
                return 0;
            fields[count++] = start;
            *p = '\0';
            if (last)
                break;
            start = p + 1;
        }
    }
    return count == FieldCount && strlen(fields[CitizenId]) == 13;
}

/* Prints "title#first#middle#last" or an address's "a#b#c" as words apart by one blank. */
static void print_parts(const char* parts)
{
    int pending = 0;
    for (const char* p = parts; *p; ++p) {
        if (*p == '#' || *p == ' ') {
            pending = pending || p != parts;
            continue;
        }
        if (pending)
            putchar(' ');
        pending = 0;
        putchar(*p);
    }
}

/* TIS-620 to UTF-8: ASCII stays, 0xA1..0xFB are U+0E01..U+0E5B, anything else is dropped. */
static void tis620_to_utf8(const unsigned char* in, int length, char* utf8)
{
    for (int i = 0; i < length; ++i) {
        unsigned c = in[i];
        if (c < 0x80) {
            *utf8++ = (char)c;
        } else if ((c >= 0xA1 && c <= 0xDA) || (c >= 0xDF && c <= 0xFB)) {
            unsigned code = c + 0x0D60;
            *utf8++ = (char)0xE0;
            *utf8++ = (char)(0x80 | ((code >> 6) & 0x3F));
            *utf8++ = (char)(0x80 | (code & 0x3F));
        }
    }
    *utf8 = '\0';
}

static void print_date(const char* date)
{
    int y, m, d;
    if (strcmp(date, "99999999") == 0)
        printf("for life");
    else if (strlen(date) == 8 && sscanf(date, "%4d%2d%2d", &y, &m, &d) == 3)
        printf("%04d-%02d-%02d", y - 543, m, d);
    else
        printf("%s", date);
}

int main(int argc, char** argv)
{
    const char* photo_file = argc > 1 ? argv[1] : NULL;
    memset(out, 0, sizeof out);
    int length = ThaiIDRead(out, photo_file ? 2 : 0);
    if (length == 110 && out[0] == '\0') {
        fprintf(stderr, "no port configured, or it would not open (110)\n");
        return 1;
    }
    if (length <= 0) {
        fprintf(stderr, "ThaiIDRead failed: %d\n", length);
        return 1;
    }
    int record_length = length;
    if (photo_file) {
        /* The binary block: the record, then the JPEG from its FF D8 FF. */
        for (int i = 0; i + 2 < length; ++i) {
            if ((unsigned char)out[i] == 0xFF && (unsigned char)out[i + 1] == 0xD8 &&
                (unsigned char)out[i + 2] == 0xFF) {
                record_length = i;
                break;
            }
        }
        FILE* file = fopen(photo_file, "wb");
        if (!file || fwrite(out + record_length, 1, (size_t)(length - record_length), file) !=
                         (size_t)(length - record_length)) {
            fprintf(stderr, "cannot write %s\n", photo_file);
            return 1;
        }
        fclose(file);
        printf("Photo: %d bytes in %s\n", length - record_length, photo_file);
    }
    char* record = out;
    if (photo_file) {
        tis620_to_utf8((const unsigned char*)out, record_length, record_utf8);
        record = record_utf8;
    }

    char* fields[FieldCount];
    if (!split_record(record, fields)) {
        fprintf(stderr, "not a Thai ID record\n");
        return 1;
    }
    for (int i = 0; i < FieldCount; ++i) {
        printf("%-13s ", labels[i]);
        if (i == ThaiName || i == EnglishName || i == Address)
            print_parts(fields[i]);
        else if (i == BirthDate || i == IssueDate || i == ExpiryDate)
            print_date(fields[i]);
        else if (i == Sex)
            printf("%s", strcmp(fields[i], "1") == 0 ? "male" : strcmp(fields[i], "2") == 0 ? "female" : fields[i]);
        else
            printf("%s", fields[i]);
        putchar('\n');
    }
    return 0;
}
