// The Wendal's I2C and SPI masters against the emulated unit: a missing
// acknowledge is 33 (never a time-out), bus faults are 34.
#include "UnitRig.h"

using namespace unit_test;

namespace {

using SpiPort = CKVX_HdwKvxWendalDevice::CSpiPort;
using I2cMaster = CKVX_HdwKvxWendalDevice::CI2cMasterService;
using SpiMaster = CKVX_HdwKvxWendalDevice::CSpiMasterService;

constexpr unsigned kWaitMs = 20000;

using Bytes = std::vector<uint8_t>;
CKVX_HdwI2cTransfer I2c(uint16_t address, const Bytes& write, uint32_t read = 0, bool tenBit = false)
{
    CKVX_HdwI2cTransfer t;
    t.Address = address;
    t.TenBit = tenBit;
    t.Write = CKVX_Uint8Vector(write.data(), unsigned(write.size()));
    t.ReadLength = read;
    return t;
}

CKVX_HdwSpiTransfer Spi(const Bytes& out, uint8_t chipSelect = CKVX_HdwSpiTransfer::PortChipSelect)
{
    CKVX_HdwSpiTransfer t;
    t.Out = CKVX_Uint8Vector(out.data(), unsigned(out.size()));
    t.ChipSelect = chipSelect;
    return t;
}

} // namespace

TEST(Wendal, EepromWriteThenReadWithRepeatedStart)
{
    UnitRig rig(UnitNamed("wendal"), false);
    rig.Start();
    I2cMaster* m = rig.OpenWith<I2cMaster>(HDW_PORT_I2C, 0, HDW_SERVICE_I2C_MASTER);
    ASSERT_NE(m, nullptr);
    // Word address 0x20, then five bytes.
    CKVX_HdwI2cTransfer w = I2c(0x50, {0x20, 1, 2, 3, 4, 5});
    ASSERT_EQ(m->Transfer(w, kWaitMs), 0u);
    EXPECT_EQ(w.Acked, 6u);
    EXPECT_TRUE(w.Read.IsEmpty());
    CKVX_HdwI2cTransfer r = I2c(0x50, {0x20}, 5);
    ASSERT_EQ(m->Transfer(r, kWaitMs), 0u);
    EXPECT_EQ(r.Read.Items(), (Bytes{1, 2, 3, 4, 5}));
    EXPECT_GT(r.TimeStamp, 0u);

    // 10-bit addressing reaches the same EEPROM.
    CKVX_HdwI2cTransfer ten = I2c(0x250, {0x20}, 2, true);
    ASSERT_EQ(m->Transfer(ten, kWaitMs), 0u);
    EXPECT_EQ(ten.Read.Items(), (Bytes{1, 2}));

    // The other master has its own EEPROM, still erased.
    I2cMaster* other = rig.OpenWith<I2cMaster>(HDW_PORT_I2C, 1, HDW_SERVICE_I2C_MASTER);
    CKVX_HdwI2cTransfer fresh = I2c(0x50, {0x20}, 2);
    ASSERT_EQ(other->Transfer(fresh, kWaitMs), 0u);
    EXPECT_EQ(fresh.Read.Items(), (Bytes{0xFF, 0xFF}));
}

