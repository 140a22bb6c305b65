#pragma once
// The emulated unit kinds, one table row each. Everything the emulator needs
// to know about a kind of unit is here; adding a unit is adding a row.

#include <cstdint>
#include <span>
#include <string_view>

namespace hdwsim {

// Channel kinds, numbered as the unit counts its ports.
enum class ChannelKind : unsigned {
    Uart = 0,
    Arinc429Tx = 1,
    Arinc429Rx = 2,
    Can = 3,
    MilStd1553 = 5,
    I2c = 8,
    Spi = 9
};

struct UnitModel {
    std::string_view Name; // command-line name ("halden")
    std::string_view ModelWord; // model word of the detect reply ("Halden")
    uint32_t KindNumber; // device kind number
    unsigned UartChannels;
    unsigned Arinc429TxChannels;
    unsigned Arinc429RxChannels;
    unsigned CanChannels;
    unsigned MilStd1553Channels;
    bool Serial; // reachable over a serial link (pseudo-terminal)
    bool Ethernet; // reachable over UDP
    uint16_t UdpPort; // default UDP port (0 when Ethernet is false)
    std::string_view DefaultSerialNumber;
    std::string_view Revision;
    // Codes of the per-channel commands: base + channel.
    uint8_t A429TxConfigBase = 20;
    uint8_t A429RxConfigBase = 24;
    uint8_t CanConfigBase = 48;
    uint8_t CanPushBase = 50;
    // Code 4 is the keep-alive (5 bytes) rather than the SRAM write.
    bool KeepAlive = false;
    // Sends critical-failure events (type 1) when asked to (InjectCriticalFailure).
    bool CriticalFailure = false;
    // Discrete input banks and output banks (as many of each), 8 lines a bank.
    unsigned DiscreteBanks = 0;
    // I2C and SPI masters (the Wendal unit).
    unsigned I2cChannels = 0;
    unsigned SpiChannels = 0;
    // Its UARTs are reached with the HOE port packets, not with commands.
    bool PortPackets = false;
};

// Largest channel count of any kind in any row; per-channel arrays use it.
inline constexpr unsigned MaxChannels = 16;

std::span<const UnitModel> UnitModels();
// The row whose Name equals `name` (case-sensitive), or nullptr.
const UnitModel* FindUnitModel(std::string_view name);
// The Halden row.
const UnitModel& HaldenModel();

} // namespace hdwsim
