/**
 * @file varnik.h
 * @brief Varnik: driver library for the NEW6210 payment terminal (PIN pad, stripe and card
 * reader).
 *
 * Every export returns a signed 32-bit result (see @ref results). Output buffers belong to the
 * caller and carry no size: size them by the bounds given with each export. One call at a time;
 * PosCancel (or its aliases) may come in during a wait.
 *
 * @par Threads and signals
 * A wait for the terminal has no time limit. PosCancel, PinCancel and MsreCancel, and only
 * these, may be called from another thread, from a window message that the waiting call
 * dispatches, from an APC, or from a POSIX signal handler: they take no lock and allocate
 * nothing. The waiting call then puts one CAN on the line and returns with the terminal's
 * answer. Their "Pos Cancel " log line is written by the next call that logs (the waiting
 * one, at once), in its place before the CAN. No other export is async-signal-safe, and no
 * two other exports may run at once.
 *
 * @par Unplugged terminals
 * A port that the system reports gone (an unplugged adapter) ends a wait as silence would,
 * with nothing read; the port is closed and the next call opens it again.
 *
 * @anchor results
 * @par Results shared by the terminal exports
 * | Result | Meaning |
 * |---|---|
 * | 0 | done (for the text exports: the length of the text, which may also be 0) |
 * | 110 | no port is known, or it would not open: nothing was sent, no buffer touched |
 * | 1538 | the terminal did not answer the probe (PosSelect and the calls built on it) |
 * | -1 | a null output buffer: nothing was sent, the port was not opened |
 *
 * A text length of 110 is told apart from the error only by the buffer, which an error leaves
 * as it was.
 *
 * @par Buffers
 * Caller's buffers carry no size. The most bytes each export can write are given with it; the
 * reply buffer holds 204800 bytes, and a terminal's answer never fills more of it than that.
 */
#ifndef VARNIK_H
#define VARNIK_H

/** The exports' calling convention: __stdcall on Windows (for VB6 and .NET hosts), the
 * platform's default elsewhere. */
#if defined(_WIN32)
#define VARNIK_CALL __stdcall
#else
#define VARNIK_CALL
#endif

/** Import or export of the one exported class. */
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

/** @name Terminal session
 * @{ */
/** Probes the terminal on the configured port. @return 0, 110 or 1538. */
int VARNIK_CALL PosSelect(void);
int VARNIK_CALL PinSelect(void);  /**< @copydoc PosSelect */
int VARNIK_CALL MsreSelect(void); /**< @copydoc PosSelect */
/** Probes the terminal on COM<port> (closing a port left open under another number first)
 * and, on 0, saves the number in varnik.json (config/ beside the library, or the configuration
 * folder the README describes). A file that cannot be written leaves the result 0.
 * @param port the COM number to try.
 * @return 0, 110 or 1538. */
int VARNIK_CALL PosCheckPort(int port);
int VARNIK_CALL PinCheckPort(int port);  /**< @copydoc PosCheckPort */
int VARNIK_CALL MsreCheckPort(int port); /**< @copydoc PosCheckPort */
/** Asks the waiting call to send the terminal one CAN. Safe from any thread, a window message,
 * an APC or a POSIX signal handler. @return always 0. */
int VARNIK_CALL PosCancel(void);
int VARNIK_CALL PinCancel(void);  /**< @copydoc PosCancel */
int VARNIK_CALL MsreCancel(void); /**< @copydoc PosCancel */
/** The terminal's version text.
 * @param out the text and a NUL, at most 204800 bytes.
 * @return its length, 110, or -1. */
int VARNIK_CALL getVersion(char* out);
/** @} */

/** @name Command scripts
 * @{ */
/** Runs one terminal command: VERSION, a JSON document, or the name of a document in the
 * library's json folder. The port stays open.
 * @param out the command's text and a NUL, at most 204800 bytes.
 * @param command the command.
 * @return 110; -1 for a null out; else the command's own (README): 1 for VERSION, 0 or 5
 * done, -1 -2 -3 script and command errors, -790 the port found closed. */
int VARNIK_CALL PosExec(char* out, const char* command);
/** @} */

/** @name PIN pad
 * @{ */
