// The Wendal unit's I2C and SPI masters through the whole library against
// the emulated unit on a pseudo-terminal: the EEPROM keeps what was written,
// a missing acknowledge is 33 (never a time-out), bus faults are 34, results
// come in submission order, SPI loopback and memory, and bad parameters are
// refused before anything is sent.
#include "UnitRig.h"

using namespace unit_test;

namespace {

using I2cPort = CKVX_HdwKvxWendalDevice::CI2cPort;
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

class WendalRig : public UnitRig {
public:
    explicit WendalRig(bool paced = false) : UnitRig(UnitNamed("wendal"), EmulatorOptions(false, paced)) {}

    I2cMaster* OpenI2c(unsigned ch, CKVX_HdwI2cPort::CParameters p = {})
    {
        auto* s = Enable<I2cMaster>(HDW_PORT_I2C, ch, HDW_SERVICE_I2C_MASTER);
        EXPECT_EQ(Open(HDW_PORT_I2C, ch, p), 0u);
        return s;
    }
    SpiMaster* OpenSpi(unsigned ch, CKVX_HdwSpiPort::CParameters p = {})
    {
        auto* s = Enable<SpiMaster>(HDW_PORT_SPI, ch, HDW_SERVICE_SPI_MASTER);
        EXPECT_EQ(Open(HDW_PORT_SPI, ch, p), 0u);
        return s;
    }
};

} // namespace

TEST(Wendal, PortsNumberedByKindAndChannel)
{
    WendalRig rig;
    rig.Start();
    for (unsigned type : {HDW_PORT_I2C, HDW_PORT_SPI}) {
        for (unsigned n = 0; n < 2; ++n) {
            CKVX_HdwPort* port = rig.Port(type, n);
            ASSERT_NE(port, nullptr) << type << " " << n;
            EXPECT_EQ(port->GetChannelId(), CKVX_String(std::to_string(n)));
        }
        EXPECT_EQ(rig.Port(type, 2), nullptr);
    }
    EXPECT_NE(dynamic_cast<I2cPort*>(rig.Port(HDW_PORT_I2C, 1)), nullptr);
    EXPECT_NE(dynamic_cast<SpiPort*>(rig.Port(HDW_PORT_SPI, 1)), nullptr);
    EXPECT_EQ(rig.Port(HDW_PORT_CAN, 0), nullptr);
    EXPECT_EQ(rig.Device->GetDeviceCode(), 7u);
}

TEST(Wendal, EepromWriteThenReadWithRepeatedStart)
{
    WendalRig rig;
    rig.Start();
    I2cMaster* m = rig.OpenI2c(0);
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

    // The same EEPROM over 10-bit addressing, and the page wrap: a write from
    // 0x3E runs on at 0x30.
    CKVX_HdwI2cTransfer wrap = I2c(0x250, {0x3E, 0xA0, 0xA1, 0xA2}, 0, true);
    ASSERT_EQ(m->Transfer(wrap, kWaitMs), 0u);
    CKVX_HdwI2cTransfer back = I2c(0x250, {0x30}, 1, true);
    ASSERT_EQ(m->Transfer(back, kWaitMs), 0u);
    EXPECT_EQ(back.Read.Items(), (Bytes{0xA2}));
    CKVX_HdwI2cTransfer top = I2c(0x50, {0x3E}, 2);
    ASSERT_EQ(m->Transfer(top, kWaitMs), 0u);
    EXPECT_EQ(top.Read.Items(), (Bytes{0xA0, 0xA1}));

    // The other master has its own EEPROM, still erased.
    I2cMaster* other = rig.OpenI2c(1);
    CKVX_HdwI2cTransfer fresh = I2c(0x50, {0x20}, 2);
    ASSERT_EQ(other->Transfer(fresh, kWaitMs), 0u);
    EXPECT_EQ(fresh.Read.Items(), (Bytes{0xFF, 0xFF}));
}

TEST(Wendal, MissingAcknowledgeAndBusFaults)
{
    WendalRig rig;
    rig.Start();
    I2cMaster* m = rig.OpenI2c(0);
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
        {"empty 10-bit address", [] {}, I2c(0x251, {1}, 0, true), 33, true, 0, 0},
        {"probe of no one", [] {}, I2c(0x34, {}), 33, true, 0, 0},
        {"0x20 takes no data", [] {}, I2c(0x20, {1, 2}), 33, false, 0, 0},
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
    I2cMaster* other = rig.OpenI2c(1);
    rig.Sim.LoseI2cArbitration(1);
    CKVX_HdwI2cTransfer lost = I2c(0x50, {0});
    EXPECT_EQ(other->Transfer(lost, kWaitMs), 34u);
    EXPECT_EQ(lost.Fault, 2u);
    const hdwsim::Counters c = rig.Sim.GetCounters();
    EXPECT_EQ(c.I2cNacks[0], 5u);
    EXPECT_EQ(c.I2cFaults[0] + c.I2cFaults[1], 2u);
    EXPECT_EQ(m->GetStatus(), unsigned(HDW_SERVICE_RUNNING)) << "a NACK or fault does not fail the service";
}

