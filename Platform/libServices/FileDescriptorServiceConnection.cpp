#include "FileDescriptorServiceConnection.h"

#include "GatherOutput.h"
#include "MessageNotSendable.h"
#include "MessageReceiver.h"
#include "SocketDisconnected.h"
#include "SocketReader.h"

#include <google/protobuf/io/coded_stream.h>
#include <google/protobuf/message.h>

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <exception>
#include <stdexcept>
#include <system_error>

namespace Brantel::Services {

namespace {

using google::protobuf::Message;
using google::protobuf::io::CodedOutputStream;

// Together with the reader's buffer, 64 KiB.
constexpr std::size_t scratchSize = std::size_t{16} * 1024;
constexpr std::size_t lengthSizeLimit = 5;
static_assert(scratchSize + SocketReader::capacity <= std::size_t{64} * 1024);

void PrepareDescriptor(int fd) {
    const int flags = ::fcntl(fd, F_GETFL);
    if (flags < 0 || ::fcntl(fd, F_SETFL, flags & ~O_NONBLOCK) < 0 ||
        ::fcntl(fd, F_SETFD, FD_CLOEXEC) < 0) {
        throw std::system_error(errno, std::system_category(),
                                "Could not use descriptor " + std::to_string(fd));
    }
}

bool IsUnixDomain(int fd) {
    int domain = 0;
    socklen_t size = sizeof(domain);
    return ::getsockopt(fd, SOL_SOCKET, SO_DOMAIN, &domain, &size) == 0 && domain == AF_UNIX;
}

std::string OverTheLimit(const char* what, std::size_t size, std::size_t limit) {
    return std::string(what) + std::to_string(size) + " bytes is over the limit of " +
           std::to_string(limit) + " bytes";
}

[[noreturn]] void ThrowNotInitialized(const Message& message) {
    throw MessageNotSendable("Message " + message.GetTypeName() +
                             " lacks required fields: " + message.InitializationErrorString());
}

}  // namespace

FileDescriptorServiceConnection::FileDescriptorServiceConnection(int fd, std::size_t messageLimit,
                                                                 SpinGovernor& governor)
    : fd(fd), messageLimit(messageLimit) {
    try {
        if (messageLimit == 0 || messageLimit > highestMessageLimit) {
            throw std::invalid_argument("Message limit of " + std::to_string(messageLimit) +
                                        " bytes is not between 1 and " +
                                        std::to_string(highestMessageLimit));
        }
        PrepareDescriptor(fd);
        unixDomain = IsUnixDomain(fd);
        reader = std::make_unique<SocketReader>(this->fd, governor);
    } catch (...) {
        ::close(fd);
        throw;
    }
}

FileDescriptorServiceConnection::~FileDescriptorServiceConnection() {
    ::close(fd);
}

void FileDescriptorServiceConnection::Close() {
    closed.store(true);
    broken.store(true);
    ::shutdown(fd, SHUT_RDWR);
}

bool FileDescriptorServiceConnection::PeerGone() const {
    pollfd state{fd, POLLRDHUP, 0};
    return ::poll(&state, 1, 0) > 0;
}

inline void FileDescriptorServiceConnection::SendSmall(const Message& message, std::size_t size) {
    unsigned char* end =
        CodedOutputStream::WriteVarint32ToArray(static_cast<std::uint32_t>(size), scratch.get());
    end = message.SerializeWithCachedSizesToArray(end);
    const auto frameSize = end - scratch.get();
    const ssize_t sent =
        ::send(fd, scratch.get(), static_cast<std::size_t>(frameSize), MSG_NOSIGNAL);
    if (sent != frameSize) {
        FinishSend(sent, frameSize);
    }
}

bool FileDescriptorServiceConnection::Send(const Message& message) {
    if (!message.IsInitialized()) {
        ThrowNotInitialized(message);
    }
    const std::size_t size = message.ByteSizeLong();
    if (size > messageLimit) {
        throw MessageNotSendable(OverTheLimit("Message of ", size, messageLimit));
    }
    if (broken.load(std::memory_order_relaxed)) {
        return true;
    }
    if (!scratch) {
        // Not value-initialised: pages that are never written are never touched.
        scratch.reset(new unsigned char[scratchSize]);  // NOLINT(modernize-make-unique)
    }
    if (size + lengthSizeLimit <= scratchSize) {
        SendSmall(message, size);
    } else {
        SendLarge(message, size);
    }
    return true;
}

// What is left to do when the first `send` of a small frame did not take it all.
void FileDescriptorServiceConnection::FinishSend(long sent, long frameSize) {
    if (sent < 0 && errno != EINTR && errno != EAGAIN) {
        NoteSendError(errno);
        return;
    }
    const long done = std::max(sent, 0L);
    iovec rest{scratch.get() + done, static_cast<std::size_t>(frameSize - done)};
    NoteSendError(SendParts(fd, &rest, 1));
}

void FileDescriptorServiceConnection::SendLarge(const Message& message, std::size_t size) {
    unsigned char* end =
        CodedOutputStream::WriteVarint32ToArray(static_cast<std::uint32_t>(size), scratch.get());
    GatherOutput output(fd, unixDomain ? SendAligned : SendParts, scratch.get(), scratchSize,
                        static_cast<std::size_t>(end - scratch.get()));
    {
        CodedOutputStream stream(&output);
        stream.EnableAliasing(true);
        message.SerializeWithCachedSizes(&stream);
    }
    NoteSendError(output.Flush());
}

void FileDescriptorServiceConnection::NoteSendError(int error) {
    if (error != 0) {
        sendError.store(error);
        broken.store(true);
        // Half a message may have left: nobody can follow what would come after it.
        ::shutdown(fd, SHUT_RDWR);
    }
}

inline std::size_t FileDescriptorServiceConnection::ReceiveLength() {
    constexpr unsigned bitsPerByte = 7;
    constexpr unsigned char more = 0x80;
    reader->Fill(1);
    std::size_t size = reader->Data()[0];
    std::size_t lengthSize = 1;
    if (size >= more) {
        size -= more;
        unsigned char byte = more;
        while (byte >= more) {
            if (lengthSize == lengthSizeLimit) {
                lost = "Connection lost: a message length of more than 5 bytes is not valid";
                throw SocketDisconnected(lost);
            }
            reader->Fill(lengthSize + 1);
            byte = reader->Data()[lengthSize];
            size |= static_cast<std::size_t>(byte & ~more) << (bitsPerByte * lengthSize);
            ++lengthSize;
        }
    }
    if (size > messageLimit) {
        lost = OverTheLimit("Connection lost: message of ", size, messageLimit);
        throw SocketDisconnected(lost);
    }
    reader->Consume(lengthSize);
    bodySize = size;
    return size;
}

inline bool FileDescriptorServiceConnection::ReceiveBody(Message& message, std::size_t size) {
    if (size <= SocketReader::capacity) {
        reader->Fill(size);
        const bool valid = message.ParsePartialFromArray(reader->Data(), static_cast<int>(size));
        reader->Consume(size);
        return valid;
    }
    bodyStart = reader->Received() - reader->Available();
    message.Clear();
    return MessageReceiver(*reader).Receive(message, size);
}

bool FileDescriptorServiceConnection::Receive(Message& message) {
    try {
        if (broken.load(std::memory_order_relaxed)) {
            ThrowLost();
        }
        inStep = false;
        bodySize = 0;
        const std::size_t size = ReceiveLength();
        const bool valid = ReceiveBody(message, size);
        inStep = true;
        if (!valid) {
            throw std::runtime_error("Received " + std::to_string(size) + " bytes that are not a " +
                                     message.GetTypeName());
        }
        if (!message.IsInitialized()) {
            throw std::runtime_error(
                "Received a " + message.GetTypeName() +
                " that lacks required fields: " + message.InitializationErrorString());
        }
    } catch (const std::exception& failure) {
        message.Clear();
        if (inStep) {
            throw;
        }
        // Lost, or stopped half-way (no memory, say): what comes next can't be followed.
        broken.store(true);
        ::shutdown(fd, SHUT_RDWR);
        if (lost.empty() && closed.load()) {
            lost = "Connection closed";
        } else if (lost.empty()) {
            lost = Describe(failure);
        }
        throw SocketDisconnected(lost);
    }
    return true;
}

std::string FileDescriptorServiceConnection::Describe(const std::exception& failure) const {
    if (dynamic_cast<const SocketDisconnected*>(&failure) != nullptr) {
        return failure.what() + WhereLost();
    }
    return std::string("Connection lost in the middle of a message: ") + failure.what();
}

// Nothing between two messages; a length that is not whole is still buffered, as a small body is.
std::string FileDescriptorServiceConnection::WhereLost() const {
    if (bodySize > 0) {
        const bool buffered = bodySize <= SocketReader::capacity;
        const std::uint64_t came = buffered ? reader->Available() : reader->Received() - bodyStart;
        return " after " + std::to_string(came) + " of " + std::to_string(bodySize) +
               " bytes of a message";
    }
    const std::size_t came = reader->Available();
    if (came == 0) {
        return {};
    }
    return " after " + std::to_string(came) + (came == 1 ? " byte" : " bytes") +
           " of a message's length";
}

void FileDescriptorServiceConnection::ThrowLost() {
    if (lost.empty() && !inStep) {
        // There was no memory for the reason.
        lost = "Connection lost";
    } else if (lost.empty() && closed.load()) {
        lost = "Connection closed";
    } else if (lost.empty()) {
        lost = "Connection lost: " + std::system_category().message(sendError.load());
    }
    throw SocketDisconnected(lost);
}

std::string FileDescriptorServiceConnection::WhyLost() const {
    if (closed.load()) {
        return {};
    }
    return lost;
}

}  // namespace Brantel::Services
