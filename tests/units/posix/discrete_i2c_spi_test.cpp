// The Travin (output bank k wired to input bank k) and the Wendal's I2C and SPI masters.
#include "UnitRig.h"

using namespace halden_test;

namespace {

using InService = CKVX_HdwKvxTravinDevice::CDiscreteInService;
using OutService = CKVX_HdwKvxTravinDevice::CDiscreteOutService;
using Change = CKVX_HdwDiscreteInService::CChange;
using SpiPort = CKVX_HdwKvxWendalDevice::CSpiPort;
using I2cMaster = CKVX_HdwKvxWendalDevice::CI2cMasterService;
using SpiMaster = CKVX_HdwKvxWendalDevice::CSpiMasterService;
using Bytes = std::vector<uint8_t>;
constexpr unsigned kWaitMs = 20000;

CKVX_HdwDiscreteInPort::CParameters InParams(uint32_t debounceUs)
{
    CKVX_HdwDiscreteInPort::CParameters p;
    p.DebounceUs = debounceUs;
    return p;
}

struct Bank {
    InService* In = nullptr;
    OutService* Out = nullptr;
};

class TravinRig : public ::testing::Test {
protected:
    void SetUp() override { ASSERT_NO_FATAL_FAILURE(rig.Start()); }

    // Both banks `bank` open with their services, once the input's first state came.
    Bank OpenBank(unsigned bank, uint32_t debounceUs)
    {
        Bank b{rig.OpenWith<InService>(HDW_PORT_DISCRETE_IN, bank, HDW_SERVICE_DISCRETE_IN, InParams(debounceUs)),
            rig.OpenWith<OutService>(
                HDW_PORT_DISCRETE_OUT, bank, HDW_SERVICE_DISCRETE_OUT, CKVX_HdwDiscreteOutPort::CParameters())};
        if (!b.In || !b.Out)
            return {};
        uint32_t state = 0;
        uint64_t time = 0;
        EXPECT_TRUE(WaitUntil([&] { return b.In->GetState(state, time) == 0 && b.Out->GetDriven(state, time) == 0; }));
        return b;
    }

    UnitRig rig{UnitNamed("travin"), false};
};

} // namespace

TEST_F(TravinRig, WritesShowUpAsInputChangesInTheirOrderAndPulsesAfterTheDebounce)
{
    auto* signals = rig.Enable<CKVX_HdwSignalService>(HDW_PORT_DISCRETE_IN, 1, HDW_SERVICE_SIGNAL);
    Bank b = OpenBank(1, 0);
    ASSERT_NE(b.In, nullptr);
    ASSERT_EQ(b.Out->Set(0x05), 0u);
    ASSERT_EQ(b.Out->Clear(0x01), 0u);
    ASSERT_EQ(b.Out->Toggle(0x80), 0u);
    ASSERT_EQ(b.Out->WriteAll(0x3C), 0u);
    const auto got = ReadAll<Change>(b.In, 4);
    ASSERT_EQ(got.size(), 4u);
    const uint32_t states[] = {0x05, 0x04, 0x84, 0x3C};
    const uint32_t changed[] = {0x05, 0x01, 0x80, 0xB8};
    for (size_t i = 0; i < 4; ++i) {
        EXPECT_EQ(std::tuple(got[i].State, got[i].Changed, got[i].Lost), std::tuple(states[i], changed[i], 0u)) << i;
        EXPECT_GT(got[i].TimeStamp, i > 0 ? got[i - 1].TimeStamp : 0) << i;
    }
    uint32_t driven = 0, commanded = 0;
    uint64_t time = 0;
    ASSERT_TRUE(WaitUntil([&] { return b.Out->GetDriven(driven, time) == 0 && driven == 0x3C; }));
    ASSERT_EQ(b.Out->GetCommanded(commanded), 0u);
    EXPECT_EQ(commanded, 0x3Cu);
    bool high = false, low = true;
    ASSERT_EQ(b.In->GetInput(5, high), 0u);
    ASSERT_EQ(b.In->GetInput(0, low), 0u);
    EXPECT_EQ(std::tuple(high, low), std::tuple(true, false));
    CKVX_HdwSignalService::CSignal sig;
    ASSERT_EQ(signals->WaitSignal(sig, 10000), 0u);
    EXPECT_EQ(std::tuple(sig.Kind, sig.Value, sig.Aux, sig.Port),
        std::tuple(unsigned(HDW_SIGNAL_DISCRETE_INPUT), 0x05u, 0x05u, rig.Port(HDW_PORT_DISCRETE_IN, 1)));
    EXPECT_EQ(rig.Sim.GetCounters().DiscreteInEvents[0], 0u); // the other banks saw nothing

    // After a debounce of 1 ms writes are separate changes and a pulse longer than it shows twice.
    Bank d = OpenBank(3, 1000);
    ASSERT_NE(d.In, nullptr);
    ASSERT_EQ(d.Out->Set(0x05), 0u);
    ASSERT_EQ(d.Out->Pulse(0x02, 20000), 0u);
    const auto pulse = ReadAll<Change>(d.In, 3);
    ASSERT_EQ(pulse.size(), 3u);
    EXPECT_EQ(std::tuple(pulse[0].Changed, pulse[1].Changed, pulse[1].State, pulse[2].State),
        std::tuple(0x05u, 0x02u, 0x07u, 0x05u));
    EXPECT_GT(pulse[1].TimeStamp, pulse[0].TimeStamp);
    EXPECT_NEAR(int64_t(pulse[2].TimeStamp - pulse[1].TimeStamp), 20000, 1000);
    ASSERT_EQ(d.Out->GetCommanded(commanded), 0u);
    EXPECT_EQ(commanded, 0x05u);
}

