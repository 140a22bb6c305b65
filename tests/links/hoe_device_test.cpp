#include "HoeTestPeer.h"
#include "WaitUntil.h"

#include <HdwLib/framework/HdwManager.h>
#include <HdwLib/links/HdwHoeDevice.h>
#include <HdwLib/links/HdwHoeFtdiUartBridgedDevice.h>

#include <gtest/gtest.h>

#include <set>
#include <tuple>
#include <string>
#include <vector>

namespace {

constexpr uint64_t kKind = 250;

template <class Base>
class OfKind : public Base {
public:
    OfKind() { this->m_DeviceCode = kKind; }
};
using TestHoeDevice = OfKind<CKVX_HdwHoeDevice>;

using Bytes = std::vector<unsigned char>;

template <typename Device>
class HoeDeviceTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        ASSERT_EQ(manager.AttachDevice(&device), 0u);
        link = CKVX_HdwManager::CInitPortDesc(kKind, peer.Link().c_str());
        ASSERT_EQ(manager.Enumerate(&link, 1, CKVX_HdwManager::EnumerateNoScan), 0u);
        ASSERT_EQ(link.Result, 0u);
        ASSERT_EQ(device.GetInstanceCount(), 1u);
    }
    void TearDown() override
    {
        // The session gives its port back to the manager: close while it exists.
        for (unsigned i = 0; i < device.GetInstanceCount(); ++i)
            device.Close(i);
        manager.Stop();
    }
    unsigned Waiting()
    {
        unsigned n = 0;
        EXPECT_EQ(device.LinkGetReadBufferBytes(0u, n), 0u);
        return n;
    }
    std::vector<unsigned char> Read(unsigned maxBytes)
    {
        std::vector<unsigned char> buf(maxBytes + 1, 0xEE);
        unsigned got = 12345;
        EXPECT_EQ(device.LinkRead(0u, buf.data(), maxBytes, got), 0u);
        EXPECT_LE(got, maxBytes);
        buf.resize(got);
        return buf;
    }
    std::set<unsigned short> TakePool()
    {
        std::set<unsigned short> taken;
        unsigned short p = 0;
        while (manager.GetSysEthPort(p) == 0)
            taken.insert(p);
        return taken;
    }
    void Release(const std::set<unsigned short>& ports)
    {
        for (unsigned short p : ports)
            manager.ReleaseSysEthPort(p);
    }
    void Connect()
    {
        ASSERT_EQ(device.Open(0), 0u);
        ASSERT_TRUE(device.GetDeviceInstance(0)->IsOpen());
        ASSERT_TRUE(peer.WaitFor([](const HoeTestPeer::Seen& s) { return s.Connects == 1; }));
    }

    HoeTestPeer peer{kKind};
    Device device; // outlives the manager, which does not own it
    CKVX_HdwManager manager;
    CKVX_HdwManager::CInitPortDesc link;
};

using Devices = ::testing::Types<TestHoeDevice, OfKind<CKVX_HdwHoeFtdiUartBridgedDevice>>;
TYPED_TEST_SUITE(HoeDeviceTest, Devices);

