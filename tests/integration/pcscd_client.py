"""An unmodified PC/SC client of the system-wide reader: Debian's pyscard through pcscd, no
library of ours in the process. Run with /usr/bin/python3. Prints one "key=value" line a step.

    pcscd_client.py card SIMPID    read the Thai ID card with its photo, then take the card out
                                   and put it back (signals to the simulator) and wait for both
    pcscd_client.py silent         connect, then time an APDU that the terminal never answers
"""

import os
import signal
import sys
import time

from smartcard.scard import (SCARD_PROTOCOL_T0, SCARD_SCOPE_USER, SCARD_SHARE_SHARED,
                             SCARD_STATE_EMPTY, SCARD_STATE_PRESENT, SCARD_STATE_UNAWARE,
                             SCARD_UNPOWER_CARD, SCardConnect, SCardDisconnect,
                             SCardEstablishContext, SCardGetStatusChange, SCardListReaders,
                             SCardTransmit)

THAI_ID_APPLET = [0x00, 0xA4, 0x04, 0x00, 0x08, 0xA0, 0x00, 0x00, 0x00, 0x54, 0x48, 0x00, 0x01]
PHOTO_AT, PHOTO_SIZE = 0x017B, 5118


def report(key, value):
    print("%s=%s" % (key, value), flush=True)


def exchange(card, apdu):
    """One command, with the T=0 follow-up that the reader leaves to us."""
    result, answer = SCardTransmit(card, SCARD_PROTOCOL_T0, apdu)
    if result == 0 and len(answer) == 2 and answer[0] == 0x61:
        result, answer = SCardTransmit(card, SCARD_PROTOCOL_T0, [0x00, 0xC0, 0x00, 0x00, answer[1]])
    if result != 0:
        raise RuntimeError("transmit failed: 0x%08X" % (result & 0xFFFFFFFF))
    return answer[:-2], "%02X%02X" % (answer[-2], answer[-1])


def read_file(card, offset, size):
    data = []
    while len(data) < size:
        count = min(255, size - len(data))
        at = offset + len(data)
        chunk, status = exchange(card, [0x80, 0xB0, at >> 8, at & 0xFF, 0x02, 0x00, count])
        if status != "9000" or not chunk:
            raise RuntimeError("read at 0x%04X: %s" % (at, status))
        data += chunk
    return bytes(data)


def wait_for(context, reader, wanted, seconds):
    state = [(reader, SCARD_STATE_UNAWARE)]
    deadline = time.time() + seconds
    while time.time() < deadline:
        _, state = SCardGetStatusChange(context, 1000, [(reader, state[0][1])])
        if state[0][1] & wanted:
            return "1 " + " ".join("%02X" % b for b in state[0][2])
    return "0"


def connect(context):
    _, readers = SCardListReaders(context, [])
    report("readers", "|".join(readers))
    report("present", wait_for(context, readers[0], SCARD_STATE_PRESENT, 10))
    result, card, protocol = SCardConnect(context, readers[0], SCARD_SHARE_SHARED,
                                          SCARD_PROTOCOL_T0)
    report("connect", "%d protocol %d" % (result, protocol))
    return readers[0], card


def run_card(context, simulator):
    reader, card = connect(context)
    report("select", exchange(card, THAI_ID_APPLET)[1])
    report("citizen", read_file(card, 0x0004, 13).decode("ascii"))
    photo = read_file(card, PHOTO_AT, PHOTO_SIZE)
    report("photo", "%d %s %s" % (len(photo), photo[:2].hex().upper(), photo[-2:].hex().upper()))
    SCardDisconnect(card, SCARD_UNPOWER_CARD)

    os.kill(simulator, signal.SIGUSR1)
    report("removed", wait_for(context, reader, SCARD_STATE_EMPTY, 10))
    os.kill(simulator, signal.SIGUSR2)
    report("inserted", wait_for(context, reader, SCARD_STATE_PRESENT, 10))


def run_silent(context):
    _, card = connect(context)
    started = time.time()
    result, _ = SCardTransmit(card, SCARD_PROTOCOL_T0, THAI_ID_APPLET)
    report("transmit", "0x%08X after %d s" % (result & 0xFFFFFFFF, round(time.time() - started)))
    _, readers = SCardListReaders(context, [])
    report("still_listed", len(readers))


def main():
    _, context = SCardEstablishContext(SCARD_SCOPE_USER)
    if sys.argv[1] == "card":
        run_card(context, int(sys.argv[2]))
    else:
        run_silent(context)


if __name__ == "__main__":
    main()
