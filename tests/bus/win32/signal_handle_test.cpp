// The signal service's and the signal group's event handles (Windows).
#include <HdwLib/bus/HdwSignalGroup.h>
#include <HdwLib/bus/HdwSignalService.h>

#include <gtest/gtest.h>

#include <windows.h>

namespace {

bool Signalled(void* handle)
{
    return WaitForSingleObject(static_cast<HANDLE>(handle), 0) == WAIT_OBJECT_0;
}

} // namespace

TEST(SignalHandle, ServiceAndGroupHandlesFollowTheQueues)
{
    CKVX_HdwSignalService a(nullptr), b(nullptr);
    CKVX_HdwSignalGroup group;
    ASSERT_NE(a.GetWaitHandle(), nullptr);
    ASSERT_NE(group.GetWaitHandle(), nullptr);
    EXPECT_EQ(group.GetFileDescriptor(), -1);
    ASSERT_EQ(a.Start(), 0u);
    ASSERT_EQ(b.Start(), 0u);

    CKVX_HdwArinc429Message m;
    a.PostArinc429(HDW_SIGNAL_ARINC429_RECEIVED, m, 1);
    EXPECT_TRUE(Signalled(a.GetWaitHandle()));
    ASSERT_EQ(a.JoinGroup(&group), 0u);
    ASSERT_EQ(b.JoinGroup(&group), 0u);
    EXPECT_FALSE(Signalled(a.GetWaitHandle()));
    EXPECT_TRUE(Signalled(group.GetWaitHandle()));

    b.PostArinc429(HDW_SIGNAL_ARINC429_RECEIVED, m, 2);
    CKVX_HdwSignalService::CSignal s;
    ASSERT_EQ(a.GetSignal(s), 0u);
    EXPECT_TRUE(Signalled(group.GetWaitHandle())); // b's signal waits
    ASSERT_EQ(b.GetSignal(s), 0u);
    EXPECT_FALSE(Signalled(group.GetWaitHandle()));
}
