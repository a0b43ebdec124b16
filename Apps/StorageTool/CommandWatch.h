#pragma once

#include <cstdint>
#include <string>

namespace Brantel::Tool {

class Context;

// Follows a command of the storage to its end, with a bar on a terminal.
class CommandWatch {
  public:
    // `title` stands before the bar. `bytes`: what the command works through, for rate and time
    // left; 0 when nobody knows: then they are in percent.
    CommandWatch(Context& context, std::string title, std::int64_t bytes);

    // Returns when the command has finished. Throws std::runtime_error when it was cancelled or is
    // unknown, Interrupted, naming the command, which goes on, when the end was requested.
    void Follow(std::int64_t command) const;

    // "finished", "ongoing" and so on, of a StorageClientX::CommandType.
    static std::string NameOf(std::int32_t type);

  private:
    Context& context;
    const std::string title;
    const std::int64_t bytes;
};

}  // namespace Brantel::Tool