/** Loads a master key.
 * @param key 16 bytes of master key in; the terminal's answer is written back over it, at
 * most 204797 bytes (a one-byte answer replaces key[0] alone).
 * @return 0, 110 or -1. */
int VARNIK_CALL PinLoadMK(unsigned char* key);
/** Runs the PIN entry; waits for the customer without a time limit.
 * @param out the PIN block as bytes, at most 64 bytes (out[16] is always a NUL).
 * @return 0, 110 or -1. */
int VARNIK_CALL PinReadKey(unsigned char* out);
/** PIN entry with a prompt of the caller's, or a script request.
 * @param inOut the prompt in (empty for the default); out, 9 bytes: 8 bytes of PIN block and
 * a NUL. A request beginning with '@' gets the terminal's text instead, at most 128 bytes with
 * its NUL.
 * @return 0, 110 or -1; for a request its own results: 0, -1, -2, -3 (README). */
int VARNIK_CALL PinReadKeyClear(char* inOut);
/** @} */

/** @name Magnetic stripe
 * @{ */
/** Waits for a swipe without a time limit.
 * @param out the tracks in nibble notation, or the answer as it came, and a NUL: at most
 * 204810 bytes.
 * @return its length, 110 or -1. */
int VARNIK_CALL MsreRead(char* out);
/** Sends nothing.
 * @param buffer one NUL written into buffer[0].
 * @return 0, or -1 for a null buffer. */
int VARNIK_CALL MsreWrite(char* buffer);
/** @} */

/** @name Chip card
 * @{ */
/** The cardholder name of an EMV card (tag 5F20).
 * @param out the terminal's answer and a NUL, at most 204797 bytes.
 * @return its length, 110 or -1. */
int VARNIK_CALL EMVRead(char* out);
/** Reads a Thai national ID card.
 * @param out mode & 3 of 0 or 1, text: UTF-8 and a NUL, at most 3 x 204799 + 1 = 614398
 * bytes. 2 or 3, binary: at most 204792 bytes and no NUL.
 * @param mode the whole low byte goes to the terminal; its low two bits pick the form.
 * @return the text's length, or the binary block's byte count; or 110, or -1.
 *
 * The record is the terminal's, handed on unparsed: nine fields apart by '|',
 * @verbatim
   citizen id|Thai name|English name|birth date|sex|issuer|issue date|expiry date|address

   citizen id    13 digits
   names         "title#first#middle#last", e.g. "Mr.#Somchai##Jaidee" (empty parts stay)
   dates         YYYYMMDD in the Buddhist era (year - 543 is the common era's); an expiry
                 of "99999999" means valid for life
   sex           "1" male, "2" female
   address       its parts apart by '#' (runs of '#' where parts are empty)
   @endverbatim
 * The text form gives it in UTF-8. The binary form gives the record in TIS-620 (0xA1..0xFB
 * are U+0E01..U+0E5B) followed by the card's JPEG photo, which starts at the bytes FF D8 FF.
 * examples/thaiid.c parses both. */
int VARNIK_CALL ThaiIDRead(char* out, int mode);
/** The columns a UTF-8 Thai text takes on the display; no terminal needed. Not for two threads
 * at once (one static work area).
 * @param text a text that makes fewer than 10240 bytes in TIS-620: a longer one ends the
 * process.
 * @return the column count; 0 for a null text. */
int VARNIK_CALL ThaiLen(const char* text);
/** @} */

/** @name The terminal's card slot as the process's PC/SC reader
 * @{ */
/** Makes this process's PC/SC calls reach the terminal's slot as the reader
 * "NEW6210 Reader Card".
 * @return 0 once the PC/SC functions reach the terminal; -1 if they could not be redirected;
 * else the result of PosSelect. */
int VARNIK_CALL ReaderSelect(void);
/** @} */

#ifdef __cplusplus
}

/** Exported for binary compatibility with older hosts; it has no state and no use. */
class VARNIK_CLASS CBrelmat {
public:
    /** Copies nothing. @param other ignored. @return this object. */
    CBrelmat& operator=(CBrelmat&& other);
    /** Copies nothing. @param other ignored. @return this object. */
    CBrelmat& operator=(const CBrelmat& other);
};
#endif

#endif /* VARNIK_H */