TEST(Wendal, MissingAcknowledgeAndBusFaults)
{
    UnitRig rig(UnitNamed("wendal"), false);
    rig.Start();
    I2cMaster* m = rig.OpenWith<I2cMaster>(HDW_PORT_I2C, 0, HDW_SERVICE_I2C_MASTER);
    ASSERT_NE(m, nullptr);
    const struct {
        const char* name;
        std::function<void()> inject;
        CKVX_HdwI2cTransfer t;
        unsigned result;
        bool nackOnAddress;
        unsigned acked;
        unsigned fault;
    } rows[] = {
        {"no one at 0x33", [] {}, I2c(0x33, {1, 2}), 33, true, 0, 0},
        {"probe of 0x20", [] {}, I2c(0x20, {}), 0, false, 0, 0},
        {"EEPROM byte 2 refused", [&] { rig.Sim.NackNextI2c(0, 2); }, I2c(0x50, {0, 9, 9, 9}, 4), 33, false, 2, 0},
        {"held bus", [&] { rig.Sim.HoldI2cBus(0, 60000); }, I2c(0x50, {0}), 34, false, 0, 1},
    };
    for (const auto& r : rows) {
        r.inject();
        CKVX_HdwI2cTransfer t = r.t;
        EXPECT_EQ(m->Transfer(t, kWaitMs), r.result) << r.name;
        EXPECT_EQ(t.Result, r.result) << r.name;
        EXPECT_EQ(t.NackOnAddress, r.nackOnAddress) << r.name;
        EXPECT_EQ(t.Acked, r.acked) << r.name;
        EXPECT_EQ(t.Fault, r.fault) << r.name;
        EXPECT_TRUE(t.Read.IsEmpty() || r.result == 0) << r.name;
    }
    // Arbitration lost on the other master.
    I2cMaster* other = rig.OpenWith<I2cMaster>(HDW_PORT_I2C, 1, HDW_SERVICE_I2C_MASTER);
    rig.Sim.LoseI2cArbitration(1);
    CKVX_HdwI2cTransfer lost = I2c(0x50, {0});
    EXPECT_EQ(other->Transfer(lost, kWaitMs), 34u);
    EXPECT_EQ(lost.Fault, 2u);
    const hdwsim::Counters c = rig.Sim.GetCounters();
    EXPECT_EQ(c.I2cNacks[0], 2u);
    EXPECT_EQ(c.I2cFaults[0] + c.I2cFaults[1], 2u);
    EXPECT_EQ(m->GetStatus(), unsigned(HDW_SERVICE_RUNNING)) << "a NACK or fault does not fail the service";
}

TEST(Wendal, SpiLoopbackInEveryModeAndTheMemory)
{
    UnitRig rig(UnitNamed("wendal"), false);
    rig.Start();
    SpiMaster* s = rig.Enable<SpiMaster>(HDW_PORT_SPI, 0, HDW_SERVICE_SPI_MASTER);
    ASSERT_NE(s, nullptr);
    Bytes block(240);
    for (size_t i = 0; i < block.size(); ++i)
        block[i] = uint8_t(i * 7 + 3);
    for (uint8_t mode = 0; mode < 4; ++mode)
        for (bool lsb : {false, true})
            for (uint8_t bits : {8, 16}) {
                CKVX_HdwSpiPort::CParameters p;
                p.Mode = mode;
                p.LsbFirst = lsb;
                p.WordBits = bits;
                p.ClockHz = 7000000;
                ASSERT_EQ(rig.Open(HDW_PORT_SPI, 0, p), 0u);
                uint32_t hz = 0;
                EXPECT_EQ(static_cast<SpiPort*>(rig.Port(HDW_PORT_SPI, 0))->GetActualClockHz(hz), 0u);
                EXPECT_EQ(hz, 6000000u) << "30 MHz / 5, not faster than asked";
                CKVX_HdwSpiTransfer t = Spi(block);
                ASSERT_EQ(s->Transfer(t, kWaitMs), 0u);
                EXPECT_EQ(t.In.Items(), block) << int(mode) << lsb << int(bits);
                ASSERT_EQ(rig.Port(HDW_PORT_SPI, 0)->Close(), 0u);
            }

    // The memory on chip select 1 keeps what was written.
    SpiMaster* mem = rig.OpenWith<SpiMaster>(HDW_PORT_SPI, 1, HDW_SERVICE_SPI_MASTER);
    CKVX_HdwSpiTransfer write = Spi({0x02, 0x01, 0x00, 0xDE, 0xAD}, 1);
    ASSERT_EQ(mem->Transfer(write, kWaitMs), 0u);
    CKVX_HdwSpiTransfer read = Spi({0x03, 0x01, 0x00, 0, 0}, 1);
    ASSERT_EQ(mem->Transfer(read, kWaitMs), 0u);
    EXPECT_EQ(read.In.Items(), (Bytes{0xFF, 0xFF, 0xFF, 0xDE, 0xAD}));
    CKVX_HdwSpiTransfer nobody = Spi({1, 2}, 2);
    ASSERT_EQ(mem->Transfer(nobody, kWaitMs), 0u);
    EXPECT_EQ(nobody.In.Items(), (Bytes{0xFF, 0xFF}));
}
