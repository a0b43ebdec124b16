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

std::string OverTheLimit(const char* what, std::size_t size, std::size_t limit) {
    return std::string(what) + std::to_string(size) + " bytes is over the limit of " +
           std::to_string(limit) + " bytes";
}

std::string WhyLost(const std::exception& failure) {
    const bool reported = dynamic_cast<const SocketDisconnected*>(&failure) != nullptr;
    return reported ? failure.what()
                    : std::string("Connection lost in the middle of a message: ") + failure.what();
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
    ::shutdown(fd, SHUT_RDWR);
}

bool FileDescriptorServiceConnection::PeerGone() const {
    pollfd state{fd, POLLRDHUP, 0};
    return ::poll(&state, 1, 0) > 0;
}

bool FileDescriptorServiceConnection::Send(const Message& message) {
    if (!message.IsInitialized()) {
        throw MessageNotSendable("Message " + message.GetTypeName() +
                                 " lacks required fields: " + message.InitializationErrorString());
    }
    const std::size_t size = message.ByteSizeLong();
    if (size > messageLimit) {
        throw MessageNotSendable(OverTheLimit("Message of ", size, messageLimit));
    }
    if (sendError.load(std::memory_order_relaxed) != 0) {
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

void FileDescriptorServiceConnection::SendSmall(const Message& message, std::size_t size) {
    unsigned char* end =
        CodedOutputStream::WriteVarint32ToArray(static_cast<std::uint32_t>(size), scratch.get());
    end = message.SerializeWithCachedSizesToArray(end);
    iovec part{scratch.get(), static_cast<std::size_t>(end - scratch.get())};
    NoteSendError(SendParts(fd, &part, 1));
}

void FileDescriptorServiceConnection::SendLarge(const Message& message, std::size_t size) {
    unsigned char* end =
        CodedOutputStream::WriteVarint32ToArray(static_cast<std::uint32_t>(size), scratch.get());
    GatherOutput output(fd, scratch.get(), scratchSize,
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
        sendError.store(error, std::memory_order_relaxed);
        // Half a message may have left: nobody can follow what would come after it.
        ::shutdown(fd, SHUT_RDWR);
    }
}

bool FileDescriptorServiceConnection::Receive(Message& message) {
    try {
        ThrowIfLost();
        ReceiveWhole(message);
    } catch (const std::exception& failure) {
        message.Clear();
        if (inStep) {
            throw;
        }
        // Lost, or stopped half-way (no memory, say): what comes next can't be followed.
        ::shutdown(fd, SHUT_RDWR);
        if (lost.empty()) {
            lost = closed.load() ? "Connection closed" : WhyLost(failure);
        }
        throw SocketDisconnected(lost);
    }
    return true;
}

void FileDescriptorServiceConnection::ThrowIfLost() const {
    if (!inStep) {
        throw SocketDisconnected(lost.empty() ? "Connection lost" : lost);
    }
    if (closed.load(std::memory_order_relaxed)) {
        throw SocketDisconnected("Connection closed");
    }
    const int error = sendError.load(std::memory_order_relaxed);
    if (error != 0) {
        throw SocketDisconnected("Connection lost: " + std::system_category().message(error));
    }
}

void FileDescriptorServiceConnection::ReceiveWhole(Message& message) {
    inStep = false;
    const std::size_t size = ReceiveLength();
    bool valid = false;
    if (size <= SocketReader::capacity) {
        reader->Fill(size);
        valid = message.ParsePartialFromArray(reader->Data(), static_cast<int>(size));
        reader->Consume(size);
    } else {
        message.Clear();
        valid = MessageReceiver(*reader).Receive(message, size);
    }
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
}

std::size_t FileDescriptorServiceConnection::ReceiveLength() {
    constexpr unsigned bitsPerByte = 7;
    constexpr unsigned char more = 0x80;
    reader->Fill(1);
    std::size_t size = 0;
    for (std::size_t i = 0; i < lengthSizeLimit; ++i) {
        reader->Fill(i + 1);
        const unsigned char byte = reader->Data()[i];
        size |= static_cast<std::size_t>(byte & ~more) << (bitsPerByte * i);
        if ((byte & more) == 0) {
            if (size > messageLimit) {
                throw SocketDisconnected(
                    OverTheLimit("Connection lost: message of ", size, messageLimit));
            }
            reader->Consume(i + 1);
            return size;
        }
    }
    throw SocketDisconnected("Connection lost: a message length of more than 5 bytes is not valid");
}

}  // namespace Brantel::Services
