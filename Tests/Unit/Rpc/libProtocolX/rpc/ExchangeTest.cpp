#include "Unit/Rpc/libProtocolX/rpc/StubFixture.h"

#include <libServices/SocketDisconnected.h>

#include <gtest/gtest.h>

#include <pthread.h>

#include <cerrno>
#include <functional>
#include <stdexcept>
#include <string>
#include <utility>

namespace BrantelStorageApi {
namespace {

using Brantel::Tests::FromText;

// Makes every call of the operation table, each with stubs of its own.
class ExchangeTest : public testing::Test {
  protected:
    using Step = std::function<void(ScriptedStubs& scripted, const OperationRow& row)>;

    // The call returns; its outputs change as `changes` says.
    static void EveryCallReturns(const Step& prepare, const char* OperationRow::*changes,
                                 const Step& check = Nothing) {
        for (const OperationRow& row : OperationTable()) {
            SCOPED_TRACE(row.name);
            ScriptedStubs scripted;
            Outputs out;
            prepare(scripted, row);
            EXPECT_NO_THROW(row.stub(scripted.stubs, out));
            EXPECT_EQ(out.Changes(), changes == nullptr ? "" : row.*changes);
            check(scripted, row);
            EXPECT_EQ(scripted.TrackSize(), 9) << "the next call";
        }
    }

    // The call throws an exception of this type and text; its outputs stay as they were.
    template <class Exception>
    static void EveryCallThrows(const Step& prepare, const std::string& text,
                                const Step& check = Nothing) {
        for (const OperationRow& row : OperationTable()) {
            SCOPED_TRACE(row.name);
            ScriptedStubs scripted;
            Outputs out;
            prepare(scripted, row);
            try {
                row.stub(scripted.stubs, out);
                ADD_FAILURE() << "nothing thrown";
            } catch (const Exception& exception) {
                EXPECT_EQ(exception.what(), text);
            }
            EXPECT_EQ(out.Changes(), "");
            check(scripted, row);
            EXPECT_EQ(scripted.TrackSize(), 9) << "the next call";
        }
    }

    // Makes the system refuse to lock and to unlock, or takes that back.
    static void BreakMutex(ScriptedStubs& scripted, bool broken) {
        constexpr int noKindOfMutex = 0x7f;
        scripted.stubs.client.GetMutex().NativeHandle().__data.__kind =
            broken ? noKindOfMutex : PTHREAD_MUTEX_DEFAULT;
    }

    // EBUSY when the clients' mutex is held; it is free afterwards when it was before.
    static int TryLock(ScriptedStubs& scripted) {
        pthread_mutex_t& mutex = scripted.stubs.client.GetMutex().NativeHandle();
        const int result = pthread_mutex_trylock(&mutex);
        if (result == 0) {
            pthread_mutex_unlock(&mutex);
        }
        return result;
    }

    static void Nothing(ScriptedStubs& /*scripted*/, const OperationRow& /*row*/) {}

