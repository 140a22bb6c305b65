#include "TestDevice.h"

#include <set>
#include <tuple>

using namespace fwtest;

namespace {

TEST(ManagerEnumerate, AbsoluteNumbersPerTypeInAttachmentInstanceAndChannelOrderAndLinksGoToTheirDevice)
{
    TestDevice a{10, 2,
        {{HDW_PORT_ARINC429_TX, "0"}, {HDW_PORT_ARINC429_TX, "1"}, {HDW_PORT_ARINC429_RX, "0"}, {HDW_PORT_CAN, "0"}}};
    TestDevice b{11, 1, {{HDW_PORT_ARINC429_TX, "0"}, {HDW_PORT_CAN, "0"}, {HDW_PORT_CAN, "1"}}};
    CKVX_HdwManager m;
    ASSERT_EQ(m.AttachDevice(&a), 0u);
    ASSERT_EQ(m.AttachDevice(&b), 0u);
    // Explicit links go to the device with their code; b, with no link and no scan, keeps no units.
    CKVX_HdwManager::CInitPortDesc links[] = {{10, "/dev/pts/7"}, {9, "/dev/ttyUSB0"}, {10, "dead"}};
    ASSERT_EQ(m.Enumerate(links, 3, CKVX_HdwManager::EnumerateNoScan), 0u);
    EXPECT_EQ(a.seenLinks, (std::vector<std::string>{"/dev/pts/7", "dead"}));
    EXPECT_FALSE(a.seenScan);
    EXPECT_EQ(links[0].Result, 0u);
    EXPECT_EQ(links[1].Result, 2u) << "no attached device has code 9";
    EXPECT_EQ(links[2].Result, 14u);
    EXPECT_EQ(b.GetInstanceCount(), 0u);
    EXPECT_EQ(m.GetPortCount(HDW_PORT_CAN), 2u);
    EXPECT_EQ(m.Enumerate(nullptr, 2, 0), 2u);

    ASSERT_EQ(m.Enumerate(), 0u);
    ASSERT_EQ(m.Enumerate(), 0u); // numbering starts from zero again
    EXPECT_TRUE(b.seenScan);

    EXPECT_EQ(m.GetPortCount(HDW_PORT_ARINC429_TX), 5u);
    EXPECT_EQ(m.GetPortCount(HDW_PORT_ARINC429_RX), 2u);
    EXPECT_EQ(m.GetPortCount(HDW_PORT_CAN), 4u);
    EXPECT_EQ(m.GetPort(HDW_PORT_ARINC429_TX, 1), a.Port(0, 1));
    EXPECT_EQ(m.GetPort(HDW_PORT_ARINC429_TX, 2), a.Port(1, 0));
    EXPECT_EQ(m.GetPort(HDW_PORT_ARINC429_TX, 4), b.Port(0, 0));
    EXPECT_EQ(m.GetPort(HDW_PORT_CAN, 1), a.Port(1, 3));
    EXPECT_EQ(m.GetPort(HDW_PORT_CAN, 3), b.Port(0, 2));
    EXPECT_EQ(m.GetPort(HDW_PORT_CAN, 4), nullptr);
    EXPECT_EQ(m.GetPort(999, 0), nullptr);

    CKVX_HdwManager::CPortInfoVector list;
    ASSERT_EQ(m.GetPortList(list), 0u);
    ASSERT_EQ(list.GetLength(), 11u);
    for (unsigned i = 1; i < list.GetLength(); ++i)
        EXPECT_LE(list[i - 1].AbsNum, list[i].AbsNum) << "the list is sorted by number";
    ASSERT_EQ(m.GetPortList(HDW_PORT_CAN, list), 0u);
    ASSERT_EQ(list.GetLength(), 4u);
    EXPECT_EQ(list[3].DeviceCode, 11u);
    EXPECT_EQ(list[3].ChannelId, "1");
}

TEST(ManagerRun, AttachRefusalsAFailingDeviceRunStopsTheRestRunTwiceIsHarmlessAndStopGoesInOrder)
{
    TestDevice a{1, 1, {}}, sameCode{1, 1, {}}, b{2, 1, {}}, c{3, 1, {}}, late{4, 1, {}};
    b.RunResult = 13;
    CKVX_HdwManager m;
    EXPECT_EQ(m.AttachDevice(&a), 0u);
    EXPECT_EQ(m.AttachDevice(&a), 7u);
    EXPECT_EQ(m.AttachDevice(&sameCode), 7u);
    EXPECT_EQ(sameCode.GetManager(), nullptr);
    EXPECT_EQ(m.AttachDevice(nullptr), 2u);
    for (TestDevice* d : {&b, &c})
        ASSERT_EQ(m.AttachDevice(d), 0u);
    EXPECT_EQ(m.GetDeviceCount(), 3u);
    EXPECT_EQ(a.GetManager(), &m);
    ASSERT_EQ(m.Enumerate(), 0u);
    EXPECT_EQ(m.Run(), 13u);
    EXPECT_FALSE(m.IsRunning());
    EXPECT_EQ(a.log.Take(), std::vector<std::string>{"dev1.Run"});
    EXPECT_EQ(b.log.Take(), std::vector<std::string>{"dev2.Run"});
    EXPECT_TRUE(c.log.Take().empty());
    EXPECT_EQ(m.GetTickCounter(), 0u) << "the timer must not have started";
    EXPECT_EQ(m.Stop(), 0u);
    EXPECT_TRUE(a.log.Take().empty()) << "Stop of a stopped manager does nothing";

    b.RunResult = 0;
    ASSERT_EQ(m.Run(), 0u);
    ASSERT_EQ(m.Run(), 0u);
    EXPECT_EQ(a.log.Take(), std::vector<std::string>{"dev1.Run"});
    EXPECT_EQ(c.log.Take(), std::vector<std::string>{"dev3.Run"});
    EXPECT_TRUE(m.IsRunning());
    EXPECT_EQ(m.AttachDevice(&late), 10u);
    EXPECT_EQ(m.Enumerate(), 10u);
    ASSERT_EQ(m.Stop(), 0u);
    EXPECT_FALSE(m.IsRunning());
    EXPECT_EQ(a.log.Take(), (std::vector<std::string>{"dev1.Stop", "dev.Close(0)"}));
    EXPECT_EQ(c.log.Take(), (std::vector<std::string>{"dev3.Stop", "dev.Close(0)"}));
}

TEST(ManagerSysEthPorts, ConcurrentBorrowersNeverGetAPortTwiceAndThePoolRunsOut)
{
    CKVX_HdwManager m;
    unsigned short p = 0;
    std::mutex mu;
    std::multiset<unsigned short> seen;
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t)
        threads.emplace_back([&] {
            for (int i = 0; i < 16; ++i) {
                unsigned short q = 0;
                if (m.GetSysEthPort(q) == 0) {
                    std::lock_guard<std::mutex> lock(mu);
                    seen.insert(q);
                }
            }
        });
    for (auto& t : threads)
        t.join();
    EXPECT_EQ(seen.size(), size_t(CKVX_HdwManager::SysEthPortCount));
    for (unsigned short q : seen)
        EXPECT_EQ(seen.count(q), 1u) << "port " << q << " lent twice";
    EXPECT_EQ(m.GetSysEthPort(p), 21u);
    m.ReleaseSysEthPort(0); // ignored
    EXPECT_EQ(m.GetSysEthPort(p), 21u);
    m.ReleaseSysEthPort(CKVX_HdwManager::SysEthPortFirst + 7);
    ASSERT_EQ(m.GetSysEthPort(p), 0u);
    EXPECT_EQ(p, CKVX_HdwManager::SysEthPortFirst + 7);
}

