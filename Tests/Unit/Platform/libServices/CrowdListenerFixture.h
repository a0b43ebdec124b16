#pragma once

#include "ListenerFixture.h"

#include <libServices/PeerAddress.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace Brantel::Services {

// A listener to which every connection is a crowd that asks only for what is quick: texts that
// begin with q.
class CrowdListenerFixture : public ListenerFixture {
  protected:
    CrowdListenerFixture() {
        // A short text: a tag, its length, its bytes.
        options.isQuick = [](const unsigned char* message, std::size_t size) {
            constexpr std::size_t longest = 127;
            return size > 2 && size <= longest + 2 && message[2] == 'q';
        };
        options.crowd = 0;
    }

    std::uint64_t InCrowd() const { return listener->Counters().inCrowd; }
    bool WaitForCrowd(std::uint64_t connections) const {
        return Tests::Eventually([&] { return InCrowd() == connections; });
    }
    // Asks so often that its thread leaves, when all are asked for what is quick.
    static void AskQuickly(IServiceConnection& client) {
        constexpr int enough = 4;
        for (int count = 0; count < enough; ++count) {
            EXPECT_EQ("quick", Ask(client, "quick"));
        }
    }
    // A client whose connection is in the crowd, the only one there.
    std::unique_ptr<UnixDomainConnection> ConnectToCrowd() const {
        auto client = Connect();
        const std::uint64_t before = InCrowd();
        AskQuickly(*client);
        EXPECT_TRUE(WaitForCrowd(before + 1));
        return client;
    }
};

}  // namespace Brantel::Services
