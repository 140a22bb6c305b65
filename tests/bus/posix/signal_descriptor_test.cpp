// The signal services' descriptors in a poll loop, alone and in a group.
#include <HdwLib/bus/HdwSignalGroup.h>
#include <HdwLib/bus/HdwSignalService.h>

#include <gtest/gtest.h>

#include <memory>
#include <poll.h>
#include <thread>
#include <vector>

namespace {

bool Readable(int fd, int timeoutMs = 0)
{
    pollfd p{fd, POLLIN, 0};
    return poll(&p, 1, timeoutMs) == 1 && (p.revents & POLLIN);
}

void PostWord(CKVX_HdwSignalService& s, unsigned data)
{
    CKVX_HdwArinc429Message m;
    m.Data = data;
    ASSERT_EQ(s.PostArinc429(HDW_SIGNAL_ARINC429_RECEIVED, m, data), 0u);
}

unsigned Drain(CKVX_HdwSignalService& s)
{
    CKVX_HdwSignalService::CSignal buffer[8];
    unsigned n = 0;
    EXPECT_EQ(s.ReadSignals(buffer, 8, n), 0u);
    return n;
}

class SignalDescriptor : public ::testing::Test {
protected:
    void SetUp() override
    {
        ASSERT_GE(group.GetFileDescriptor(), 0);
        ASSERT_EQ(a.Start(), 0u);
        ASSERT_EQ(b.Start(), 0u);
    }
    CKVX_HdwSignalService a{nullptr};
    CKVX_HdwSignalService b{nullptr};
    CKVX_HdwSignalGroup group;
};

} // namespace

TEST_F(SignalDescriptor, ReadableWhileAnyMemberHoldsSignalsAndMembersOwnDescriptorsStayQuiet)
{
    ASSERT_EQ(a.JoinGroup(&group), 0u);
    ASSERT_EQ(b.JoinGroup(&group), 0u);
    EXPECT_EQ(group.GetMemberCount(), 2u);
    EXPECT_EQ(a.GetGroup(), &group);
    EXPECT_FALSE(Readable(group.GetFileDescriptor()));

    PostWord(a, 1);
    PostWord(b, 2);
    PostWord(b, 3);
    EXPECT_TRUE(Readable(group.GetFileDescriptor()));
    EXPECT_EQ(group.GetReadyMembers(), 2u);
    EXPECT_FALSE(Readable(a.GetFileDescriptor()));
    EXPECT_FALSE(Readable(b.GetFileDescriptor()));

    EXPECT_EQ(Drain(a), 1u);
    EXPECT_TRUE(Readable(group.GetFileDescriptor())); // b still holds two
    EXPECT_EQ(Drain(b), 2u);
    EXPECT_FALSE(Readable(group.GetFileDescriptor()));
    EXPECT_EQ(group.GetReadyMembers(), 0u);

    // Again after it emptied: the counter must not have drifted.
    PostWord(b, 4);
    EXPECT_TRUE(Readable(group.GetFileDescriptor()));
    EXPECT_EQ(Drain(b), 1u);
    EXPECT_FALSE(Readable(group.GetFileDescriptor()));
    // A failed member is ready until it is stopped.
    a.Abort();
    EXPECT_TRUE(Readable(group.GetFileDescriptor()));
    PostWord(b, 5);
    a.Stop();
    EXPECT_TRUE(Readable(group.GetFileDescriptor())); // b's signal remains
    b.Stop();
    EXPECT_FALSE(Readable(group.GetFileDescriptor()));
}

TEST_F(SignalDescriptor, JoiningLeavingAndDestroyingEitherSideCarryAWaitingSignalAlong)
{
    PostWord(a, 1);
    ASSERT_TRUE(Readable(a.GetFileDescriptor()));
    ASSERT_EQ(a.JoinGroup(&group), 0u);
    EXPECT_FALSE(Readable(a.GetFileDescriptor()));
    EXPECT_TRUE(Readable(group.GetFileDescriptor()));
    EXPECT_EQ(a.JoinGroup(&group), 0u); // joining twice changes nothing
    EXPECT_EQ(group.GetMemberCount(), 1u);
    EXPECT_EQ(group.GetReadyMembers(), 1u);

    ASSERT_EQ(a.LeaveGroup(), 0u);
    EXPECT_EQ(a.GetGroup(), nullptr);
    EXPECT_TRUE(Readable(a.GetFileDescriptor()));
    EXPECT_FALSE(Readable(group.GetFileDescriptor()));
    EXPECT_EQ(a.LeaveGroup(), 0u); // not in a group: harmless
    EXPECT_EQ(a.JoinGroup(nullptr), 2u);

    CKVX_HdwSignalGroup other;
    ASSERT_EQ(a.JoinGroup(&group), 0u);
    ASSERT_EQ(a.JoinGroup(&other), 0u);
    EXPECT_FALSE(Readable(group.GetFileDescriptor()));
    EXPECT_TRUE(Readable(other.GetFileDescriptor()));
    EXPECT_EQ(group.GetMemberCount(), 0u);
    EXPECT_EQ(Drain(a), 1u);
    EXPECT_FALSE(Readable(other.GetFileDescriptor()));

    // Either side may be destroyed first.
    auto c = std::make_unique<CKVX_HdwSignalService>(nullptr);
    ASSERT_EQ(c->Start(), 0u);
    ASSERT_EQ(c->JoinGroup(&group), 0u);
    PostWord(*c, 1);
    ASSERT_TRUE(Readable(group.GetFileDescriptor()));
    c.reset(); // a ready member leaves with its readiness
    EXPECT_EQ(group.GetMemberCount(), 0u);
    EXPECT_FALSE(Readable(group.GetFileDescriptor()));

    auto g = std::make_unique<CKVX_HdwSignalGroup>();
    ASSERT_EQ(a.JoinGroup(g.get()), 0u);
    PostWord(a, 2);
    g.reset(); // the members fall back to their own descriptors
    EXPECT_EQ(a.GetGroup(), nullptr);
    EXPECT_TRUE(Readable(a.GetFileDescriptor()));
    EXPECT_EQ(Drain(a), 1u);
}

TEST_F(SignalDescriptor, ConcurrentPostersAndOneReaderLoseNothingAndEndQuiet)
{
    ASSERT_EQ(a.JoinGroup(&group), 0u);
    ASSERT_EQ(b.JoinGroup(&group), 0u);
    CKVX_HdwSignalService::CParameters p;
    p.BufferSize = 100000;
    constexpr unsigned kEach = 20000;
    std::vector<std::thread> posters;
    for (CKVX_HdwSignalService* s : {&a, &b}) {
        s->Stop();
        s->SetParameters(&p);
        EXPECT_EQ(s->Start(), 0u); // no ASSERT while a poster may run unjoined
        posters.emplace_back([s] {
            for (unsigned i = 0; i < kEach; ++i)
                PostWord(*s, i);
        });
    }
    unsigned got = 0;
    // A lost readiness stalls this loop; a stale one shows after the last read.
    while (got < 2 * kEach && Readable(group.GetFileDescriptor(), 30000))
        got += Drain(a) + Drain(b);
    for (auto& t : posters)
        t.join();
    got += Drain(a) + Drain(b);
    EXPECT_EQ(got, 2 * kEach);
    EXPECT_FALSE(Readable(group.GetFileDescriptor()));
    EXPECT_EQ(group.GetReadyMembers(), 0u);
}
