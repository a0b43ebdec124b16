#include "Support/OperationTable.h"
#include "Support/RecordingObjects.h"

#include <libProtocolX/rpc/Service.h>
#include <libServices/FileDescriptorServiceConnection.h>
#include <libServices/SocketDisconnected.h>

#include <gtest/gtest.h>

#include <sys/socket.h>

#include <cerrno>
#include <memory>
#include <string>
#include <system_error>
#include <thread>
#include <utility>

namespace BrantelStorageApi {
namespace {

using Brantel::Services::FileDescriptorServiceConnection;

// A service on its own thread and a connection to it, over a pair of sockets.
class ConversationTest : public testing::Test {
  protected:
    ConversationTest() {
        int ends[2];
        if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) != 0) {
            throw std::system_error(errno, std::generic_category(), "socketpair");
        }
        connection = std::make_unique<FileDescriptorServiceConnection>(ends[0]);
        server = std::thread([this, end = ends[1]] {
            FileDescriptorServiceConnection accepted(end, answerLimit);
            service.Handle(accepted);
        });
    }
    ~ConversationTest() override {
        connection->Close();
        server.join();
    }

    static constexpr std::size_t answerLimit = 1000;

    Journal journal;
    Service service{std::make_unique<RecordingStorage>(journal),
                    std::make_unique<RecordingReaderFactory>(journal),
                    std::make_unique<RecordingWriterFactory>(journal)};
    std::unique_ptr<FileDescriptorServiceConnection> connection;
    std::thread server;
};

TEST_F(ConversationTest, EveryOperationReachesTheServersObjectAndItsResultsComeBack) {
    Stubs stubs(*connection);
    stubs.MakeReader(1);
    stubs.MakeWriter(2);
    for (const OperationRow& row : OperationTable()) {
        SCOPED_TRACE(row.name);
        Outputs out(false);
        row.stub(stubs, out);
        EXPECT_EQ(journal.calls.back(), row.call);
        EXPECT_EQ(out.Changes(), row.outputs);
    }
}

}  // namespace
}  // namespace BrantelStorageApi
