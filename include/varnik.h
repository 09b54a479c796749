/* Varnik: driver library for the NEW6210 payment terminal (PIN pad, stripe and card reader).
 *
 * Every export returns a signed 32-bit result: 0 for success, 110 when no port is known or it
 * will not open, 1538 when the terminal does not answer the probe. Functions that fill a text
 * return its length instead. Output buffers belong to the caller and carry no size: size them
 * for the whole reply. One call at a time; PosCancel (or its aliases) may come in during a wait.
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

/* Terminal session */
int VARNIK_CALL PosSelect(void);
int VARNIK_CALL PinSelect(void);                /* same routine as MsreSelect */
int VARNIK_CALL MsreSelect(void);
int VARNIK_CALL PosCheckPort(int port);
int VARNIK_CALL PinCheckPort(int port);         /* same routine as MsreCheckPort */
int VARNIK_CALL MsreCheckPort(int port);
int VARNIK_CALL PosCancel(void);                /* same routine as PinCancel, MsreCancel */
int VARNIK_CALL PinCancel(void);
int VARNIK_CALL MsreCancel(void);
int VARNIK_CALL getVersion(char* out);

/* Command scripts */
int VARNIK_CALL PosExec(char* out, const char* command);

/* PIN pad */
int VARNIK_CALL PinLoadMK(unsigned char* key);
int VARNIK_CALL PinReadKey(unsigned char* out);
int VARNIK_CALL PinReadKeyClear(char* inOut);

/* Magnetic stripe */
int VARNIK_CALL MsreRead(char* out);
int VARNIK_CALL MsreWrite(char* buffer);

/* Chip card */
int VARNIK_CALL EMVRead(char* out);
int VARNIK_CALL ThaiIDRead(char* out, int mode);
int VARNIK_CALL ThaiLen(const char* text);

/* The terminal's card slot as the process's PC/SC reader */
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
