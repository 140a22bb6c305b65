#pragma once
// A pcapng capture file: one interface per monitored port, each with its
// link type and name, and one enhanced packet block per item, time stamps
// in microseconds since 1970. Blocks are written little-endian.
//
//   CAN        LINKTYPE_CAN_SOCKETCAN (227): 16 bytes, the CAN id in network
//              byte order with the EFF (0x80000000) and RTR (0x40000000)
//              flags, the length, 3 pad/reserved bytes, 8 data bytes
//   ARINC 429  LINKTYPE_USER0 (147): the 8-byte record of Arinc429Record

#include <HdwLib/HdwLib.h>

#include <array>
#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

namespace hdwtool {

constexpr uint16_t LinkTypeSocketCan = 227;
constexpr uint16_t LinkTypeArinc429 = 147; // LINKTYPE_USER0

std::array<uint8_t, 16> SocketCanRecord(const CKVX_HdwCanMessage& frame);

// The ARINC 429 record:
//   byte 0     version, 1
//   byte 1     flags: 0x01 sent by a transmitter (else received), 0x02 the
//              low byte holds the label in wire order (else bit-reversed,
//              see LabelOrder), 0x04 the receiver's parity check failed,
//              0x08 the receiver expects even parity (else odd)
//   byte 2     channel: the port's absolute number
//   byte 3     0
//   bytes 4-7  the raw 32-bit word in network byte order
struct Arinc429RecordInfo {
    bool Transmitted = false;
    bool WireOrder = false;
    bool ParityError = false;
    bool EvenParity = false;
    uint8_t Channel = 0;
};
std::array<uint8_t, 8> Arinc429Record(const CKVX_HdwArinc429Message& word, const Arinc429RecordInfo& info);

class PcapWriter {
public:
    PcapWriter() = default;
    ~PcapWriter();
    PcapWriter(const PcapWriter&) = delete;
    PcapWriter& operator=(const PcapWriter&) = delete;

    // Creates the file and writes its section header; false with a reason.
    bool Open(const std::string& path, std::string& error);
    // Adds an interface (before the first packet on it); returns its index.
    uint32_t AddInterface(uint16_t linkType, const std::string& name);
    void Write(uint32_t interfaceIndex, uint64_t wallUs, const uint8_t* data, size_t size);
    // Flushes what was written; false when the file could not take it.
    bool Flush(std::string& error);
    bool IsOpen() const { return m_File != nullptr; }

private:
    void Block(uint32_t type, const std::vector<uint8_t>& body);

    FILE* m_File = nullptr;
    std::string m_Path;
    uint32_t m_Interfaces = 0;
};

} // namespace hdwtool
