#include "FakePcsc.h"

#include <algorithm>
#include <cstring>

FakePcsc g_pcsc;

namespace {

const PcscHandle FakeContext = 77, FakeCard = 88;

ByteString Sw(uint8_t sw1, uint8_t sw2)
{
    return {sw1, sw2};
}

ByteString CardAnswer(const ByteString& c)
{
    const ByteString aid = {0xA0, 0x00, 0x00, 0x00, 0x54, 0x48, 0x00, 0x01};
    if (c.size() >= 13 && c[0] == 0x00 && c[1] == 0xA4 &&
        ByteString(c.begin() + 5, c.begin() + 13) == aid) {
        if (g_pcsc.selectRefused)
            return Sw(0x6A, 0x82);
        g_pcsc.selected = true;
        g_pcsc.pending = {0x6F, 0x08, 0x84, 0x06, 0xA0, 0x00, 0x00, 0x00, 0x54, 0x48};
        return Sw(0x61, 0x0A);
    }
    if (c.size() == 7 && c[0] == 0x80 && c[1] == 0xB0 && c[4] == 0x02 && c[5] == 0x00) {
        g_pcsc.pending.clear();
        if (!g_pcsc.selected)
            return Sw(0x69, 0x86);
        unsigned offset = (c[2] << 8) | c[3];
        if (offset == g_pcsc.refusedOffset || offset >= g_pcsc.file.size())
            return Sw(0x6B, 0x00);
        size_t end = std::min<size_t>(offset + c[6], g_pcsc.file.size());
        g_pcsc.pending.assign(g_pcsc.file.begin() + offset, g_pcsc.file.begin() + end);
        return Sw(0x61, static_cast<uint8_t>(g_pcsc.pending.size()));
    }
    if (c.size() == 5 && c[0] == 0x00 && c[1] == 0xC0 && c[2] == 0x00 && c[3] <= 0x01) {
        if (g_pcsc.pending.empty())
            return Sw(0x69, 0x85);
        if (c[4] != g_pcsc.pending.size())
            return Sw(0x6C, static_cast<uint8_t>(g_pcsc.pending.size()));
        ByteString answer = g_pcsc.pending;
        g_pcsc.pending.clear();
        answer.push_back(0x90);
        answer.push_back(0x00);
        return answer;
    }
    g_pcsc.pending.clear();
    return Sw(0x6D, 0x00);
}

PcscLong PCSC_CALL Establish(PcscDword, const void*, const void*, PcscHandle* context)
{
    *context = FakeContext;
    return 0;
}

PcscLong PCSC_CALL Release(PcscHandle context)
{
    g_pcsc.releases += context == FakeContext;
    return 0;
}

PcscLong PCSC_CALL ListReaders(PcscHandle, const char*, char* readers, PcscDword* length)
{
    if (!readers) {
        ++g_pcsc.sizeQueries;
        *length = g_pcsc.sizeAnswer;
        return 0;
    }
    ++g_pcsc.listCalls;
    std::memcpy(readers, g_pcsc.readerList.data(), g_pcsc.readerList.size());
    *length = g_pcsc.listAnswer;
    return 0;
}

PcscLong PCSC_CALL Connect(PcscHandle, const char* reader, PcscDword, PcscDword,
                           PcscHandle* card, PcscDword* protocol)
{
    g_pcsc.connectedReader = reader;
    *card = FakeCard;
    *protocol = PcscProtocolT0;
    return g_pcsc.connectResult;
}

PcscLong PCSC_CALL Status(PcscHandle, char*, PcscDword*, PcscDword* state, PcscDword* protocol,
                          uint8_t* atr, PcscDword* atrLength)
{
    *state = 0x40;
    *protocol = PcscProtocolT0;
    std::copy(g_pcsc.atr.begin(), g_pcsc.atr.end(), atr);
    *atrLength = static_cast<PcscDword>(g_pcsc.atr.size());
    return 0;
}

PcscLong PCSC_CALL Transmit(PcscHandle, const PcscIoRequest*, const uint8_t* send,
                            PcscDword sendLength, PcscIoRequest*, uint8_t* receive,
                            PcscDword* receiveLength)
{
    ByteString command(send, send + sendLength);
    g_pcsc.commands.push_back(command);
    ByteString answer;
    if (!g_pcsc.responses.empty()) {
        answer = g_pcsc.responses.front();
        g_pcsc.responses.erase(g_pcsc.responses.begin());
    } else {
        answer = CardAnswer(command);
    }
    std::copy(answer.begin(), answer.end(), receive);
    *receiveLength = static_cast<PcscDword>(answer.size());
    return 0;
}

PcscLong PCSC_CALL Disconnect(PcscHandle card, PcscDword)
{
    g_pcsc.disconnects += card == FakeCard;
    return 0;
}

void Put(ByteString& image, unsigned offset, unsigned length, const std::string& text)
{
    std::fill(image.begin() + offset, image.begin() + offset + length, ' ');
    std::copy(text.begin(), text.end(), image.begin() + offset);
}

} // namespace

PcscApi FakePcscApi()
{
    PcscApi api;
    api.SCardEstablishContext = Establish;
    api.SCardReleaseContext = Release;
    api.SCardListReaders = ListReaders;
    api.SCardConnect = Connect;
    api.SCardStatus = Status;
    api.SCardTransmit = Transmit;
    api.SCardDisconnect = Disconnect;
    return api;
}

ByteString FakePhoto()
{
    ByteString photo = {0xFF, 0xD8, 0xFF, 0xE0};
    for (unsigned i = 0; photo.size() < 600; ++i)
        photo.push_back(static_cast<uint8_t>(i * 7 % 0xFF));   // never FF: no false marker
    photo.push_back(0xFF);
    photo.push_back(0xD9);
    photo.resize(5118, 0);
    return photo;
}

ByteString ThaiIdCardImage()
{
    ByteString image(0x1619, 0);
    Put(image, 0x0004, 13, "1234567890121");
    Put(image, 0x0011, 100, "\xB9\xD2\xC2#\xCA\xC1\xAA\xD2\xC2##\xE3\xA8\xB4\xD5");
    Put(image, 0x0075, 100, "Mr.#Somchai##Jaidee");
    Put(image, 0x00D9, 8, "25300115");
    Put(image, 0x00E1, 1, "1");
    Put(image, 0x00F6, 100, "\xA1\xC3\xD8\xA7\xE0\xB7\xBE");
    Put(image, 0x0167, 8, "25650301");
    Put(image, 0x016F, 8, "99999999");
    const ByteString photo = FakePhoto();
    std::copy(photo.begin(), photo.end(), image.begin() + 0x017B);
    Put(image, 0x1579, 160, "99/9#Moo 5####Bang Kraso#Mueang#Nonthaburi");
    return image;
}
