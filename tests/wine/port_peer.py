#!/usr/bin/env python3
# The far end of the serial line for wine_host.exe's "win32" scenario: a pseudo-terminal
# linked where Wine looks for a COM port. Prints the pty path, then serves until killed:
#
#   B        reply 'B', the line speed (4 bytes LE) and flags: 1 CS8, 2 PARENB, 4 CSTOPB,
#            8 CRTSCTS, 16 IXON or IXOFF
#   Q n      reply with n pattern bytes (n is 2 bytes BE): 01 02 ... FB 01 02 ...
#   D n      take the next n bytes, then reply 'R', their count and their sum, each modulo
#            65536 (2 bytes BE)
#   L n      as D for n*16 bytes, taken at no more than 4 KiB per 100 ms: slower than the real
#            line, so that a long write needs more than a second
#   S n      read nothing for n milliseconds, so that the host's writes back up
# Any other byte is ignored.
import os
import pty
import sys
import termios
import time
import tty

SPEEDS = {getattr(termios, name): int(name[1:]) for name in dir(termios)
          if name.startswith("B") and name[1:].isdigit()}


def line_state(fd):
    iflag, _, cflag, _, ispeed, _, _ = termios.tcgetattr(fd)
    flags = sum(bit for bit, on in ((1, (cflag & termios.CSIZE) == termios.CS8),
                                    (2, cflag & termios.PARENB), (4, cflag & termios.CSTOPB),
                                    (8, cflag & termios.CRTSCTS),
                                    (16, iflag & (termios.IXON | termios.IXOFF))) if on)
    return b"B" + SPEEDS.get(ispeed, 0).to_bytes(4, "little") + bytes([flags])


def main():
    master, slave = pty.openpty()  # the slave stays open: no hang-up when Wine closes it
    tty.setraw(master)
    # Every setting starts wrong (9600 baud, 5 data bits, odd parity, two stop bits, both kinds
    # of flow control), so that 'B' shows what the host's open set, not what was there.
    iflag, oflag, cflag, lflag, _, _, cc = termios.tcgetattr(slave)
    cflag = (cflag & ~termios.CSIZE) | termios.CS5 | termios.PARENB | termios.PARODD | \
        termios.CSTOPB | termios.CRTSCTS
    termios.tcsetattr(slave, termios.TCSANOW, [iflag | termios.IXON | termios.IXOFF, oflag,
                                               cflag, lflag, termios.B9600, termios.B9600, cc])
    if os.path.lexists(sys.argv[1]):
        os.unlink(sys.argv[1])
    os.symlink(os.ttyname(slave), sys.argv[1])
    print(os.ttyname(slave), flush=True)

    def take(count, slow=False):
        data = b""
        while len(data) < count:
            if slow:
                time.sleep(0.1)
            data += os.read(master, min(count - len(data), 4096 if slow else count))
        return data

    while True:
        command = take(1)
        if command == b"B":
            os.write(master, line_state(slave))
        elif command in (b"Q", b"D", b"L", b"S"):
            value = int.from_bytes(take(2), "big")
            if command == b"Q":
                os.write(master, bytes(i % 251 + 1 for i in range(value)))
            elif command in (b"D", b"L"):
                data = take(value * 16, True) if command == b"L" else take(value)
                os.write(master, b"R" + (len(data) % 65536).to_bytes(2, "big") +
                         (sum(data) % 65536).to_bytes(2, "big"))
            else:
                time.sleep(value / 1000.0)


if __name__ == "__main__":
    main()
