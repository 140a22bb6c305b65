#include <HdwLib/core/KvxMutex.h>

#include <gtest/gtest.h>

#include <thread>

namespace {
// True when a fresh thread could take the mutex (it releases it at once).
bool OtherThreadCanTake(CKVX_Mutex& m)
{
    bool took = false;
    std::thread t([&] {
        if (m.TryLock() == 0) {
            took = true;
            m.Unlock();
        }
    });
    t.join();
    return took;
}
} // namespace

TEST(Mutex, TheOwnerOrItsLockerMayLockAgainAndHoldsItUntilTheLastUnlock)
{
    CKVX_Mutex m;
    ASSERT_TRUE(m.IsValid());
    ASSERT_EQ(m.Lock(), 0u);
    ASSERT_EQ(m.Lock(), 0u);
    ASSERT_EQ(m.TryLock(), 0u);
    EXPECT_FALSE(OtherThreadCanTake(m));
    EXPECT_EQ(m.Unlock(), 0u);
    EXPECT_FALSE(OtherThreadCanTake(m));
    EXPECT_EQ(m.Unlock(), 0u);
    EXPECT_FALSE(OtherThreadCanTake(m)) << "still held once";
    EXPECT_EQ(m.Unlock(), 0u);
    EXPECT_TRUE(OtherThreadCanTake(m));
    // The locker holds it for its scope, nested too.
    {
        CKVX_MutexLocker lock(m);
        CKVX_MutexLocker again(m);
        EXPECT_FALSE(OtherThreadCanTake(m));
    }
    EXPECT_TRUE(OtherThreadCanTake(m));
}
