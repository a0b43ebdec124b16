#include "Support/ScriptedConnection.h"

#include <libProtocolX/rpc/Client.h>

#include <gtest/gtest.h>

#include <pthread.h>

#include <cerrno>
#include <stdexcept>

namespace {

bool initialisationFails = false;

}  // namespace

// The linker sends the mutex's calls of pthread_mutex_init here (--wrap).
extern "C" int __real_pthread_mutex_init(pthread_mutex_t* mutex,
                                         const pthread_mutexattr_t* attributes);
extern "C" int __wrap_pthread_mutex_init(pthread_mutex_t* mutex,
                                         const pthread_mutexattr_t* attributes) {
    return initialisationFails ? EAGAIN : __real_pthread_mutex_init(mutex, attributes);
}

namespace BrantelStorageApi {
namespace {

TEST(ClientMutexInitTest, AMutexThatCannotBeInitialisedMakesNoClientAndSendsNothing) {
    Brantel::Tests::ScriptedConnection connection;
    initialisationFails = true;
    try {
        Client client(connection);
        ADD_FAILURE() << "a client without a mutex";
    } catch (const std::runtime_error& error) {
        EXPECT_STREQ(error.what(), "Could not init mutex");
    }
    EXPECT_TRUE(connection.sent.empty());

    initialisationFails = false;
    { Client client(connection); }
    EXPECT_EQ(connection.sent.size(), 1U);
}

}  // namespace
}  // namespace BrantelStorageApi
