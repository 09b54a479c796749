#!/usr/bin/env python3
"""The far end of the serial line for wine_win32_test.exe: a pseudo-terminal linked where Wine
looks for a COM port, answering a few one-letter commands. Prints the pty path, then serves
until killed.

  B            reply 'B', the line speed in baud (4 bytes LE) and a flag byte: 1 CS8, 2 PARENB,
               4 CSTOPB, 8 CRTSCTS, 16 IXON or IXOFF
  Q hi lo      reply with hi*256+lo pattern bytes: 01 02 ... FB 01 02 ...
  D hi lo      take the next hi*256+lo bytes as data, then reply 'R', their count and their
               sum, each modulo 65536 (2 bytes BE)
  L hi lo      as D for (hi*256+lo)*16 bytes, taken at no more than 4 KiB per 100 ms: slower
               than the real line, so that a long write needs more than a second
  S hi lo      read nothing for hi*256+lo milliseconds, so that the host's writes back up
Any other byte is ignored.
"""
import os
import pty
import select
import sys
import termios
import time
import tty

SPEEDS = {getattr(termios, name): int(name[1:]) for name in dir(termios)
          if name.startswith("B") and name[1:].isdigit()}


def line_state(fd):
    iflag, _, cflag, _, ispeed, _, _ = termios.tcgetattr(fd)
    flags = 0
    if cflag & termios.CSIZE == termios.CS8:
        flags |= 1
    if cflag & termios.PARENB:
        flags |= 2
    if cflag & termios.CSTOPB:
        flags |= 4
    if cflag & termios.CRTSCTS:
        flags |= 8
    if iflag & (termios.IXON | termios.IXOFF):
        flags |= 16
    return b"B" + SPEEDS.get(ispeed, 0).to_bytes(4, "little") + bytes([flags])


def main():
    link = sys.argv[1]
    master, slave = pty.openpty()
    tty.setraw(master)
    if os.path.lexists(link):
        os.unlink(link)
    os.symlink(os.ttyname(slave), link)
    print(os.ttyname(slave), flush=True)

    pending = b""
    data_left = 0
    data_count = 0
    data_sum = 0
    slow = False  # the data of an L command is being taken
    while True:
        if slow:
            time.sleep(0.1)
        ready, _, _ = select.select([master], [], [], 0.5)
        if not ready:
            continue
        try:
            pending += os.read(master, 4096 if slow else 65536)
        except OSError:
            continue
        while pending:
            if data_left > 0:
                piece = pending[:data_left]
                pending = pending[len(piece):]
                data_left -= len(piece)
                data_count += len(piece)
                data_sum = (data_sum + sum(piece)) % 65536
                if data_left == 0:
                    slow = False
                    os.write(master, b"R" + (data_count % 65536).to_bytes(2, "big") +
                             data_sum.to_bytes(2, "big"))
                continue
            command = pending[:1]
            if command == b"B":
                pending = pending[1:]
                os.write(master, line_state(slave))
                continue
            if command in (b"Q", b"D", b"L", b"S"):
                if len(pending) < 3:
                    break
                value = int.from_bytes(pending[1:3], "big")
                pending = pending[3:]
                if command == b"Q":
                    os.write(master, bytes(i % 251 + 1 for i in range(value)))
                elif command in (b"D", b"L"):
                    data_left, data_count, data_sum = value, 0, 0
                    if command == b"L":
                        data_left *= 16
                        slow = True
                else:
                    time.sleep(value / 1000.0)
                continue
            pending = pending[1:]


if __name__ == "__main__":
    main()
