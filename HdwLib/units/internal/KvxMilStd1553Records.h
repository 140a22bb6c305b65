#pragma once
// The unit's side of MIL-STD-1553 (docs/mil-std-1553.md): the SRAM images
// that the bus-controller and remote-terminal services write, the transfer
// identifiers they give, and the messages they make of the unit's events.
// Addresses are words relative to the channel's block of SRAM.

#include <HdwLib/bus/HdwMilStd1553Frame.h>
#include <HdwLib/bus/HdwMilStd1553Message.h>
#include <HdwLib/bus/HdwMilStd1553RemoteTerminal.h>
#include <HdwLib/units/KvxUnitEvents.h>

#include <cstdint>
#include <vector>

namespace hdw::units::mil1553 {

constexpr uint32_t ChannelWords = 0x8000; // channel c owns c * ChannelWords ..
constexpr unsigned OneShotSlots = 32; // descriptors 0..31
constexpr unsigned TableDescriptors = 240; // per major frame table
constexpr uint32_t BufferBase = 0x2000;
constexpr uint32_t RtTransmitBufferBase = 0x2400;
constexpr uint32_t RtModeCodeTable = 0x0100;
constexpr unsigned RtTableWords = 0x0140; // subaddress and mode-code tables
constexpr unsigned RtBufferWords = 0x0800; // receive and transmit buffers

// Transfer identifiers (descriptor word 4).
constexpr uint16_t OneShotId = 0x8000;
constexpr uint16_t TableBId = 0x4000;
constexpr uint16_t IndexMask = 0x3FFF;
constexpr uint16_t OneShotNumberMask = 0x7FFF;

// Kind-2 record field 1 (byte 5 bits 2..0).
constexpr uint8_t AccessBusB = 1u << 0;
constexpr uint8_t AccessBroadcast = 1u << 1;
constexpr uint8_t AccessMonitor = 1u << 2;

enum t_Kind : uint8_t { KindTransfer = 1, KindAccess = 2, KindSwitched = 3, KindStopped = 4 };

// First descriptor of table half 0 (A) or 1 (B), and the half's table page.
inline unsigned FirstDescriptor(unsigned half)
{
    return half ? 32 + TableDescriptors : 32;
}
inline uint8_t TablePage(unsigned half)
{
    return half ? 0x18 : 0x10;
}
inline uint32_t BufferAddress(unsigned descriptor)
{
    return BufferBase + 32 * descriptor;
}

// Words written at one address, one SRAM write (records of up to 100 words).
struct SSramBlock {
    uint32_t Address = 0;
    std::vector<uint16_t> Words;
};
using SramImage = std::vector<SSramBlock>;

// Descriptor `descriptor` of a message with its identifier, and the
// message's send buffer when it sends data.
void AddMessage(SramImage& image, unsigned descriptor, const CKVX_HdwMilStd1553Message& message, uint16_t id);
// Blocks in address order, adjacent ones joined (fewer, fuller records).
void Compact(SramImage& image);
// Descriptors, buffers and table of a major frame in table half 0 or 1.
SramImage MajorFrameImage(const CKVX_HdwMilStd1553MajorFrame& frame, unsigned half);

// The remote terminal's subaddress and mode-code tables (RtTableWords at
// 0); every legal receive subaddress is reported.
std::vector<uint16_t> RtTables(const CKVX_HdwMilStd1553RemoteTerminal& rt);
// Its buffers (RtBufferWords at BufferBase): receive zeroed, transmit with
// the initial words.
std::vector<uint16_t> RtBuffers(const CKVX_HdwMilStd1553RemoteTerminal& rt);

// A kind-2 record as a message: command fields from its command words,
// data, status words, transfer flags, bus and time stamp.
void MessageFromAccess(const CKVX_HdwKvxMilStd1553Event& event, CKVX_HdwMilStd1553Message& message);
// What a kind-1 record adds to the controller's copy of the message.
void ApplyTransfer(const CKVX_HdwKvxMilStd1553Event& event, CKVX_HdwMilStd1553Message& message);

} // namespace hdw::units::mil1553
