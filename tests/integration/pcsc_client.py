# A PC/SC host for the integration tests: loads libvarnik.so by path, runs ReaderSelect, then
# works through the process's pcsc-lite as any host would. Run with /usr/bin/python3, whose
# pyscard loads libpcsclite.so.1 into this process.
#   pcsc_client.py pyscard LIBRARY  ReaderSelect twice, then pyscard lists the readers,
#                                   connects and reads the citizen number of the Thai ID card
#   pcsc_client.py direct LIBRARY   binds the functions of whatever libpcsclite.so.1 the loader
#                                   gives, runs ReaderSelect once, then calls them
# Each step prints one "key=value" line; the test reads them.

import ctypes
import sys


def report(key, value):
    print("%s=%s" % (key, value), flush=True)


def select_reader(path, times):
    library = ctypes.CDLL(path)
    for _ in range(times):
        report("ReaderSelect", library.ReaderSelect())
    return library


def hex_of(data):
    return " ".join("%02X" % byte for byte in data)


def run_pyscard(path):
    select_reader(path, 2)

    from smartcard.System import readers

    names = [str(reader) for reader in readers()]
    report("readers", "|".join(names))
    connection = readers()[0].createConnection()
    connection.connect()
    report("atr", hex_of(connection.getATR()))

    def exchange(apdu):
        data, sw1, sw2 = connection.transmit(apdu)
        if sw1 == 0x61:  # T=0: the answer waits for GET RESPONSE
            data, sw1, sw2 = connection.transmit([0x00, 0xC0, 0x00, 0x00, sw2])
        return data, sw1, sw2

    data, sw1, sw2 = exchange([0x00, 0xA4, 0x04, 0x00, 0x08,
                               0xA0, 0x00, 0x00, 0x00, 0x54, 0x48, 0x00, 0x01])
    report("select", "%02X%02X" % (sw1, sw2))
    data, sw1, sw2 = exchange([0x80, 0xB0, 0x00, 0x04, 0x02, 0x00, 0x0D])
    report("read", "%02X%02X" % (sw1, sw2))
    report("citizen", bytes(data).decode("ascii", "replace"))
    connection.disconnect()
    report("done", 1)


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
    dword = ctypes.c_ulong
    handle = ctypes.c_long

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
    {"pyscard": run_pyscard, "direct": run_direct}[sys.argv[1]](sys.argv[2])
