// Bus length of a CAN frame: the bits from the start of frame through the CRC
// sequence are bit-stuffed (after five equal bits the transmitter inserts one
// of the other value, which counts towards the next run); delimiter, ACK slot
// and delimiter, end of frame and the inter-frame space follow unstuffed.

#include <hdwsim/UnitEngine.h>

#include <vector>

namespace hdwsim {

namespace {

void PutBits(std::vector<uint8_t>& bits, uint32_t value, unsigned count)
{
    for (unsigned i = count; i-- > 0;)
        bits.push_back(static_cast<uint8_t>((value >> i) & 1));
}

uint16_t Crc15(const std::vector<uint8_t>& bits)
{
    uint16_t crc = 0;
    for (uint8_t bit : bits) {
        const bool next = (bit ^ ((crc >> 14) & 1)) != 0;
        crc = static_cast<uint16_t>((crc << 1) & 0x7FFF);
        if (next)
            crc ^= 0x4599;
    }
    return crc;
}

} // namespace

unsigned UnitEngine::CanFrameBits(const uint8_t* record)
{
    const unsigned flags = record[0];
    const unsigned dlc = flags & 0x0F;
    const bool remote = (flags & 0x40) != 0;
    const bool extended = (flags & 0x80) != 0;
    const unsigned dataBytes = remote ? 0 : (dlc > 8 ? 8 : dlc);

    std::vector<uint8_t> bits;
    bits.reserve(160);
    bits.push_back(0); // start of frame
    const uint8_t* data = nullptr;
    if (extended) {
        const uint32_t id = (uint32_t(record[1]) << 21) | (uint32_t(record[2]) << 13) | (uint32_t(record[3]) << 5) |
            (uint32_t(record[4]) >> 3);
        PutBits(bits, id >> 18, 11);
        bits.push_back(1); // SRR
        bits.push_back(1); // IDE
        PutBits(bits, id & 0x3FFFF, 18);
        bits.push_back(remote ? 1 : 0);
        bits.push_back(0); // r1
        bits.push_back(0); // r0
        data = record + 5;
    } else {
        const uint32_t id = (uint32_t(record[1]) << 3) | (uint32_t(record[2]) >> 5);
        PutBits(bits, id, 11);
        bits.push_back(remote ? 1 : 0);
        bits.push_back(0); // IDE
        bits.push_back(0); // r0
        data = record + 3;
    }
    PutBits(bits, dlc, 4);
    for (unsigned i = 0; i < dataBytes; ++i)
        PutBits(bits, data[i], 8);
    PutBits(bits, Crc15(bits), 15);

    unsigned stuffed = 0;
    unsigned run = 0;
    uint8_t last = 2;
    for (uint8_t bit : bits) {
        if (bit == last) {
            ++run;
        } else {
            last = bit;
            run = 1;
        }
        if (run == 5) {
            ++stuffed;
            last = static_cast<uint8_t>(!bit);
            run = 1;
        }
    }
    // CRC delimiter, ACK slot, ACK delimiter, 7 bits end of frame, 3 bits inter-frame space.
    return static_cast<unsigned>(bits.size()) + stuffed + 13;
}

} // namespace hdwsim
