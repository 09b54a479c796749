"""A plain pyscard client of pcscd's reader: "card SIMPID" reads the Thai ID card and photo, then
has the simulator take the card out and back; "silent" times an APDU. Prints key=value lines."""

import os
import signal
import sys
import time

from smartcard.scard import *  # noqa: F403 (the PC/SC names, as C clients write them)

APPLET = [0x00, 0xA4, 0x04, 0x00, 0x08, 0xA0, 0x00, 0x00, 0x00, 0x54, 0x48, 0x00, 0x01]


def report(key, value):
    print("%s=%s" % (key, value), flush=True)


def exchange(card, apdu):
    result, answer = SCardTransmit(card, SCARD_PROTOCOL_T0, apdu)
    if result == 0 and len(answer) == 2 and answer[0] == 0x61:  # T=0: fetch what waits
        result, answer = SCardTransmit(card, SCARD_PROTOCOL_T0, [0, 0xC0, 0, 0, answer[1]])
    assert result == 0 and answer[-2:] == [0x90, 0x00], (hex(result), answer[-2:])
    return answer[:-2]


def read_file(card, offset, size):
    data = []
    while len(data) < size:
        at = offset + len(data)
        data += exchange(card, [0x80, 0xB0, at >> 8, at & 0xFF, 2, 0, min(255, size - len(data))])
    return bytes(data)


def wait_for(context, reader, wanted):
    state = SCARD_STATE_UNAWARE
    for _ in range(10):
        _, [(_, state, atr)] = SCardGetStatusChange(context, 1000, [(reader, state)])
        if state & wanted:
            return "1 " + " ".join("%02X" % b for b in atr)
    return "0"


def main():
    _, context = SCardEstablishContext(SCARD_SCOPE_USER)
    _, readers = SCardListReaders(context, [])
    report("readers", "|".join(readers))
    if sys.argv[1] == "card":
        report("present", wait_for(context, readers[0], SCARD_STATE_PRESENT))
    result, card, protocol = SCardConnect(context, readers[0], SCARD_SHARE_SHARED,
                                          SCARD_PROTOCOL_T0)
    report("connect", "%d protocol %d" % (result, protocol))
    if sys.argv[1] == "silent":
        started = time.time()
        result, _ = SCardTransmit(card, SCARD_PROTOCOL_T0, APPLET)
        report("transmit", "0x%08X after %d s" % (result & 0xFFFFFFFF, time.time() - started))
        report("still_listed", len(SCardListReaders(context, [])[1]))
        return
    exchange(card, APPLET)
    report("citizen", read_file(card, 0x0004, 13).decode("ascii"))
    photo = read_file(card, 0x017B, 5118)
    report("photo", "%d %s %s" % (len(photo), photo[:2].hex().upper(), photo[-2:].hex().upper()))
    SCardDisconnect(card, SCARD_UNPOWER_CARD)
    os.kill(int(sys.argv[2]), signal.SIGUSR1)
    report("removed", wait_for(context, readers[0], SCARD_STATE_EMPTY))
    os.kill(int(sys.argv[2]), signal.SIGUSR2)
    report("inserted", wait_for(context, readers[0], SCARD_STATE_PRESENT))


main()
