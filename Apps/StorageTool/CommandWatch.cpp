#include "CommandWatch.h"

#include "Context.h"
#include "Progress.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <stdexcept>
#include <utility>

namespace Brantel::Tool {

using ProtocolX::StorageClientX;

CommandWatch::CommandWatch(Context& context, std::string title, std::int64_t bytes)
    : context(context), title(std::move(title)), bytes(bytes) {}

void CommandWatch::Follow(std::int64_t command) const {
    constexpr std::int64_t whole = 100;
    const std::string name = "Command " + std::to_string(command);
    Progress progress(context, title, bytes > 0 ? Progress::Unit::Bytes : Progress::Unit::Percent,
                      bytes > 0 ? bytes : whole);
    const std::int64_t part = bytes > 0 ? bytes / whole : 1;
    // Most commands end at once: the first looks follow each other quickly.
    std::chrono::milliseconds pause(1);
    constexpr std::chrono::milliseconds longestPause(100);
    for (;;) {
        const StorageClientX::CommandInfo info =
            context.Ask([&](StorageClientX& client) { return client.GetCommandInfo(command); });
        if (info.type == StorageClientX::FINISHED) {
            progress.Finish(bytes > 0 ? bytes : whole);
            return;
        }
        if (info.type == StorageClientX::CANCELED) {
            throw std::runtime_error(name + " was cancelled by the server at " +
                                     std::to_string(info.progression) + " %");
        }
        if (info.type == StorageClientX::NOT_EXIST) {
            throw std::runtime_error(name + " does not exist");
        }
        progress.Update(part * info.progression);
        if (!context.Ends().Sleep(pause)) {
            context.CheckInterrupt("Interrupted; command " + std::to_string(command) +
                                   " goes on on the server: brantel command watch " +
                                   std::to_string(command) + " follows it");
        }
        pause = std::min(pause * 2, longestPause);
    }
}

std::string CommandWatch::NameOf(std::int32_t type) {
    constexpr std::array<const char*, 5> names{"unknown", "finished", "cancelled", "queued",
                                               "ongoing"};
    const auto index = static_cast<std::size_t>(type);
    return index < names.size() ? names.at(index) : names.front();
}

}  // namespace Brantel::Tool
