#include <libServices/NativeMutex.h>

#include <gtest/gtest.h>

#include <stdexcept>
#include <thread>
#include <vector>

namespace Brantel::Services {
namespace {

// The text of the exception; a failure when there is none.
template <class Call>
std::string TextOf(const Call& call) {
    try {
        call();
    } catch (const std::runtime_error& exception) {
        return exception.what();
    }
    ADD_FAILURE() << "nothing was thrown";
    return {};
}

// Makes the mutex one that reports what is otherwise not defined.
void MakeChecking(NativeMutex& mutex) {
    pthread_mutexattr_t checking;
    ASSERT_EQ(pthread_mutexattr_init(&checking), 0);
    ASSERT_EQ(pthread_mutexattr_settype(&checking, PTHREAD_MUTEX_ERRORCHECK), 0);
    ASSERT_EQ(pthread_mutex_destroy(&mutex.NativeHandle()), 0);
    ASSERT_EQ(pthread_mutex_init(&mutex.NativeHandle(), &checking), 0);
    pthread_mutexattr_destroy(&checking);
}

TEST(NativeMutexTest, OneThreadAtATimeIsInside) {
    constexpr int rounds = 2000;
    NativeMutex mutex;
    int count = 0;
    std::vector<std::thread> threads;
    threads.reserve(4);
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([&] {
            for (int round = 0; round < rounds; ++round) {
                mutex.Enter();
                ++count;
                mutex.Leave();
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(count, 4 * rounds);
}

TEST(NativeMutexTest, ItIsTakenBetweenEnterAndLeave) {
    NativeMutex mutex;
    mutex.Enter();
    std::thread([&] { EXPECT_EQ(pthread_mutex_trylock(&mutex.NativeHandle()), EBUSY); }).join();
    mutex.Leave();
    EXPECT_EQ(pthread_mutex_trylock(&mutex.NativeHandle()), 0);
    mutex.Leave();
}

TEST(NativeMutexTest, ItIsNotRecursive) {
    NativeMutex mutex;
    mutex.Enter();
    EXPECT_EQ(pthread_mutex_trylock(&mutex.NativeHandle()), EBUSY);
    mutex.Leave();
}

TEST(NativeMutexTest, AFailureToLockIsReported) {
    NativeMutex mutex;
    MakeChecking(mutex);
    mutex.Enter();
    EXPECT_EQ(TextOf([&] { mutex.Enter(); }), "Could not lock mutex");
    mutex.Leave();
}

TEST(NativeMutexTest, AFailureToUnlockIsReported) {
#ifdef __SANITIZE_THREAD__
    GTEST_SKIP() << "ThreadSanitizer reports the unlock itself";
#endif
    NativeMutex mutex;
    MakeChecking(mutex);
    EXPECT_EQ(TextOf([&] { mutex.Leave(); }), "Could not unlock mutex");
}

}  // namespace
}  // namespace Brantel::Services