// Twenty transfers at once on each master, the unit running them at the
// bus speed: every result, per master in submission order, and none refused
// (a ninth waiting on the unit would be, status 4: result 2).
TEST(Wendal, ResultsInSubmissionOrder)
{
    WendalRig rig(true);
    rig.Start();
    I2cMaster* masters[2] = {rig.OpenI2c(0), rig.OpenI2c(1)};
    ASSERT_TRUE(masters[0] && masters[1]);
    constexpr uint32_t kCount = 20;
    for (uint32_t i = 0; i < kCount; ++i)
        for (unsigned ch = 0; ch < 2; ++ch) {
            // Every third one goes nowhere, so that the results differ.
            CKVX_HdwI2cTransfer t = i % 3 == 2 ? I2c(0x40, {1}) : I2c(0x50, {uint8_t(i)}, 1);
            t.Tag = ch * 1000 + i;
            ASSERT_EQ(masters[ch]->Submit(t), 0u);
        }
    for (unsigned ch = 0; ch < 2; ++ch) {
        std::vector<CKVX_HdwI2cTransfer> got;
        WaitUntil([&] {
            CKVX_HdwI2cTransfer t;
            while (masters[ch]->ReadResult(t) == 0)
                got.push_back(t);
            return got.size() == kCount;
        });
        ASSERT_EQ(got.size(), kCount);
        for (uint32_t i = 0; i < kCount; ++i) {
            EXPECT_EQ(got[i].Tag, ch * 1000 + i);
            EXPECT_EQ(got[i].Result, i % 3 == 2 ? 33u : 0u) << i;
        }
    }
    EXPECT_EQ(rig.Sim.GetCounters().I2cTransfers[0], kCount);
}

TEST(Wendal, SpiLoopbackInEveryModeAndTheMemory)
{
    WendalRig rig;
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
                EXPECT_EQ(rig.Port(HDW_PORT_SPI, 0)->GetPortType(), unsigned(HDW_PORT_SPI));
                EXPECT_EQ(static_cast<SpiPort*>(rig.Port(HDW_PORT_SPI, 0))->GetActualClockHz(hz), 0u);
                EXPECT_EQ(hz, 6000000u) << "30 MHz / 5, not faster than asked";
                CKVX_HdwSpiTransfer t = Spi(block);
                ASSERT_EQ(s->Transfer(t, kWaitMs), 0u);
                EXPECT_EQ(t.In.Items(), block) << int(mode) << lsb << int(bits);
                ASSERT_EQ(rig.Port(HDW_PORT_SPI, 0)->Close(), 0u);
            }
    // 12-bit words: the unused upper bits come back 0.
    CKVX_HdwSpiPort::CParameters p12;
    p12.WordBits = 12;
    ASSERT_EQ(rig.Open(HDW_PORT_SPI, 0, p12), 0u);
    CKVX_HdwSpiTransfer w12 = Spi({0xFF, 0xFF, 0x34, 0x12});
    ASSERT_EQ(s->Transfer(w12, kWaitMs), 0u);
    EXPECT_EQ(w12.In.Items(), (Bytes{0xFF, 0x0F, 0x34, 0x02}));
    ASSERT_EQ(rig.Port(HDW_PORT_SPI, 0)->Close(), 0u);

    // The memory on chip select 1 keeps what was written.
    SpiMaster* mem = rig.OpenSpi(1);
    CKVX_HdwSpiTransfer write = Spi({0x02, 0x01, 0x00, 0xDE, 0xAD}, 1);
    ASSERT_EQ(mem->Transfer(write, kWaitMs), 0u);
    CKVX_HdwSpiTransfer read = Spi({0x03, 0x01, 0x00, 0, 0}, 1);
    ASSERT_EQ(mem->Transfer(read, kWaitMs), 0u);
    EXPECT_EQ(read.In.Items(), (Bytes{0xFF, 0xFF, 0xFF, 0xDE, 0xAD}));
    CKVX_HdwSpiTransfer nobody = Spi({1, 2}, 2);
    ASSERT_EQ(mem->Transfer(nobody, kWaitMs), 0u);
    EXPECT_EQ(nobody.In.Items(), (Bytes{0xFF, 0xFF}));
}

