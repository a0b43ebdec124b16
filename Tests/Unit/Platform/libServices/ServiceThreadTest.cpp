#include <libServices/ServiceThread.h>

#include <gtest/gtest.h>

#include <pthread.h>

#include <csignal>
#include <stdexcept>
#include <string>

namespace Brantel::Services {
namespace {

constexpr std::size_t stackSize = std::size_t{1024} * 1024;

TEST(ServiceThreadTest, TheStackHasTheGivenSize) {
    std::size_t found = 0;
    ServiceThread thread(stackSize, "test", [&] {
        pthread_attr_t attributes;
        pthread_getattr_np(pthread_self(), &attributes);
        pthread_attr_getstacksize(&attributes, &found);
        pthread_attr_destroy(&attributes);
    });
    thread.Join();
    EXPECT_EQ(stackSize, found);
}

TEST(ServiceThreadTest, EverySignalIsBlockedButTheThreadsOwnFaults) {
    sigset_t inThread;
    sigemptyset(&inThread);
    ServiceThread thread(stackSize, "test",
                         [&] { pthread_sigmask(SIG_BLOCK, nullptr, &inThread); });
    thread.Join();
    for (const int blocked :
         {SIGINT, SIGTERM, SIGHUP, SIGPIPE, SIGCHLD, SIGUSR1, SIGALRM, SIGRTMIN}) {
        EXPECT_EQ(1, sigismember(&inThread, blocked)) << blocked;
    }
    for (const int fault : {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGABRT}) {
        EXPECT_EQ(0, sigismember(&inThread, fault)) << fault;
    }
}

TEST(ServiceThreadTest, TheSignalsOfTheStartingThreadStayAsTheyWere) {
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGUSR2);
    ASSERT_EQ(0, pthread_sigmask(SIG_SETMASK, &signals, nullptr));
    const ServiceThread thread(stackSize, "test", [] {});
    sigset_t after;
    pthread_sigmask(SIG_BLOCK, nullptr, &after);
    EXPECT_EQ(1, sigismember(&after, SIGUSR2));
    EXPECT_EQ(0, sigismember(&after, SIGUSR1));
}

TEST(ServiceThreadTest, TheNameIsCutToWhatTheSystemTakes) {
    char name[32] = "";
    ServiceThread thread(stackSize, "a name of more than fifteen bytes",
                         [&] { pthread_getname_np(pthread_self(), name, sizeof(name)); });
    thread.Join();
    EXPECT_STREQ("a name of more ", name);
}

TEST(ServiceThreadTest, JoiningTwiceIsHarmless) {
    bool ran = false;
    ServiceThread thread(stackSize, "test", [&] { ran = true; });
    thread.Join();
    thread.Join();
    EXPECT_TRUE(ran);
}

TEST(ServiceThreadTest, AThreadThatCanNotBeStartedIsReported) {
    try {
        const ServiceThread thread(1, "test", [] {});
        FAIL() << "started with a stack of one byte";
    } catch (const std::runtime_error& error) {
        EXPECT_STREQ("Could not start a thread: Invalid argument", error.what());
    }
}

}  // namespace
}  // namespace Brantel::Services
