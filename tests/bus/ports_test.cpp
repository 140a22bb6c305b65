// The generic bus ports: their parameters and which services each admits.
#include "TestBusDevice.h"

#include <tuple>
#include <vector>

using namespace bustest;

TEST(Arinc429PortParameters, WordIntergap)
{
    // 0.4 us rounds down, 0.5 us up.
    const std::tuple<unsigned, double, int> cases[] = {{12500, 4, 320}, {100000, 0.04, 0}, {100000, 0.05, 1}};
    for (const auto& [rate, bits, gap] : cases)
        EXPECT_EQ(CKVX_HdwArinc429TxPort::CalcWordIntergap(rate, bits), gap) << rate << " " << bits;
}

class BusPorts : public ::testing::Test {
protected:
    CBusRig rig;
};

TEST_F(BusPorts, Arinc429OpenInstallsParametersEvenWhenItFailsMilStd1553ValidOnesOnly)
{
    CTestRxPort* rx = rig.Rx();
    CKVX_HdwArinc429RxPort::CParameters p;
    std::tie(p.BaudRate, p.Parity, p.PortNum) = std::tuple(100000u, 2, 9u);
    // No service enabled: the base open refuses, the parameters stay.
    EXPECT_EQ(rx->Open(&p), 15u);
    CKVX_HdwArinc429RxPort::CParameters back;
    EXPECT_EQ(rx->GetParameters(&back), 0u);
    EXPECT_EQ(std::tuple(back.BaudRate, back.Parity, back.PortNum), std::tuple(100000u, 2, 9u));
    EXPECT_FALSE(rx->IsOpen());
    CKVX_HdwArinc429TxPort::CParameters wrongClass;
    EXPECT_EQ(rx->Open(&wrongClass), 2u);

    // The MIL-STD-1553 port installs valid parameters only.
    CTestMilPort* mil = rig.Mil();
    ASSERT_NE(Enable<CTestSignalService>(mil, 1), nullptr);
    CKVX_HdwMilStd1553Port::CParameters mp;
    const std::pair<unsigned, unsigned> bad[] = {{3, 1}, {256, 1}, {20, 2}};
    for (const auto& [timeout, coupling] : bad) {
        mp.ResponseTimeoutUs = timeout;
        mp.Coupling = uint8_t(coupling);
        EXPECT_EQ(mil->Open(&mp), 2u) << timeout << " " << coupling;
    }
    CKVX_HdwCanPort::CParameters other;
    EXPECT_EQ(mil->Open(&other), 2u);
    EXPECT_FALSE(mil->IsOpen());
    CKVX_HdwMilStd1553Port::CParameters milBack;
    ASSERT_EQ(mil->GetParameters(&milBack), 0u);
    EXPECT_EQ(milBack.ResponseTimeoutUs, 14u); // refused opens changed nothing

    mp.Coupling = CKVX_HdwMilStd1553Port::CParameters::CouplingDirect;
    EXPECT_EQ(mil->Open(&mp), 0u);
}

