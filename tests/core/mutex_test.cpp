#include <HdwLib/core/KvxMutex.h>

#include <gtest/gtest.h>

#include <atomic>
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

TEST(Mutex, ExcludesOtherThreads)
{
    CKVX_Mutex m;
    constexpr int kThreads = 4;
    constexpr int kRounds = 20000;
    // Non-atomic on purpose: the mutex alone must make the updates exact.
    long long counter = 0;
    int inside = 0;
    std::atomic<int> overlaps{0};
    std::atomic<int> ready{0};
    std::thread threads[kThreads];
    for (auto& t : threads) {
        t = std::thread([&] {
            ready.fetch_add(1);
            while (ready.load() < kThreads) {
                std::this_thread::yield();
            }
            for (int i = 0; i < kRounds; ++i) {
                CKVX_MutexLocker lock(m);
                if (++inside != 1)
                    overlaps.fetch_add(1);
                const long long seen = counter;
                std::this_thread::yield();
                counter = seen + 1;
                --inside;
            }
        });
    }
    for (auto& t : threads)
        t.join();
    EXPECT_EQ(overlaps.load(), 0);
    EXPECT_EQ(counter, static_cast<long long>(kThreads) * kRounds);
}
