#pragma once

#include "Support/OperationTable.h"
#include "Support/ScriptedConnection.h"
#include "Support/Text.h"

#include <BrantelStorageApiMessages.pb.h>

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace BrantelStorageApi {

// Stubs on a scripted connection, with a reader of handle 1 and a writer of handle 2. What was sent
// to make them is forgotten.
struct ScriptedStubs {
    ScriptedStubs() {
        WillAnswer("is_success: true TrackReader_Constructor { object_handle: 1 }");
        stubs.MakeReader(1);
        WillAnswer("is_success: true TrackWriter_Constructor { object_handle: 2 }");
        stubs.MakeWriter(1);
        connection.sent.clear();
        connection.received = 0;
    }

    void WillAnswer(const std::string& response) {
        connection.WillReceive(Brantel::Tests::FromText<Response>(response));
    }
    // A whole exchange: that the next call has one shows that the lock is free.
    long TrackSize() {
        WillAnswer("is_success: true TrackStorage_GetTrackSize { trackSize: 9 }");
        long trackSize = 0;
        stubs.Storage().GetTrackSize(1, trackSize);
        return trackSize;
    }

    Brantel::Tests::ScriptedConnection connection;
    Stubs stubs{connection};
};

class StubFixture : public testing::Test, protected ScriptedStubs {
  protected:
    // The last request that was sent, as text.
    std::string Sent() const {
        Request request;
        request.ParsePartialFromString(connection.sent.at(connection.sent.size() - 1));
        return Brantel::Tests::ToText(request);
    }
};

}  // namespace BrantelStorageApi