namespace {

// Enables (or disables) each type in turn and expects the same result.
struct Step {
    std::vector<unsigned> types;
    unsigned rc;
    bool disable = false;
};

struct PortScript {
    const char* name;
    CKVX_HdwPort* (*port)(CBusRig&);
    unsigned portType;
    unsigned admitted; // a type the port takes while closed
    unsigned finalCount;
    std::vector<Step> steps;
};

// clang-format off
const PortScript kScripts[] = {
    {"ARINC 429 RX", [](CBusRig& r) -> CKVX_HdwPort* { return r.Rx(); }, 3, 4, 2, {
        {{3, 5, 7, 8, 9, 15, 0, 99}, 10},
        {{4}, 0},
        {{4}, 26},
        {{6, 2}, 10},  // the input buffer excludes the other readers
        {{1}, 0},
        {{1}, 26},
        {{4}, 0, true},
        {{6}, 0},
        {{4, 2}, 10},  // so does the label-oriented input
        {{6}, 0, true},
        {{2}, 0},
        {{4, 6}, 10},  // and the byte input
    }},
    {"ARINC 429 TX", [](CBusRig& r) -> CKVX_HdwPort* { return r.Tx(); }, 2, 5, 2, {
        {{2, 4, 6, 8, 9}, 10},
        {{7, 15, 1}, 0},  // label-oriented output and data generator go together...
        {{5, 3}, 10},     // ...and refuse either buffer service
        {{15, 7}, 26},
        {{7, 15}, 0, true},
        {{5}, 0},
        {{3, 7, 15}, 10},  // each buffer service runs alone
        {{5}, 0, true},
        {{3}, 0},
        {{5, 7, 15}, 10},
    }},
    {"CAN", [](CBusRig& r) -> CKVX_HdwPort* { return r.Can(); }, 4, 9, 5, {
        {{4, 5, 6, 7, 10, 15}, 10},
        {{9, 2, 3, 8, 1}, 0},  // no exclusion
        {{1, 2, 3, 8, 9}, 26},
    }},
    {"MIL-STD-1553", [](CBusRig& r) -> CKVX_HdwPort* { return r.Mil(); }, 5, 1, 2, {
        {{2, 3, 8, 9, 17}, 10},
        {{1}, 0},
        {{1}, 26},
        {{10}, 0},   // a bus controller beside the signals...
        {{10}, 26},
        {{11}, 10},  // ...excludes a remote terminal
        {{10}, 0, true},
        {{11}, 0},
        {{11}, 26},
        {{10}, 10},  // and the other way round
    }},
    {"discrete in", [](CBusRig& r) -> CKVX_HdwPort* { return r.DiscreteIn(); }, 6, 17, 2, {
        {{1, 17}, 0},
        {{18}, 10},
    }},
    {"discrete out", [](CBusRig& r) -> CKVX_HdwPort* { return r.DiscreteOut(); }, 7, 18, 2, {
        {{1, 18}, 0},
    }},
    {"I2C", [](CBusRig& r) -> CKVX_HdwPort* { return r.I2c(); }, 8, 16, 1, {
        {{1, 14}, 10},
        {{16}, 0},
        {{16}, 26},
    }},
    {"SPI", [](CBusRig& r) -> CKVX_HdwPort* { return r.Spi(); }, 9, 14, 1, {
        {{16}, 10},
        {{14}, 0},
    }},
};
// clang-format on

} // namespace

TEST_F(BusPorts, EachPortAdmitsItsServicesAndExcludesTheRest)
{
    for (const PortScript& script : kScripts) {
        CKVX_HdwPort* port = script.port(rig);
        ASSERT_NE(port, nullptr) << script.name;
        EXPECT_EQ(port->GetPortType(), script.portType) << script.name;
        for (const Step& step : script.steps)
            for (unsigned type : step.types) {
                CKVX_HdwService* s = nullptr;
                const unsigned rc = step.disable ? port->DisableService(port->FindService(type))
                                                 : port->EnableService(type, &s, nullptr);
                EXPECT_EQ(rc, step.rc) << script.name << " type " << type << (step.disable ? " disabled" : "");
                EXPECT_EQ(s != nullptr, rc == 0 && !step.disable) << script.name << " type " << type;
            }
        EXPECT_EQ(port->GetServiceCount(), script.finalCount) << script.name;
    }
}

TEST_F(BusPorts, BaseRulesComeBeforeEachPortsOwnTable)
{
    // An open port or a stopped manager answers 10 where the port's table would say 26.
    for (const PortScript& script : kScripts) {
        CKVX_HdwPort* port = script.port(rig);
        CKVX_HdwService* s = nullptr;
        ASSERT_EQ(port->EnableService(script.admitted, &s, nullptr), 0u) << script.name;
        ASSERT_EQ(port->Open(nullptr), 0u) << script.name;
        EXPECT_EQ(port->EnableService(script.admitted, &s, nullptr), 10u) << script.name;
        ASSERT_EQ(port->Close(), 0u);
    }
    rig.Manager.Stop();
    for (const PortScript& script : kScripts) {
        CKVX_HdwService* s = nullptr;
        EXPECT_EQ(script.port(rig)->EnableService(script.admitted, &s, nullptr), 10u) << script.name;
    }
}
