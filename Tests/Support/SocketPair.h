#pragma once

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/uio.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstddef>
#include <cstring>
#include <stdexcept>
#include <string>
#include <string_view>
#include <system_error>
#include <utility>

namespace Brantel::Tests {

// A descriptor that closes itself.
class Descriptor {
  public:
    Descriptor() = default;
    // Takes over what a system call returned. Throws std::system_error when that is a failure.
    explicit Descriptor(int fd) : fd(fd) {
        if (fd < 0) {
            throw std::system_error(errno, std::system_category(), "No descriptor");
        }
    }
    Descriptor(Descriptor&& other) noexcept : fd(other.Take()) {}
    Descriptor& operator=(Descriptor&& other) noexcept {
        Close();
        fd = other.Take();
        return *this;
    }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;
    ~Descriptor() { Close(); }

    int Get() const { return fd; }
    // The caller closes it from now on.
    int Take() { return std::exchange(fd, -1); }
    void Close() {
        if (fd >= 0) {
            ::close(Take());
        }
    }

  private:
    int fd = -1;
};

// The bare end of a stream socket: what a peer without our library does. Blocking; failures that a
// test does not ask for are std::system_error.
class RawPeer {
  public:
    explicit RawPeer(Descriptor end) : end(std::move(end)) {}

    int Get() const { return end.Get(); }
    void Close() { end.Close(); }
    // The other side sees the end of the stream; reading goes on.
    void FinishWriting() { ::shutdown(end.Get(), SHUT_WR); }

    void Write(std::string_view bytes) {
        if (!TryWrite(bytes)) {
            throw std::system_error(errno, std::system_category(), "Could not write");
        }
    }

    // False when the other side does not take them all.
    bool TryWrite(std::string_view bytes) {
        while (!bytes.empty()) {
            const ssize_t sent = ::send(end.Get(), bytes.data(), bytes.size(), MSG_NOSIGNAL);
            if (sent < 0 && errno != EINTR) {
                return false;
            }
            bytes.remove_prefix(sent < 0 ? 0 : static_cast<std::size_t>(sent));
        }
        return true;
    }

    // Writes a piece behind whose last byte every reading ends, however much was written after it:
    // the system does not read across a descriptor that travels with the bytes (Unix sockets only).
    // False when the other side does not take it.
    bool TryWritePiece(std::string_view bytes) {
        while (!bytes.empty()) {
            iovec part{const_cast<char*>(bytes.data()), bytes.size()};  // NOLINT(*-const-cast)
            alignas(cmsghdr) std::array<char, CMSG_SPACE(sizeof(int))> control{};
            msghdr message{};
            message.msg_iov = &part;
            message.msg_iovlen = 1;
            message.msg_control = control.data();
            message.msg_controllen = control.size();
            cmsghdr* passed = CMSG_FIRSTHDR(&message);
            passed->cmsg_level = SOL_SOCKET;
            passed->cmsg_type = SCM_RIGHTS;
            passed->cmsg_len = CMSG_LEN(sizeof(int));
            const int anything = STDERR_FILENO;
            std::memcpy(CMSG_DATA(passed), &anything, sizeof(anything));
            const ssize_t sent = ::sendmsg(end.Get(), &message, MSG_NOSIGNAL);
            if (sent < 0 && errno != EINTR) {
                return false;
            }
            bytes.remove_prefix(sent < 0 ? 0 : static_cast<std::size_t>(sent));
        }
        return true;
    }

    void WritePiece(std::string_view bytes) {
        if (!TryWritePiece(bytes)) {
            throw std::system_error(errno, std::system_category(), "Could not write a piece");
        }
    }

    // Reads `size` bytes, fewer only at the end of the stream.
    std::string Read(std::size_t size) {
        std::string bytes(size, '\0');
        std::size_t done = 0;
        while (done < size) {
            const ssize_t count = ::recv(end.Get(), bytes.data() + done, size - done, 0);
            if (count == 0) {
                break;
            }
            if (count < 0 && errno != EINTR) {
                throw std::system_error(errno, std::system_category(), "Could not read");
            }
            done += count < 0 ? 0 : static_cast<std::size_t>(count);
        }
        bytes.resize(done);
        return bytes;
    }

    // Whether there is anything to read at this moment, the end of the stream included.
    bool HasInput() const {
        pollfd state{end.Get(), POLLIN, 0};
        return ::poll(&state, 1, 0) > 0;
    }

    // Waits for the end of the stream; true when nothing came before it.
    bool SeesTheEnd() { return Read(1).empty(); }

  private:
    Descriptor end;
};

// Two connected Unix stream sockets: `near` is for what is tested, `far` is its peer.
class SocketPair {
  public:
    SocketPair() {
        std::array<int, 2> ends{};
        if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends.data()) != 0) {
            throw std::system_error(errno, std::system_category(), "No socket pair");
        }
        near = Descriptor(ends[0]);
        far = RawPeer(Descriptor(ends[1]));
    }

    Descriptor near;
    RawPeer far{Descriptor()};
};

}  // namespace Brantel::Tests