// Refused before anything goes to the unit: the unit sees no command and
// the port keeps its settings.
TEST(Wendal, BadParametersChangeNothing)
{
    WendalRig rig;
    rig.Start();
    I2cMaster* i2c = rig.OpenI2c(0);
    SpiMaster* spi = rig.Enable<SpiMaster>(HDW_PORT_SPI, 0, HDW_SERVICE_SPI_MASTER);
    ASSERT_TRUE(i2c && spi);
    CKVX_HdwSpiPort::CParameters p16;
    p16.WordBits = 16;
    p16.ClockHz = 2000000;
    ASSERT_EQ(rig.Open(HDW_PORT_SPI, 0, p16), 0u);
    ASSERT_TRUE(WaitUntil([&] { return rig.Sim.GetCounters().CommandsByCode[114] == 1; }));
    const hdwsim::Counters before = rig.Sim.GetCounters();

    auto spiWith = [](auto change) {
        CKVX_HdwSpiPort::CParameters p;
        change(p);
        return p;
    };
    CKVX_HdwI2cTransfer over7 = I2c(0x80, {1});
    CKVX_HdwI2cTransfer over10 = I2c(0x400, {1}, 0, true);
    CKVX_HdwI2cTransfer longWrite = I2c(0x50, Bytes(241));
    CKVX_HdwI2cTransfer longRead = I2c(0x50, {0}, 241);
    CKVX_HdwSpiTransfer ragged = Spi({1, 2, 3});
    CKVX_HdwSpiTransfer longBlock = Spi(Bytes(242));
    CKVX_HdwSpiTransfer empty = Spi({});
    CKVX_HdwSpiTransfer badSelect = Spi({1, 2}, 4);
    CKVX_HdwI2cPort::CParameters badSpeed;
    badSpeed.BusSpeed = 3400000;
    CKVX_HdwI2cPort::CParameters badTimeout;
    badTimeout.BusTimeoutMs = 0;
    const struct {
        const char* name;
        unsigned actual;
    } rows[] = {
        {"I2C 7-bit 0x80", i2c->Submit(over7)},
        {"I2C 10-bit 0x400", i2c->Submit(over10)},
        {"I2C write 241", i2c->Submit(longWrite)},
        {"I2C read 241", i2c->Transfer(longRead, 10)},
        {"SPI ragged 16-bit block", spi->Submit(ragged)},
        {"SPI 242 bytes", spi->Submit(longBlock)},
        {"SPI empty", spi->Submit(empty)},
        {"SPI chip select 4", spi->Transfer(badSelect, 10)},
        {"I2C port 3.4 MHz", rig.Open(HDW_PORT_I2C, 1, badSpeed)},
        {"I2C port time-out 0", rig.Open(HDW_PORT_I2C, 1, badTimeout)},
        {"SPI port mode 4", rig.Open(HDW_PORT_SPI, 1, spiWith([](auto& p) { p.Mode = 4; }))},
        {"SPI port 500 Hz", rig.Open(HDW_PORT_SPI, 1, spiWith([](auto& p) { p.ClockHz = 500; }))},
        {"SPI port 31 MHz", rig.Open(HDW_PORT_SPI, 1, spiWith([](auto& p) { p.ClockHz = 31000000; }))},
        {"SPI port word 17", rig.Open(HDW_PORT_SPI, 1, spiWith([](auto& p) { p.WordBits = 17; }))},
        {"SPI port chip select 4", rig.Open(HDW_PORT_SPI, 1, spiWith([](auto& p) { p.ChipSelect = 4; }))},
    };
    for (const auto& r : rows)
        EXPECT_EQ(r.actual, 2u) << r.name;

    // The ports that refused to open have nothing enabled, so no service
    // was needed: they must be closed and unchanged.
    EXPECT_FALSE(rig.Port(HDW_PORT_SPI, 1)->IsOpen());
    EXPECT_FALSE(rig.Port(HDW_PORT_I2C, 1)->IsOpen());
    CKVX_HdwSpiPort::CParameters now;
    ASSERT_EQ(static_cast<SpiPort*>(rig.Port(HDW_PORT_SPI, 1))->GetParameters(&now), 0u);
    EXPECT_EQ(now.Mode, 0u);
    EXPECT_EQ(now.ClockHz, 1000000u);
    unsigned pending = 9;
    EXPECT_EQ(i2c->GetPendingCount(pending), 0u);
    EXPECT_EQ(pending, 0u);
    EXPECT_EQ(spi->GetPendingCount(pending), 0u);
    EXPECT_EQ(pending, 0u);

    // A good transfer still goes, and it is the only command the unit saw since.
    CKVX_HdwSpiTransfer good = Spi({1, 2});
    ASSERT_EQ(spi->Transfer(good, kWaitMs), 0u);
    const hdwsim::Counters after = rig.Sim.GetCounters();
    EXPECT_EQ(after.CommandsReceived, before.CommandsReceived + 1);
    EXPECT_EQ(after.CommandsByCode[117], before.CommandsByCode[117] + 1);
    EXPECT_EQ(after.CommandsByCode[116], 0u);
}
