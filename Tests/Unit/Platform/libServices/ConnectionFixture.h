#pragma once

#include "Support/BlockedThread.h"
#include "Support/Frames.h"
#include "Support/SocketPair.h"

#include <libServices/FileDescriptorServiceConnection.h>
#include <libServices/SocketDisconnected.h>
#include <libServices/SpinGovernor.h>

#include <google/protobuf/descriptor.pb.h>
#include <google/protobuf/wrappers.pb.h>
#include <gtest/gtest.h>

#include <sys/syscall.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <string>
#include <string_view>
#include <thread>

namespace Brantel::Services {

using google::protobuf::BytesValue;
using google::protobuf::UninterpretedOption;

// The text of the exception of that type; a failure when there is none.
template <class Exception>
std::string TextOf(const std::function<void()>& call) {
    try {
        call();
    } catch (const Exception& exception) {
        return exception.what();
    }
    ADD_FAILURE() << "nothing was thrown";
    return {};
}

// A connection under test, and its peer without our library.
class ConnectionFixture : public ::testing::Test {
  protected:
    static constexpr std::size_t limit = 1'000'000;

    std::string TextOfReceive() {
        return TextOf<SocketDisconnected>([this] { connection.Receive(received); });
    }
    std::string TextOfRefusal(google::protobuf::Message& message) {
        return TextOf<std::runtime_error>([&] { connection.Receive(message); });
    }
    // Receives in another thread; what Receive reported as lost, "" when it did not.
    class Receiving {
      public:
        explicit Receiving(ConnectionFixture& fixture)
            : thread([this, &fixture] {
                  id.store(Tests::ThisThread());
                  try {
                      fixture.connection.Receive(fixture.received);
                  } catch (const SocketDisconnected& failure) {
                      lost = failure.what();
                  }
              }) {}
        ~Receiving() { Join(); }
        Receiving(const Receiving&) = delete;
        Receiving& operator=(const Receiving&) = delete;

        pthread_t Handle() { return thread.native_handle(); }
        // Waits until the thread has one.
        long Id() const {
            while (id.load() == 0) {
                std::this_thread::yield();
            }
            return id.load();
        }
        void WaitUntilBlocked(long call = SYS_recvfrom) { Tests::WaitUntilBlockedIn(Id(), call); }
        std::string Join() {
            if (thread.joinable()) {
                thread.join();
            }
            return lost;
        }

      private:
        std::atomic<long> id{0};
        std::string lost;
        std::thread thread;
    };

    Tests::SocketPair ends;
    Tests::RawPeer& peer = ends.far;
    SpinGovernor governor{std::chrono::nanoseconds(0), 2};
    const int descriptor = ends.near.Take();
    FileDescriptorServiceConnection connection{descriptor, limit, governor};
    BytesValue received;
};

}  // namespace Brantel::Services
