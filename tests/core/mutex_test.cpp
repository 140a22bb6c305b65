// The recursion rule and the release on the last Unlock are this class's own;
// that a held mutex keeps other threads out is the OS primitive's job, checked
// here through TryLock from another thread.
#include <HdwLib/core/KvxMutex.h>

#include <gtest/gtest.h>

#include <thread>

namespace {
// TryLock from a fresh thread: true when that thread could take the mutex
// (it releases it again at once).
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
