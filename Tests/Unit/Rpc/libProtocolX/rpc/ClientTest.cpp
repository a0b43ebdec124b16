#include "Support/ScriptedConnection.h"

#include <libProtocolX/rpc/Client.h>

#include <gtest/gtest.h>

#include <pthread.h>

#include <optional>
#include <stdexcept>
#include <string>
#include <type_traits>

namespace BrantelStorageApi {
namespace {

using namespace std::string_literals;
using Brantel::Tests::ScriptedConnection;

class ClientTest : public testing::Test {
  protected:
    ScriptedConnection connection;
    std::optional<Client> client{std::in_place, connection};
};

TEST_F(ClientTest, MakingAClientSendsNothing) {
    EXPECT_TRUE(connection.sent.empty());
    EXPECT_EQ(connection.received, 0U);
}

TEST_F(ClientTest, DestroyingAClientSendsExactlyOneMessageAndReceivesNone) {
    client.reset();
    ASSERT_EQ(connection.sent.size(), 1U);
    EXPECT_EQ(connection.sent[0], "\x08\x01"s) << "operation 1 and no sub-message";
    EXPECT_EQ(connection.received, 0U);
}

TEST_F(ClientTest, DestroyingAClientTakesNoMutexToSend) {
    int result = -1;
    connection.OnSend([&](const auto&) {
        pthread_mutex_t& mutex = client->GetMutex().NativeHandle();
        result = pthread_mutex_trylock(&mutex);
        pthread_mutex_unlock(&mutex);
        return true;
    });
    client.reset();
    EXPECT_EQ(result, 0);
}

TEST_F(ClientTest, DestroyingAClientIgnoresTheResultOfTheSend) {
    connection.WillFailToSend();
    client.reset();
    EXPECT_EQ(connection.sent.size(), 1U);
}

TEST_F(ClientTest, TheStorageStubIsAMemberThatUsesTheClientsConnection) {
    client->GetTrackStorage().ClearTrack(1);
    EXPECT_EQ(connection.sent.size(), 1U);
    const auto* begin = reinterpret_cast<const char*>(&*client);
    const auto* stub = reinterpret_cast<const char*>(&client->GetTrackStorage());
    EXPECT_TRUE(stub > begin && stub < begin + sizeof(Client));
}

TEST_F(ClientTest, AClientHasAVirtualDestructorAndNoBaseInCommonWithTheStubs) {
    EXPECT_TRUE(std::has_virtual_destructor_v<Client>);
    EXPECT_FALSE((std::is_base_of_v<DynamicObject, Client>));
    EXPECT_TRUE((std::is_base_of_v<DynamicObject, ClientTrackStorage>));
}

TEST(ClientDeathTest, AnExceptionWhileAClientIsDestroyedEndsTheProcess) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_DEATH(
        {
            ScriptedConnection connection;
            connection.WillThrowOnSend(std::runtime_error("can not send"));
            Client client(connection);
        },
        "can not send");
}

}  // namespace
}  // namespace BrantelStorageApi