using CPortIdentifier = CKVX_HdwManager::CPortIdentifier;

// Worked out independently with a bit-by-bit CRC-16 (0x1021, init 0xFFFF).
const char* const kHaldenKey = "2@0@Kalvionix Engineering@Halden@1.0@SN1234@00000003@5C00";
const char* const kLinkKey = "4@7@M@F@@/dev/pts/7@00000001@C75E";

TEST(PortIdentifier, BuildsTheKnownKeysRefusesWhatCannotBeAKeyParsesThemBackAndMatchesWithoutTheNumber)
{
    CPortIdentifier id;
    ASSERT_EQ(id.Set(4, 7, "M", "F", "", "/dev/pts/7", 1), 0u);
    EXPECT_EQ(id.GetKeyString(), kLinkKey);
    ASSERT_EQ(id.Set(2, 0, "Kalvionix Engineering", "Halden", "1.0", "SN1234", 3), 0u);
    EXPECT_EQ(id.GetKeyString(), kHaldenKey);
    EXPECT_EQ(id.Set(0, 0, "M", "F", "R", "S", 0), 2u) << "port type 0";
    EXPECT_EQ(id.Set(2, 0, "M", "F", "R", "S@N", 0), 2u) << "serial number with @";
    EXPECT_EQ(id.GetKeyString(), kHaldenKey) << "a refused build leaves the previous key";

    EXPECT_TRUE(CPortIdentifier::IsValid(kHaldenKey) && CPortIdentifier::IsValid(kLinkKey));
    EXPECT_FALSE(CPortIdentifier::IsValid(""));
    EXPECT_FALSE(CPortIdentifier::IsValid("2@0@Kalvionix Engineering@Halden@1.0@SN1234@00000003@5c00")) << "lower case";
    EXPECT_FALSE(CPortIdentifier::IsValid("2@0@Kalvionix Engineering@Halden@1.0@SN1234@00000003@5C01")) << "wrong CRC";
    EXPECT_FALSE(CPortIdentifier::IsValid("2@0@Kalvionix Engineering@Halden@1.0@SN1234@5C00")) << "a field missing";
    CPortIdentifier parsed;
    ASSERT_EQ(parsed.Set(CKVX_String(kHaldenKey)), 0u);
    EXPECT_NE(parsed.Set(CKVX_String("2@0@x@y@z@w@00000003@0000")), 0u);
    EXPECT_EQ(parsed.GetKeyString(), kHaldenKey) << "a failed parse keeps the previous contents";
    EXPECT_EQ(parsed.GetFullName(), "Halden");
    unsigned type = 0, abs = 99, channel = 0;
    CKVX_String m, f, r, sn;
    ASSERT_EQ(parsed.Get(&type, &abs, &m, &f, &r, &sn, &channel), 0u);
    CPortIdentifier again;
    ASSERT_EQ(again.Set(type, abs, m, f, r, sn, channel), 0u);
    EXPECT_EQ(again.GetKeyString(), kHaldenKey);

    // A match ignores the absolute number, not the channel, type or unit.
    ASSERT_EQ(id.Set(2, 0, "M", "F", "R", "S", 3), 0u);
    ASSERT_EQ(again.Set(2, 5, "M", "F", "R", "S", 3), 0u);
    EXPECT_TRUE(id.CheckMatch(again));
    EXPECT_TRUE(id.CheckMatch(again.GetKeyString()));
    for (const auto& [t, unit, ch] : {std::tuple(2u, "S", 4u), std::tuple(3u, "S", 3u), std::tuple(2u, "S2", 3u)}) {
        ASSERT_EQ(again.Set(t, 0, "M", "F", "R", unit, ch), 0u);
        EXPECT_FALSE(id.CheckMatch(again)) << t << " " << unit << " " << ch;
    }
    EXPECT_FALSE(id.CheckMatch(CKVX_String("garbage")));
}

