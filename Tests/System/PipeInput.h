#pragma once

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <string>
#include <string_view>
#include <system_error>
#include <utility>

namespace Brantel::Tests {

// The writing end of a named pipe, which no program that is started meanwhile gets too. Waits until
// somebody reads.
class PipeInput {
  public:
    explicit PipeInput(const std::string& path)
        : descriptor(open(path.c_str(), O_WRONLY | O_CLOEXEC)) {
        if (descriptor < 0) {
            throw std::system_error(errno, std::generic_category(), path);
        }
    }
    PipeInput(const PipeInput&) = delete;
    PipeInput& operator=(const PipeInput&) = delete;
    ~PipeInput() { Close(); }

    void Write(std::string_view bytes) const {
        while (!bytes.empty()) {
            const ssize_t size = write(descriptor, bytes.data(), bytes.size());
            if (size < 0) {
                throw std::system_error(errno, std::generic_category(), "write");
            }
            bytes.remove_prefix(static_cast<std::size_t>(size));
        }
    }
    void Close() {
        if (descriptor >= 0) {
            close(std::exchange(descriptor, -1));
        }
    }

  private:
    int descriptor;
};

}  // namespace Brantel::Tests