    static Response FailureOf(const OperationRow& row) {
        Response response = ResponseOf(row);
        response.set_is_success(false);
        return response;
    }
};

TEST_F(ExchangeTest, ACallWhoseSendReturnsFalseReturnsNormallyWithItsOutputsUnchanged) {
    EveryCallReturns([](auto& scripted, auto&) { scripted.connection.WillFailToSend(); }, nullptr,
                     [](auto& scripted, auto&) {
                         EXPECT_EQ(scripted.connection.sent.size(), 1U);
                         EXPECT_EQ(scripted.connection.received, 0U);
                     });
}

TEST_F(ExchangeTest, ACallWhoseReceiveReturnsFalseReturnsNormallyWithItsOutputsUnchanged) {
    EveryCallReturns([](auto& scripted, auto&) { scripted.connection.WillFailToReceive(); },
                     nullptr,
                     [](auto& scripted, auto&) {
                         EXPECT_EQ(scripted.connection.sent.size(), 1U);
                         EXPECT_EQ(scripted.connection.received, 1U);
                     });
}

TEST_F(ExchangeTest, AReceiveThatReturnsFalseAfterItFilledTheResponseChangesNoOutput) {
    EveryCallReturns(
        [](auto& scripted, auto& row) {
            scripted.connection.OnReceive([&row](auto& message) {
                message.ParseFromString(ResponseOf(row).SerializeAsString());
                return false;
            });
        },
        nullptr);
}

TEST_F(ExchangeTest, AnExceptionOfTheSendPassesToTheCallerUnchanged) {
    EveryCallThrows<SocketDisconnected>(
        [](auto& scripted, auto&) {
            scripted.connection.WillThrowOnSend(SocketDisconnected("lost"));
        },
        "lost", [](auto& scripted, auto&) { EXPECT_EQ(scripted.connection.received, 0U); });
}

TEST_F(ExchangeTest, AnExceptionOfTheReceivePassesToTheCallerUnchanged) {
    EveryCallThrows<SocketDisconnected>(
        [](auto& scripted, auto&) {
            scripted.connection.WillThrowOnReceive(SocketDisconnected("reset"));
        },
        "reset");
}

TEST_F(ExchangeTest, AServersFailureWithTextIsThrownWithItAndLeavesTheOutputsUnchanged) {
    EveryCallThrows<std::runtime_error>(
        [](auto& scripted, auto& row) {
            Response response = FailureOf(row);
            response.set_exception("no such track: 11");
            response.set_error_code(5);
            scripted.connection.WillReceive(response);
        },
        "Exception from server: no such track: 11");
}

TEST_F(ExchangeTest, AServerAnswerWithIsSuccessFalseAndNoExceptionYieldsTheTextExactly) {
    EveryCallThrows<std::runtime_error>(
        [](auto& scripted, auto& row) { scripted.connection.WillReceive(FailureOf(row)); },
        "Exception from server: ");
}

TEST_F(ExchangeTest, AnAnswerWithSuccessAndNoSubMessageYieldsZeroFalseOrEmptyMessages) {
    EveryCallReturns([](auto& scripted, auto&) { scripted.WillAnswer("is_success: true"); },
                     &OperationRow::neutral);
}

TEST_F(ExchangeTest, AnAnswerWithSuccessAndAnEmptySubMessageYieldsZeroFalseOrEmptyMessages) {
    EveryCallReturns(
        [](auto& scripted, auto& row) {
            scripted.WillAnswer("is_success: true " + std::string(row.name) + " { }");
        },
        &OperationRow::neutral);
}

TEST_F(ExchangeTest, AnAnswerOfAnotherOperationYieldsZeroFalseOrEmptyMessages) {
    EveryCallReturns(
        [](auto& scripted, auto& row) {
            Response response;
            response.set_is_success(true);
            for (const OperationRow& other : OperationTable()) {
                if (std::string(other.name) != row.name) {
                    response.MergeFrom(ResponseOf(other));
                }
            }
            scripted.connection.WillReceive(response);
        },
        &OperationRow::neutral);
}

TEST_F(ExchangeTest, AnErrorCodeIsNotLookedAt) {
    EveryCallReturns(
        [](auto& scripted, auto&) { scripted.WillAnswer("is_success: true error_code: 7"); },
        &OperationRow::neutral);
}

TEST_F(ExchangeTest, WhenTheMutexCannotBeLockedTheCallThrowsAndSendsNothing) {
    EveryCallThrows<std::runtime_error>([](auto& scripted, auto&) { BreakMutex(scripted, true); },
                                        "Could not lock mutex",
                                        [](auto& scripted, auto&) {
                                            EXPECT_TRUE(scripted.connection.sent.empty());
                                            EXPECT_EQ(scripted.connection.received, 0U);
                                            BreakMutex(scripted, false);
                                        });
}

TEST_F(ExchangeTest, AfterAFailedExchangeTheNextCallStillTakesAndReleasesTheMutexNormally) {
    ScriptedStubs scripted;
    scripted.connection.WillFailToSend();
    EXPECT_EQ(scripted.TrackSize(), 0);
    int whileSending = 0;
    scripted.connection.OnSend([&](const auto&) {
        whileSending = TryLock(scripted);
        return true;
    });
    long size = 0;
    scripted.stubs.Storage().GetTrackSize(1, size);
    EXPECT_EQ(size, 9);
    EXPECT_EQ(whileSending, EBUSY);
    EXPECT_EQ(TryLock(scripted), 0);
}

TEST_F(ExchangeTest, EveryCallHoldsTheClientsOneMutexFromItsSendToItsReceive) {
    for (const OperationRow& row : OperationTable()) {
        SCOPED_TRACE(row.name);
        ScriptedStubs scripted;
        int whileSending = 0;
        int whileReceiving = 0;
        scripted.connection.OnSend([&](const auto&) {
            whileSending = TryLock(scripted);
            return true;
        });
        scripted.connection.OnReceive([&](auto& message) {
            whileReceiving = TryLock(scripted);
            return message.ParseFromString(ResponseOf(row).SerializeAsString());
        });
        Outputs out;
        row.stub(scripted.stubs, out);
        EXPECT_EQ(whileSending, EBUSY);
        EXPECT_EQ(whileReceiving, EBUSY);
        EXPECT_EQ(TryLock(scripted), 0);
    }
}

using ExchangeDeathTest = ExchangeTest;

TEST_F(ExchangeDeathTest, AMutexThatCannotBeUnlockedEndsTheProcessOnEveryPath) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    using Step = std::function<bool()>;
    const Step succeed = [] { return true; };
    const Step fail = [] { return false; };
    const Step lose = []() -> bool { throw std::runtime_error("lost"); };
    const std::pair<Step, Step> paths[] = {
        {fail, nullptr}, {lose, nullptr}, {succeed, succeed}, {succeed, fail}, {succeed, lose}};
    for (const auto& path : paths) {
        EXPECT_DEATH(
            {
                ScriptedStubs scripted;
                scripted.connection.OnSend([&](const auto&) {
                    BreakMutex(scripted, true);
                    return path.first();
                });
                scripted.connection.OnReceive([&](auto& message) {
                    message.ParseFromString(std::string("\x08\x01", 2));
                    return path.second();
                });
                scripted.stubs.Storage().ClearTrack(1);
            },
            "Could not unlock mutex");
    }
}

}  // namespace
}  // namespace BrantelStorageApi
