"""PC/SC hosts for the integration tests, run with /usr/bin/python3 (whose pyscard loads
libpcsclite.so.1 into this process). Each step prints one "key=value" line for the test to read.
  library LIBRARY  ReaderSelect twice, then the Thai ID card and its photo through pyscard
  direct LIBRARY   pcsc-lite's functions bound before a single ReaderSelect, then called
  card SIMPID      pcscd's reader: the card and photo, then the simulator takes it out and back
  silent           pcscd's reader, whose terminal never answers an APDU: one timed exchange
  state            pcscd's reader once its state holds still: the state and SCardConnect's result"""

import ctypes
import os
import signal
import sys
import time

APPLET = [0x00, 0xA4, 0x04, 0x00, 0x08, 0xA0, 0x00, 0x00, 0x00, 0x54, 0x48, 0x00, 0x01]


def report(key, value):
    print("%s=%s" % (key, value), flush=True)


def hex_of(data):
    return " ".join("%02X" % byte for byte in data)


def select_reader(path, times):
    library = ctypes.CDLL(path)
    for _ in range(times):
        report("ReaderSelect", library.ReaderSelect())


def exchange(sc, card, apdu):
    result, answer = sc.SCardTransmit(card, sc.SCARD_PROTOCOL_T0, apdu)
    if result == 0 and len(answer) == 2 and answer[0] == 0x61:  # T=0: fetch what waits
        result, answer = sc.SCardTransmit(card, sc.SCARD_PROTOCOL_T0, [0, 0xC0, 0, 0, answer[1]])
    assert result == 0 and answer[-2:] == [0x90, 0x00], (hex(result), answer[-2:])
    return answer[:-2]


def read_file(sc, card, offset, size):
    data = []
    while len(data) < size:
        at = offset + len(data)
        data += exchange(sc, card, [0x80, 0xB0, at >> 8, at & 0xFF, 2, 0, min(255, size - len(data))])
    return bytes(data)


def wait_for(sc, context, reader, wanted):
    state = sc.SCARD_STATE_UNAWARE
    for _ in range(10):
        _, [(_, state, atr)] = sc.SCardGetStatusChange(context, 1000, [(reader, state)])
        if state & wanted:
            return "1 " + hex_of(atr)
    return "0"


def run_card(mode, argument):
    if mode == "library":
        select_reader(argument, 2)
    import smartcard.scard as sc  # after the redirection, as a host may load it

    _, context = sc.SCardEstablishContext(sc.SCARD_SCOPE_USER)
    _, readers = sc.SCardListReaders(context, [])
    report("readers", "|".join(readers))
    if mode == "card":
        report("present", wait_for(sc, context, readers[0], sc.SCARD_STATE_PRESENT))
    result, card, protocol = sc.SCardConnect(context, readers[0], sc.SCARD_SHARE_SHARED,
                                             sc.SCARD_PROTOCOL_T0)
    report("connect", "%d protocol %d" % (result, protocol))
    report("atr", hex_of(sc.SCardStatus(card)[4]))
    if mode == "silent":
        started = time.time()
        result, _ = sc.SCardTransmit(card, sc.SCARD_PROTOCOL_T0, APPLET)
        report("transmit", "0x%08X after %d s" % (result & 0xFFFFFFFF, time.time() - started))
        report("still_listed", len(sc.SCardListReaders(context, [])[1]))
        return
    exchange(sc, card, APPLET)
    report("citizen", read_file(sc, card, 0x0004, 13).decode("ascii"))
    photo = read_file(sc, card, 0x017B, 5118)
    report("photo", "%d %s %s" % (len(photo), photo[:2].hex().upper(), photo[-2:].hex().upper()))
    sc.SCardDisconnect(card, sc.SCARD_UNPOWER_CARD)
    if mode == "card":
        os.kill(int(argument), signal.SIGUSR1)
        report("removed", wait_for(sc, context, readers[0], sc.SCARD_STATE_EMPTY))
        os.kill(int(argument), signal.SIGUSR2)
        report("inserted", wait_for(sc, context, readers[0], sc.SCARD_STATE_PRESENT))


def run_state():
    import smartcard.scard as sc

    _, context = sc.SCardEstablishContext(sc.SCARD_SCOPE_USER)
    reader = sc.SCardListReaders(context, [])[1][0]
    state = sc.SCARD_STATE_UNAWARE
    for _ in range(20):  # until a second, several of the daemon's polls, brings no change
        result, [(_, new, _)] = sc.SCardGetStatusChange(context, 1000, [(reader, state)])
        if result != 0:
            break
        state = new & ~sc.SCARD_STATE_CHANGED
    report("state", " ".join(name for name in ("EMPTY", "PRESENT", "UNAVAILABLE")
                             if state & getattr(sc, "SCARD_STATE_" + name)))
    result = sc.SCardConnect(context, reader, sc.SCARD_SHARE_SHARED, sc.SCARD_PROTOCOL_T0)[0]
    report("connect", "0x%08X" % (result & 0xFFFFFFFF))


def run_direct(path):
    # Bound before ReaderSelect, as a host that loaded its PC/SC library early has them.
    try:
        pcsc = ctypes.CDLL("libpcsclite.so.1")
    except OSError:
        pcsc = None
    report("pcsclite", "loaded" if pcsc else "missing")
    calls = {}
    for name in ("SCardEstablishContext", "SCardListReaders", "SCardConnect", "SCardStatus",
                 "SCardDisconnect", "SCardTransmit"):
        if pcsc is not None and hasattr(pcsc, name):
            calls[name] = getattr(pcsc, name)
            calls[name].restype = ctypes.c_long
    report("transmit", "present" if "SCardTransmit" in calls else "absent")

    select_reader(path, 1)
    if pcsc is None:
        return
    dword, handle = ctypes.c_ulong, ctypes.c_long
    context = handle(0)
    result = calls["SCardEstablishContext"](dword(2), None, None, ctypes.byref(context))
    report("establish", "%X %d" % (result & 0xFFFFFFFF, context.value))
    if result != 0:
        return
    size = dword(0)
    result = calls["SCardListReaders"](context, None, None, ctypes.byref(size))
    report("list", "%X %d" % (result & 0xFFFFFFFF, size.value))
    card, protocol = handle(0), dword(0)
    result = calls["SCardConnect"](context, b"no such reader", dword(2), dword(3),
                                   ctypes.byref(card), ctypes.byref(protocol))
    report("connect", "%X %X %d" % (result & 0xFFFFFFFF, card.value, protocol.value))
    state, atr, atr_length = dword(0), (ctypes.c_ubyte * 64)(), dword(64)
    result = calls["SCardStatus"](card, None, None, ctypes.byref(state), ctypes.byref(protocol),
                                  atr, ctypes.byref(atr_length))
    report("status", "%X %X %s" % (result & 0xFFFFFFFF, state.value,
                                   hex_of(atr[:atr_length.value])))
    result = calls["SCardDisconnect"](card, dword(0))
    report("disconnect", "%X" % (result & 0xFFFFFFFF))


if __name__ == "__main__":
    if sys.argv[1] == "direct":
        run_direct(sys.argv[2])
    elif sys.argv[1] == "state":
        run_state()
    else:
        run_card(sys.argv[1], sys.argv[2] if len(sys.argv) > 2 else None)