TEST(PortIdentifierManager, AGoneUnitIsNotFoundAndAUnitWithoutSerialNumberIsKnownByItsLink)
{
    TestDevice device{20, 2, {{HDW_PORT_CAN, "0"}, {HDW_PORT_CAN, "1"}}};
    device.Serials = {"A100", "B200"};
    CKVX_HdwManager m;
    ASSERT_EQ(m.AttachDevice(&device), 0u);
    ASSERT_EQ(m.Enumerate(), 0u);
    const CKVX_HdwManager::CPortDescriptor* d = m.GetPortDescriptor(HDW_PORT_CAN, 3);
    ASSERT_NE(d, nullptr);
    const CKVX_String stored = d->Key; // CAN channel 1 of unit B200
    ASSERT_NE(m.FindPort(stored), nullptr);

    device.Serials = {"", "A100"};
    ASSERT_EQ(m.Enumerate(), 0u);
    EXPECT_EQ(m.FindPort(stored), nullptr);
    EXPECT_EQ(m.FindPort("not a key"), nullptr);
    d = m.GetPortDescriptor(HDW_PORT_CAN, 1);
    ASSERT_NE(d, nullptr);
    EXPECT_EQ(d->SerialNumber, "/dev/pts/0");
    CPortIdentifier id;
    ASSERT_EQ(id.Set(d->Key), 0u);
    EXPECT_EQ(id.GetSN(), "/dev/pts/0");
    EXPECT_EQ(m.GetPortDescriptor(HDW_PORT_CAN, 2)->SerialNumber, "A100") << "a serial number wins over the link";
}

} // namespace
