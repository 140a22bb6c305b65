#pragma once
// The Wendal unit's I2C and SPI masters and the devices behind them
// (docs/wendal.md, "How hdwsim plays it"). Each master runs the transfers of
// its records one after the other, at most 8 waiting; a transfer's effect
// on the devices happens when its record is taken, its result event is
// reported when it ends on the bus (at once unless paced).

#include <hdwsim/Counters.h>
#include <hdwsim/UnitModel.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <limits>
#include <vector>

namespace hdwsim {

class WendalBus {
public:
    static constexpr unsigned Masters = 2;
    static constexpr size_t QueueLimit = 8;
    static constexpr uint64_t Never = std::numeric_limits<uint64_t>::max();
    // Codes as the unit decodes them.
    static constexpr unsigned CodeI2cConfig = 112, CodeSpiConfig = 114, CodeI2cTransfer = 116, CodeSpiTransfer = 117;
    static constexpr unsigned EventI2cResult = 13, EventSpiResult = 14;

    // Takes one result record: type, sub-field (the master), parameters
    // without the time stamp, and the time the transfer ended.
    using Emit = std::function<void(unsigned type, unsigned sub, const std::vector<uint8_t>& body, uint64_t atNs)>;

    WendalBus(const UnitModel& model, Counters& counters, bool pacing);

    // True when `code` is one of the masters' commands.
    bool Handles(unsigned code) const;
    // Executes one record of those codes; false when it is malformed beyond
    // a result (bad length or channel, unknown configuration value).
    bool Execute(const uint8_t* rec, size_t len, uint64_t nowNs);
    // A new session: masters off, queues dropped; the devices keep their content.
    void Reset();
    void Advance(uint64_t nowNs, const Emit& emit);
    uint64_t NextEventNs() const;

    // Fault injection.
    bool HoldI2cBus(unsigned channel, unsigned ms, uint64_t nowNs);
    bool NackNextI2c(unsigned channel, unsigned byteIndex);
    bool LoseI2cArbitration(unsigned channel);

private:
    struct Result {
        uint64_t DoneNs = 0;
        unsigned Type = 0;
        std::vector<uint8_t> Body;
    };
    struct I2cMaster {
        bool Enabled = false;
        uint32_t SpeedHz = 100000;
        uint64_t HeldUntilNs = 0;
        int NackIndex = -1; // injected: the next write's byte at this index gets no acknowledge
        bool LoseArbitration = false;
        uint64_t BusFreeNs = 0;
        std::deque<Result> Queue;
    };
    struct SpiMaster {
        bool Enabled = false;
        unsigned WordBits = 8;
        uint32_t ClockHz = 1000000;
        uint64_t BusFreeNs = 0;
        std::deque<Result> Queue;
    };

    bool I2cConfig(unsigned ch, const uint8_t* rec, size_t len);
    bool SpiConfig(unsigned ch, const uint8_t* rec, size_t len);
    bool I2cTransfer(const uint8_t* rec, size_t len, uint64_t nowNs);
    bool SpiTransfer(const uint8_t* rec, size_t len, uint64_t nowNs);
    // Status, acknowledged count and read bytes of a valid I2C transfer.
    uint8_t RunI2c(unsigned ch, bool tenBit, unsigned address, const uint8_t* write, size_t n, unsigned readLength,
        uint64_t nowNs, uint16_t& acked, std::vector<uint8_t>& read);
    void RunSpi(unsigned ch, unsigned chipSelect, const uint8_t* out, size_t n, std::vector<uint8_t>& in);
    void Queue(std::deque<Result>& queue, uint64_t& busFreeNs, uint64_t nowNs, uint64_t durationNs, unsigned type,
        std::vector<uint8_t> body);

    const UnitModel& m_Model;
    Counters& m_Count;
    bool m_Pacing;
    std::array<I2cMaster, Masters> m_I2c;
    std::array<SpiMaster, Masters> m_Spi;
    // Behind each I2C master one EEPROM (7-bit 0x50 and 10-bit 0x250) with its current address.
    std::array<std::array<uint8_t, 256>, Masters> m_Eeprom;
    std::array<uint8_t, Masters> m_EepromAddress{};
    // Behind each SPI master's chip select 1 a 4-KiB memory.
    std::array<std::vector<uint8_t>, Masters> m_SpiMemory;
};

} // namespace hdwsim