// A burst while the unit's frames are held back: it keeps 1024 changes; the next change carries the rest as lost.
TEST_F(TravinRig, ChangesBeyondTheUnitsQueueAreCountedAsLost)
{
    auto* in = rig.OpenWith<InService>(HDW_PORT_DISCRETE_IN, 0, HDW_SERVICE_DISCRETE_IN, InParams(0));
    ASSERT_NE(in, nullptr);
    uint32_t state = 0;
    uint64_t time = 0;
    ASSERT_TRUE(WaitUntil([&] { return in->GetState(state, time) == 0; }));
    constexpr unsigned kEdges = 4000;
    rig.Sim.SetAnswerDelayMs(1000); // no command is in flight meanwhile
    ASSERT_TRUE(rig.Sim.BounceInput(0, 0, kEdges, 2));
    ASSERT_TRUE(WaitUntil([&] {
        const hdwsim::Counters c = rig.Sim.GetCounters();
        return c.DiscreteInEvents[0] + c.DiscreteQueueFull == kEdges;
    }));
    rig.Sim.SetAnswerDelayMs(0);
    std::vector<Change> got;
    const auto readUntil = [&](const std::function<bool()>& done) {
        return WaitUntil([&] { return TakeAll(in, got), done(); });
    };
    ASSERT_TRUE(readUntil([&] { return got.size() == 1024; }));
    ASSERT_TRUE(rig.Sim.DriveInput(0, 0x02, 0x02));
    ASSERT_TRUE(readUntil([&] { return got.back().State & 0x02; }));
    const uint64_t dropped = rig.Sim.GetCounters().DiscreteQueueFull;
    uint64_t lost = 0;
    ASSERT_EQ(in->GetLostCount(lost), 0u);
    EXPECT_EQ(std::tuple(dropped, got.back().Lost, lost, got.size() + lost),
        std::tuple(kEdges - 1024, dropped, dropped, kEdges + 1));
}