TYPED_TEST(HoeDeviceTest, DetectConnectReadOnlyThisSessionsEventDataThenCloseReleasesThePortAndReopenUnlessRefused)
{
    auto* inst = this->device.GetHoeInstance(0);
    ASSERT_NE(inst, nullptr);
    EXPECT_EQ(inst->SerialNumber, "SN-0042");
    EXPECT_EQ(inst->Revision, "R7");
    EXPECT_EQ(inst->Link, this->peer.Link().c_str());
    EXPECT_NE(inst->EthernetMode, 0u);
    EXPECT_EQ(this->peer.Snapshot().Detects, 1u);
    EXPECT_EQ(this->peer.Snapshot().Connects, 0u); // detection does not connect

    this->Connect();
    const HoeTestPeer::Seen s = this->peer.Snapshot();
    EXPECT_NE(this->device.GetClientId(), 0u);
    EXPECT_NE(this->device.GetClientId(), TypeParam().GetClientId()) << "each device has its own";
    EXPECT_GE(s.HostPort, CKVX_HdwManager::SysEthPortFirst);
    EXPECT_LT(s.HostPort, CKVX_HdwManager::SysEthPortFirst + CKVX_HdwManager::SysEthPortCount);
    EXPECT_EQ(std::tuple(s.ClientId, s.ConnectField, s.Tag, s.Session),
        std::tuple(this->device.GetClientId(), s.HostPort, inst->FirstWord, inst->SecondWord));
    EXPECT_EQ(this->device.Open(0), 0u);
    EXPECT_EQ(this->peer.Snapshot().Connects, 1u);

    // Only this session's event data reaches LinkRead, in order, split by the reader's size.
    EXPECT_EQ(this->Waiting(), 0u);
    EXPECT_TRUE(this->Read(16).empty()); // empty list: 0 with nothing read
    EXPECT_EQ(this->device.LinkWrite(5u, nullptr, 0), 2u); // no such instance
    using P = HoeTestPeer::Packet;
    auto spoiled = [&](auto edit) {
        P p = this->peer.EventData(Bytes{0xBA, 0xD0});
        edit(p);
        HoeTestPeer::Recrc(p);
        return p;
    };
    this->peer.SendToHost(spoiled([](P& p) { CKVX_HdwHoe::SetU32(p, CKVX_HdwHoe::OffClientId, 0xDEAD); }));
    this->peer.SendToHost(
        spoiled([](P& p) { CKVX_HdwHoe::SetU32(p, CKVX_HdwHoe::OffSecondWord, CKVX_HdwHoe::GetSecondWord(p) + 1); }));
    this->peer.SendToHost(
        spoiled([](P& p) { CKVX_HdwHoe::SetU32(p, CKVX_HdwHoe::OffFirstWord, CKVX_HdwHoe::GetFirstWord(p) ^ 1); }));
    this->peer.SendToHost(this->peer.EventData(Bytes{1, 2, 3, 4, 5}, 0));
    this->peer.SendToHost(this->peer.EventData(Bytes{6, 7, 8}, 1));
    this->peer.SendToHost(this->peer.EventData(Bytes{9, 10, 11, 12}, 2));
    ASSERT_TRUE(WaitUntil([&] { return this->Waiting() >= 12; }));
    EXPECT_EQ(this->Read(5), Bytes({1, 2, 3, 4, 5}));
    EXPECT_EQ(this->Waiting(), 7u);
    EXPECT_EQ(this->Read(2), Bytes({6, 7}));
    EXPECT_EQ(this->Read(100), Bytes({8, 9, 10, 11, 12}));
    EXPECT_EQ(this->Waiting(), 0u);

    // LinkClose answers 8 after the disconnect and releases the port; a reopen connects again.
    const auto taken = this->TakePool();
    EXPECT_EQ(taken.size(), CKVX_HdwManager::SysEthPortCount - 1u);

    EXPECT_EQ(this->device.LinkClose(0u), 8u);
    EXPECT_TRUE(this->peer.WaitFor([](const HoeTestPeer::Seen& v) { return v.Disconnects == 1; }));
    EXPECT_FALSE(this->device.GetHoeInstance(0)->IsEthConnected());
    EXPECT_EQ(this->TakePool(), std::set<unsigned short>{s.HostPort});
    this->Release(taken);
    this->Release({s.HostPort});
    EXPECT_EQ(this->device.Close(0), 0u);
    EXPECT_FALSE(this->device.GetDeviceInstance(0)->IsOpen());
    EXPECT_EQ(this->device.SetLinkTimeout(700), 0u);
    EXPECT_EQ(this->device.Open(0), 0u);
    EXPECT_TRUE(this->peer.WaitFor([](const HoeTestPeer::Seen& v) { return v.Connects == 2; }));
    // A session the unit refuses fails the open and gives the port back.
    EXPECT_EQ(this->device.Close(0), 0u);
    this->peer.SessionToGrant = 0;
    EXPECT_EQ(this->device.Open(0), 14u);
    EXPECT_FALSE(this->device.GetDeviceInstance(0)->IsOpen());
    EXPECT_EQ(this->TakePool().size(), CKVX_HdwManager::SysEthPortCount);
}

TYPED_TEST(HoeDeviceTest, PoolPortHeldByAnotherSocketIsSkippedAndReturned)
{
    // Hold the port the pool hands out next (others' ports are passed over): taking and giving back one
    // port moves the cursor by one, so a lap less one brings it back onto the held port.
    CKVX_HdwUdpSocket blocker;
    unsigned short next = 0;
    for (unsigned tries = 0; tries < CKVX_HdwManager::SysEthPortCount && !blocker.IsOpen(); ++tries) {
        ASSERT_EQ(this->manager.GetSysEthPort(next), 0u);
        this->manager.ReleaseSysEthPort(next);
        blocker.Open(next);
    }
    ASSERT_TRUE(blocker.IsOpen()) << "every pool port is held on this machine";
    for (unsigned i = 1; i < CKVX_HdwManager::SysEthPortCount; ++i) {
        unsigned short p = 0;
        ASSERT_EQ(this->manager.GetSysEthPort(p), 0u);
        this->manager.ReleaseSysEthPort(p);
    }

    this->Connect();
    const unsigned short used = this->peer.Snapshot().HostPort;
    EXPECT_NE(used, next);
    const auto free = this->TakePool();
    EXPECT_EQ(free.count(next), 1u);
    EXPECT_EQ(free.count(used), 0u);
    EXPECT_EQ(free.size(), CKVX_HdwManager::SysEthPortCount - 1u);
    this->Release(free);
}

TEST(HoeEnumeration, LinkResults)
{
    HoeTestPeer good(kKind);
    HoeTestPeer otherKind(kKind + 1);
    HoeTestPeer mute(kKind);
    mute.AnswerDetect = false;

    TestHoeDevice device;
    CKVX_HdwManager manager;
    ASSERT_EQ(manager.AttachDevice(&device), 0u);
    const struct {
        std::string Link;
        unsigned Result;
    } cases[] = {{good.Link(), 0}, {otherKind.Link(), 14}, {mute.Link(), 14}, {"udp:127.0.0.1", 2},
        {"udp:127.0.0.1:0", 2}, {"/dev/ttyS0", 2}};
    std::vector<CKVX_HdwManager::CInitPortDesc> links;
    for (const auto& c : cases)
        links.emplace_back(kKind, c.Link.c_str());
    ASSERT_EQ(manager.Enumerate(links.data(), unsigned(links.size()), CKVX_HdwManager::EnumerateNoScan), 0u);
    for (size_t i = 0; i < links.size(); ++i)
        EXPECT_EQ(links[i].Result, cases[i].Result) << cases[i].Link;
    EXPECT_EQ(mute.Snapshot().Detects, 1u);
    ASSERT_EQ(device.GetInstanceCount(), 1u);
    EXPECT_EQ(device.GetDeviceInstance(0)->Link, good.Link().c_str());
}

} // namespace
