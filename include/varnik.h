/* Varnik: driver library for the NEW6210 payment terminal (PIN pad, stripe and card reader).
 *
 * Every export returns a signed 32-bit result (see below). Output buffers belong to the caller
 * and carry no size: size them by the bounds given with each export. One call at a time;
 * PosCancel (or its aliases) may come in during a wait.
 *
 * A wait for the terminal has no time limit. PosCancel, PinCancel and MsreCancel, and only
 * these, may be called from another thread, from a window message that the waiting call
 * dispatches, from an APC, or from a POSIX signal handler: they take no lock and allocate
 * nothing. The waiting call then puts one CAN on the line and returns with the terminal's
 * answer. Their "Pos Cancel " log line is written by the next call that logs (the waiting
 * one, at once), in its place before the CAN. No other export is async-signal-safe.
 *
 * A port that the system reports gone (an unplugged adapter) ends a wait as silence would,
 * with nothing read; the port is closed and the next call opens it again.
 */
#ifndef VARNIK_H
#define VARNIK_H

#if defined(_WIN32)
#define VARNIK_CALL __stdcall
#else
#define VARNIK_CALL
#endif

#if defined(_WIN32) && !defined(VARNIK_BUILDING)
#define VARNIK_CLASS __declspec(dllimport)
#elif defined(_WIN32)
#define VARNIK_CLASS
#else
#define VARNIK_CLASS __attribute__((visibility("default")))
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* Results shared by the terminal exports:
 *     0     done (for the text exports: the length of the text, which may also be 0)
 *   110     no port is known, or it would not open: nothing was sent, no buffer touched
 *  1538     the terminal did not answer the probe (PosSelect and the calls built on it)
 *    -1     a null output buffer: nothing was sent, the port was not opened
 * A text length of 110 is told apart from the error only by the buffer, which an error leaves
 * as it was.
 *
 * Caller's buffers carry no size. The most bytes each export can write are given below; the
 * reply buffer holds 204800 bytes, and a terminal's answer never fills more of it than that.
 */

/* Terminal session */
/* Probes the terminal: 0, 110 or 1538. */
int VARNIK_CALL PosSelect(void);
int VARNIK_CALL PinSelect(void);                /* same routine as MsreSelect */
int VARNIK_CALL MsreSelect(void);
/* Probes the terminal on COM<port> (closing a port left open under another number first) and,
 * on 0, saves the number in config/varnik.json. 0, 110 or 1538. */
int VARNIK_CALL PosCheckPort(int port);
int VARNIK_CALL PinCheckPort(int port);         /* same routine as MsreCheckPort */
int VARNIK_CALL MsreCheckPort(int port);
/* Asks the waiting call to send the terminal one CAN; always 0. */
int VARNIK_CALL PosCancel(void);                /* same routine as PinCancel, MsreCancel */
int VARNIK_CALL PinCancel(void);
int VARNIK_CALL MsreCancel(void);
/* out: the terminal's version text and a NUL, at most 204800 bytes. Result: its length, 110,
 * or -1. */
int VARNIK_CALL getVersion(char* out);

/* Command scripts */
/* out: the command's text and a NUL, at most 204800 bytes. Result: 110; -1 for a null out;
 * else the command's own (README): 1 for VERSION, 0 or 5 done, -1 -2 -3 script and command
 * errors, -790 the port found closed. The port stays open. */
int VARNIK_CALL PosExec(char* out, const char* command);

/* PIN pad */
/* key: 16 bytes of master key in; the terminal's answer is written back over it, at most
 * 204797 bytes (a one-byte answer replaces key[0] alone). Result: 0, 110 or -1. */
int VARNIK_CALL PinLoadMK(unsigned char* key);
/* out: the PIN block as bytes, at most 64 bytes (out[16] is always a NUL). 0, 110 or -1. */
int VARNIK_CALL PinReadKey(unsigned char* out);
/* inOut: the prompt in (empty for the default); out, 9 bytes: 8 bytes of PIN block and a NUL.
 * 0, 110 or -1. A request beginning with '@' gets the terminal's text instead, at most 128
 * bytes with its NUL, and its own results: 0, -1, -2, -3 (README). */
int VARNIK_CALL PinReadKeyClear(char* inOut);

/* Magnetic stripe */
/* out: the tracks in nibble notation, or the answer as it came, and a NUL: at most 204810
 * bytes. Result: its length, 110 or -1. */
int VARNIK_CALL MsreRead(char* out);
/* buffer: one NUL written into buffer[0]. 0, or -1 for a null buffer. */
int VARNIK_CALL MsreWrite(char* buffer);

/* Chip card */
/* out: the terminal's answer and a NUL, at most 204797 bytes. Result: its length, 110 or -1. */
int VARNIK_CALL EMVRead(char* out);
/* mode & 3 of 0 or 1, text: UTF-8 and a NUL, at most 3 x 204799 + 1 = 614398 bytes; result the
 * text's length. 2 or 3, binary: at most 204792 bytes and no NUL; result their count. Or 110,
 * or -1.
 *
 * The record is the terminal's, handed on unparsed: nine fields apart by '|',
 *
 *   citizen id|Thai name|English name|birth date|sex|issuer|issue date|expiry date|address
 *
 *   citizen id    13 digits
 *   names         "title#first#middle#last", e.g. "Mr.#Somchai##Jaidee" (empty parts stay)
 *   dates         YYYYMMDD in the Buddhist era (year - 543 is the common era's); an expiry
 *                 of "99999999" means valid for life
 *   sex           "1" male, "2" female
 *   address       its parts apart by '#' (runs of '#' where parts are empty)
 *
 * The text form gives it in UTF-8. The binary form gives the record in TIS-620 (0xA1..0xFB
 * are U+0E01..U+0E5B) followed by the card's JPEG photo, which starts at the bytes FF D8 FF.
 * examples/thaiid.c parses both. */
int VARNIK_CALL ThaiIDRead(char* out, int mode);
/* The columns a UTF-8 Thai text takes on the display; 0 for a null text. A text that makes
 * 10240 or more bytes in TIS-620 ends the process: keep it below that. */
int VARNIK_CALL ThaiLen(const char* text);

/* The terminal's card slot as the process's PC/SC reader */
/* 0 once the PC/SC functions reach the terminal; -1 if they could not be redirected; else the
 * result of PosSelect. */
int VARNIK_CALL ReaderSelect(void);

#ifdef __cplusplus
}

/* Exported for binary compatibility with older hosts; it has no state and no use. */
class VARNIK_CLASS CBrelmat {
public:
    CBrelmat& operator=(CBrelmat&& other);
    CBrelmat& operator=(const CBrelmat& other);
};
#endif

#endif /* VARNIK_H */