// SPI in every mode and to a memory; I2C to EEPROMs (10-bit addresses too), missing acknowledges and bus faults.
TEST(Wendal, SpiAndI2cMastersCarryTransfersAndReportTheBusFaults)
{
    UnitRig rig(UnitNamed("wendal"), false);
    ASSERT_NO_FATAL_FAILURE(rig.Start());
    SpiMaster* s = rig.Enable<SpiMaster>(HDW_PORT_SPI, 0, HDW_SERVICE_SPI_MASTER);
    ASSERT_NE(s, nullptr);
    Bytes block(240);
    for (size_t i = 0; i < block.size(); ++i)
        block[i] = uint8_t(i * 7 + 3);
    for (uint8_t mode = 0; mode < 4; ++mode)
        for (bool lsb : {false, true})
            for (uint8_t bits : {8, 16}) {
                CKVX_HdwSpiPort::CParameters p;
                std::tie(p.Mode, p.LsbFirst, p.WordBits, p.ClockHz) = std::tuple(mode, lsb, bits, 7000000);
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

    I2cMaster* m = rig.OpenWith<I2cMaster>(HDW_PORT_I2C, 0, HDW_SERVICE_I2C_MASTER);
    I2cMaster* other = rig.OpenWith<I2cMaster>(HDW_PORT_I2C, 1, HDW_SERVICE_I2C_MASTER);
    ASSERT_TRUE(m && other);
    CKVX_HdwI2cTransfer w = I2c(0x50, {0x20, 1, 2, 3, 4, 5});
    ASSERT_EQ(m->Transfer(w, kWaitMs), 0u);
    EXPECT_EQ(std::tuple(w.Acked, w.Read.IsEmpty()), std::tuple(6u, true));
    CKVX_HdwI2cTransfer r = I2c(0x50, {0x20}, 5);
    ASSERT_EQ(m->Transfer(r, kWaitMs), 0u);
    EXPECT_EQ(r.Read.Items(), (Bytes{1, 2, 3, 4, 5}));
    EXPECT_GT(r.TimeStamp, 0u);

    // 10-bit addressing reaches the same EEPROM.
    CKVX_HdwI2cTransfer ten = I2c(0x250, {0x20}, 2, true);
    ASSERT_EQ(m->Transfer(ten, kWaitMs), 0u);
    EXPECT_EQ(ten.Read.Items(), (Bytes{1, 2}));

    // The other master has its own EEPROM, still erased.
    CKVX_HdwI2cTransfer fresh = I2c(0x50, {0x20}, 2);
    ASSERT_EQ(other->Transfer(fresh, kWaitMs), 0u);
    EXPECT_EQ(fresh.Read.Items(), (Bytes{0xFF, 0xFF}));

    // What, the fault injected, the transfer, its result, NACK on the address, bytes acknowledged, bus fault.
    const std::tuple<const char*, std::function<void()>, CKVX_HdwI2cTransfer, unsigned, bool, unsigned, unsigned>
        rows[] = {
            {"no one at 0x33", [] {}, I2c(0x33, {1, 2}), 33, true, 0, 0},
            {"probe of 0x20", [] {}, I2c(0x20, {}), 0, false, 0, 0},
            {"EEPROM byte 2 refused", [&] { rig.Sim.NackNextI2c(0, 2); }, I2c(0x50, {0, 9, 9, 9}, 4), 33, false, 2, 0},
            {"held bus", [&] { rig.Sim.HoldI2cBus(0, 60000); }, I2c(0x50, {0}), 34, false, 0, 1},
        };
    for (const auto& [name, inject, transfer, result, nackOnAddress, acked, fault] : rows) {
        inject();
        CKVX_HdwI2cTransfer t = transfer;
        EXPECT_EQ(m->Transfer(t, kWaitMs), result) << name;
        EXPECT_EQ(
            std::tuple(t.Result, t.NackOnAddress, t.Acked, t.Fault), std::tuple(result, nackOnAddress, acked, fault))
            << name;
        EXPECT_TRUE(t.Read.IsEmpty() || result == 0) << name;
    }
    // Arbitration lost on the other master.
    rig.Sim.LoseI2cArbitration(1);
    CKVX_HdwI2cTransfer lost = I2c(0x50, {0});
    EXPECT_EQ(other->Transfer(lost, kWaitMs), 34u);
    EXPECT_EQ(lost.Fault, 2u);
    const hdwsim::Counters c = rig.Sim.GetCounters();
    EXPECT_EQ(std::tuple(c.I2cNacks[0], c.I2cFaults[0] + c.I2cFaults[1]), std::tuple(2u, 2u));
    EXPECT_EQ(m->GetStatus(), unsigned(HDW_SERVICE_RUNNING)) << "a NACK or fault does not fail the service";
}
