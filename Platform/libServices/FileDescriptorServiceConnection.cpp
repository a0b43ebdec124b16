#include "FileDescriptorServiceConnection.h"

#include "ArrivalRoom.h"
#include "CrowdRule.h"
#include "ElementCount.h"
#include "GatherOutput.h"
#include "LimitCounts.h"
#include "MessageNotSendable.h"
#include "MessageReceiver.h"
#include "MessageRefused.h"
#include "SocketDisconnected.h"
#include "SocketReader.h"
#include "TransferPace.h"
#include "WireNumbers.h"

#include <google/protobuf/descriptor.h>
#include <google/protobuf/io/coded_stream.h>
#include <google/protobuf/message.h>
#include <google/protobuf/parse_context.h>

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <exception>
#include <stdexcept>
#include <system_error>
#include <utility>

namespace Brantel::Services {

namespace {

using google::protobuf::Message;
using google::protobuf::io::CodedOutputStream;

// Together with the reader's buffer, 64 KiB.
constexpr std::size_t scratchSize = std::size_t{16} * 1024;
// What it begins with: thousands of connections that say little cost little.
constexpr std::size_t firstScratchSize = 1024;
constexpr std::size_t lengthSizeLimit = 5;
// A message of at most this size takes its memory without asking for room.
constexpr std::size_t roomless = std::size_t{64} * 1024;
// A larger one asks for so much at a time: a mebibyte of payload and what goes with it.
constexpr std::size_t roomStep = (std::size_t{1} << 20U) + (std::size_t{1} << 16U);
// A thread leaves its connection after so many quick messages, one after the other: who asks for
// something else now and then keeps it.
constexpr unsigned quickBeforeLeaving = 4;
// Who has sent more than so many at once gets a thread: others wait for their turn.
constexpr unsigned quickInOneTurn = 16;
// What is received whole before it is parsed need not be counted: an element takes two bytes.
static_assert(SocketReader::capacity / 2 <= ConnectionLimits::lowestElements);
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

// How long a send or a receive that blocks may take. An answer that is there, or room for one, is
// not looked for in a call of its own.
void SetLongestWait(int fd, int milliseconds) {
    constexpr long perSecond = 1000;
    const timeval time{milliseconds / perSecond, (milliseconds % perSecond) * perSecond};
    for (const int option : {SO_RCVTIMEO, SO_SNDTIMEO}) {
        if (::setsockopt(fd, SOL_SOCKET, option, &time, sizeof(time)) != 0) {
            throw std::system_error(
                errno, std::system_category(),
                "Could not limit the waits of descriptor " + std::to_string(fd));
        }
    }
}

// As Message::ParsePartialFromArray, with a depth of its own, which that one has not.
bool Parse(Message& message, const unsigned char* data, std::size_t size, int depth) {
    message.Clear();
    const char* at = nullptr;
    google::protobuf::internal::ParseContext context(
        depth, false, &at,
        google::protobuf::StringPiece(reinterpret_cast<const char*>(data), size));
    at = message._InternalParse(at, &context);
    return at != nullptr && context.EndedAtLimit();
}

// Empties a message that could not be received, perhaps for want of memory: then it says that it
// has the part or the text that it got no memory for, and Message::Clear would follow that; its
// destructor does not.
void Empty(Message& message) {
    using google::protobuf::FieldDescriptor;
    const auto& reflection = *message.GetReflection();
    const auto& type = *message.GetDescriptor();
    for (int i = 0; i < type.field_count(); ++i) {
        const FieldDescriptor* const field = type.field(i);
        const bool isPart = field->cpp_type() == FieldDescriptor::CPPTYPE_MESSAGE;
        if (!isPart || field->is_map()) {
            reflection.ClearField(&message, field);
        } else if (!field->is_repeated()) {
            delete reflection.ReleaseMessage(&message, field);
        } else {
            while (reflection.FieldSize(message, field) > 0) {
                delete reflection.ReleaseLast(&message, field);
            }
        }
    }
    message.Clear();
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
        sendPace = std::make_unique<TransferPace>();
    } catch (...) {
        ::close(fd);
        throw;
    }
}

FileDescriptorServiceConnection::~FileDescriptorServiceConnection() {
    GiveRoomBack();
    ::close(fd);
}

void FileDescriptorServiceConnection::SetLimits(const ConnectionLimits& newLimits,
                                                ArrivalRoom* newRoom, LimitCounts* newCounts) {
    limits = newLimits;
    room = newRoom;
    counts = newCounts;
    const TransferPace pace(limits.bytesPerSecond, limits.grace);
    *sendPace = pace;
    reader->SetPace(pace);
    if (pace.IsLimited()) {
        SetLongestWait(fd, pace.LongestWait());
    }
}

void FileDescriptorServiceConnection::SetCrowdRule(const CrowdRule* rule) noexcept {
    crowd = rule != nullptr && rule->isQuick != nullptr ? rule : nullptr;
}

bool FileDescriptorServiceConnection::ReceiveInCrowd() noexcept {
    inCrowd = true;
    quickMessages = 0;
    reader->ReceiveWhatCame();
    // Half as many end a crowd as make one, after a while: so the threads do not come and go.
    return crowd != nullptr && reader->WasCrowd(crowd->activeConnections / 2) && NextIsQuick();
}

bool FileDescriptorServiceConnection::IsIdle() const noexcept {
    return reader->Available() == 0 && restBegin == restEnd;
}

bool FileDescriptorServiceConnection::NextIsQuick() const noexcept {
    std::uint64_t size = 0;
    const std::size_t available = reader->Available();
    const std::size_t lengthSize = ReadVarint(reader->Data(), available, lengthSizeLimit, size);
    return lengthSize > 0 && size <= messageLimit && size <= available - lengthSize &&
           crowd->isQuick(reader->Data() + lengthSize, size);
}

// Whether the thread is to leave instead of waiting for the next message.
bool FileDescriptorServiceConnection::MayLeave() {
    if (inCrowd) {
        return restBegin != restEnd || ++quickMessages > quickInOneTurn || !NextIsQuick();
    }
    if (quickMessages < quickBeforeLeaving) {
        return false;
    }
    quickMessages = 0;
    return reader->Available() == 0 && reader->IsCrowd(crowd->activeConnections);
}

void FileDescriptorServiceConnection::SendRest() {
    iovec rest{scratch.get() + restBegin, restEnd - restBegin};
    restBegin = restEnd = 0;
    BeginSlowSend();
    NoteSendError(SendParts(fd, &rest, 1, *sendPace));
}

void FileDescriptorServiceConnection::Count(std::atomic<std::uint64_t> LimitCounts::*what) {
    if (counts != nullptr) {
        ++(counts->*what);
    }
}

void FileDescriptorServiceConnection::Close() {
    closed.store(true);
    broken.store(true);
    ::shutdown(fd, SHUT_RDWR);
}

void FileDescriptorServiceConnection::EndReceiving() {
    closed.store(true);
    ::shutdown(fd, SHUT_RD);
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
    const ssize_t sent = ::send(fd, scratch.get(), static_cast<std::size_t>(frameSize),
                                inCrowd ? MSG_NOSIGNAL | MSG_DONTWAIT : MSG_NOSIGNAL);
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
    const std::size_t needed = size + lengthSizeLimit;
    if (needed > scratchAllocated && scratchAllocated < scratchSize) {
        scratchAllocated = 0;
        const std::size_t next = needed <= firstScratchSize ? firstScratchSize : scratchSize;
        // Not value-initialised: pages that are never written are never touched.
        scratch.reset(new unsigned char[next]);  // NOLINT(modernize-make-unique)
        scratchAllocated = next;
    }
    if (needed <= scratchSize) {
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
    if (inCrowd) {
        restBegin = static_cast<std::size_t>(done);
        restEnd = static_cast<std::size_t>(frameSize);
        return;
    }
    iovec rest{scratch.get() + done, static_cast<std::size_t>(frameSize - done)};
    BeginSlowSend();
    NoteSendError(SendParts(fd, &rest, 1, *sendPace));
}

void FileDescriptorServiceConnection::BeginSlowSend() {
    sendPace->Restart();
    sendPace->KeepRoom(room, keptRoom);
}

void FileDescriptorServiceConnection::SendLarge(const Message& message, std::size_t size) {
    unsigned char* end =
        CodedOutputStream::WriteVarint32ToArray(static_cast<std::uint32_t>(size), scratch.get());
    BeginSlowSend();
    GatherOutput output(fd, unixDomain ? SendAligned : SendParts, *sendPace, scratch.get(),
                        scratchSize, static_cast<std::size_t>(end - scratch.get()));
    {
        CodedOutputStream stream(&output);
        stream.EnableAliasing(true);
        message.SerializeWithCachedSizes(&stream);
    }
    NoteSendError(output.Flush());
    reader->ExpectAnswerTo(size);
}

void FileDescriptorServiceConnection::NoteSendError(int error) {
    if (error != 0) {
        if (error == TransferPace::tooSlow) {
            Count(&LimitCounts::slowReceivers);
        }
        sendError.store(error);
        broken.store(true);
        // Half a message may have left: nobody can follow what would come after it.
        ::shutdown(fd, SHUT_RDWR);
    }
}

inline std::size_t FileDescriptorServiceConnection::ReceiveLength() {
    constexpr unsigned bitsPerByte = 7;
    constexpr unsigned char more = 0x80;
    reader->FillFirst();
    std::size_t size = reader->Data()[0];
    std::size_t lengthSize = 1;
    if (size >= more) {
        reader->BeginMessage();
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
        Count(&LimitCounts::oversizedMessages);
        lost = OverTheLimit("Connection lost: message of ", size, messageLimit);
        throw SocketDisconnected(lost);
    }
    reader->Consume(lengthSize);
    bodySize = size;
    return size;
}

inline bool FileDescriptorServiceConnection::ReceiveBody(Message& message, std::size_t size) {
    if (size > SocketReader::capacity) {
        quickMessages = 0;
        return ReceiveLarge(message, size);
    }
    if (reader->Available() < size) {
        reader->BeginMessage();
        reader->Fill(size);
    }
    if (crowd != nullptr && !inCrowd) {
        quickMessages = crowd->isQuick(reader->Data(), size) ? quickMessages + 1 : 0;
    }
    const bool valid = Parse(message, reader->Data(), size, limits.depth);
    if (!valid) {
        ElementCount count(limits.elements, limits.depth);
        count.Add(*message.GetDescriptor(), reader->Data(), size, 0);
        refusal = count.Reason();
    }
    reader->Consume(size);
    return valid;
}

bool FileDescriptorServiceConnection::ReceiveLarge(Message& message, std::size_t size) {
    bodyStart = reader->Received() - reader->Available();
    message.Clear();
    const bool takesRoom = room != nullptr && size > roomless;
    if (takesRoom) {
        EnterRoom(size);
    }
    reader->TakeWholeBuffer();
    reader->BeginMessage();
    ElementCount count(limits.elements, limits.depth);
    const bool isCounted = limits.elements != ConnectionLimits().elements;
    const bool valid =
        MessageReceiver(*reader, limits.depth, isCounted ? &count : nullptr).Receive(message, size);
    if (takesRoom) {
        reader->SetAdmission(nullptr);
        room->Complete(*arrival);
        keptRoom = arrival->Taken();
    }
    refusal = count.Reason();
    return valid;
}

void FileDescriptorServiceConnection::EnterRoom(std::size_t size) {
    if (arrival == nullptr) {
        arrival = std::make_unique<ArrivingMessage>();
    }
    room->Enter(*arrival, size);
    hasWaited = false;
    Admit(size, 1);
    reader->KeepRoom(room, size);
    reader->SetAdmission([this, size](std::size_t wanted) { return Admit(size, wanted); });
}

// Of a message of `size` bytes `wanted` more are to be received: how many have room.
std::size_t FileDescriptorServiceConnection::Admit(std::size_t size, std::size_t wanted) {
    const std::uint64_t came = reader->Received() - bodyStart;
    while (arrival->Taken() < size && arrival->Taken() <= came) {
        TakeRoom(std::min(roomStep, size - arrival->Taken()));
    }
    const std::uint64_t left = std::max(arrival->Taken(), came + 1) - came;
    return std::min<std::size_t>(wanted, left);
}

void FileDescriptorServiceConnection::TakeRoom(std::size_t bytes) {
    bool waited = false;
    const bool isThere = room->Take(
        *arrival, bytes, [this] { return broken.load() || PeerGone(); }, waited);
    if (waited && !std::exchange(hasWaited, true)) {
        Count(&LimitCounts::delayedMessages);
    }
    if (!isThere) {
        throw SocketDisconnected("Connection lost while a message waited for room");
    }
    if (waited) {
        // It was not the other side that took the time.
        reader->BeginMessage();
    }
}

void FileDescriptorServiceConnection::GiveRoomBack() noexcept {
    if (arrival != nullptr && arrival->IsUnderWay()) {
        room->Leave(*arrival);
        reader->KeepRoom(nullptr, 0);
        keptRoom = 0;
    }
}

void FileDescriptorServiceConnection::ThrowInvalid(const Message& message, std::size_t size) {
    if (!refusal.empty()) {
        Count(&LimitCounts::refusedMessages);
        const std::string why = std::move(refusal);
        refusal.clear();
        throw MessageRefused("Message of " + std::to_string(size) + " bytes " + why);
    }
    throw std::runtime_error("Received " + std::to_string(size) + " bytes that are not a " +
                             message.GetTypeName());
}

bool FileDescriptorServiceConnection::Receive(Message& message) {
    try {
        hasLeft = false;
        if (restBegin != restEnd && !inCrowd && !broken.load(std::memory_order_relaxed)) {
            SendRest();
        }
        if (broken.load(std::memory_order_relaxed)) {
            ThrowLost();
        }
        GiveRoomBack();
        if (crowd != nullptr) {
            hasLeft = MayLeave();
            if (hasLeft) {
                return false;
            }
        }
        inStep = false;
        bodySize = 0;
        const std::size_t size = ReceiveLength();
        const bool valid = ReceiveBody(message, size);
        inStep = true;
        if (!valid) {
            ThrowInvalid(message, size);
        }
        if (!message.IsInitialized()) {
            throw std::runtime_error(
                "Received a " + message.GetTypeName() +
                " that lacks required fields: " + message.InitializationErrorString());
        }
    } catch (const std::exception& failure) {
        Empty(message);
        if (inStep) {
            // A connection that was lost before refused nothing.
            if (lost.empty()) {
                refused = failure.what();
            }
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
        if (reader->WasTooSlow()) {
            Count(&LimitCounts::slowMessages);
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
    } else if (lost.empty() && sendError.load() == TransferPace::tooSlow) {
        lost = "Connection lost: the other side takes less than " + sendPace->Asked();
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
