#include "GatherOutput.h"

#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>

namespace Brantel::Services {

namespace {

// Takes so many bytes away from the front. True: nothing is left.
bool Drop(iovec*& parts, std::size_t& count, std::size_t size) {
    while (count > 0 && size >= parts->iov_len) {
        size -= parts->iov_len;
        ++parts;
        --count;
    }
    if (count == 0) {
        return true;
    }
    parts->iov_base = static_cast<unsigned char*>(parts->iov_base) + size;
    parts->iov_len -= size;
    return false;
}

}  // namespace

int SendParts(int fd, iovec* parts, std::size_t count, TransferPace& pace) {
    std::size_t sent = 0;
    while (!Drop(parts, count, sent)) {
        if (!pace.Keeps(sent)) {
            return TransferPace::tooSlow;
        }
        msghdr message{};
        message.msg_iov = parts;
        message.msg_iovlen = count;
        const ssize_t result = ::sendmsg(fd, &message, MSG_NOSIGNAL);
        if (result < 0 && errno == EAGAIN) {
            pollfd wait{fd, POLLOUT, 0};
            ::poll(&wait, 1, pace.LongestWait());
        } else if (result < 0 && errno != EINTR) {
            return errno;
        }
        sent = static_cast<std::size_t>(std::max<ssize_t>(result, 0));
    }
    return 0;
}

int SendAligned(int fd, iovec* parts, std::size_t count, TransferPace& pace) {
    for (std::size_t i = 0; i < count; ++i) {
        const iovec large = parts[i];
        const std::size_t ahead =
            (cacheLineSize - reinterpret_cast<std::uintptr_t>(large.iov_base) % cacheLineSize) %
            cacheLineSize;
        if (large.iov_len < alignedPartSize || i + ahead == 0) {
            continue;
        }
        parts[i].iov_len = ahead;
        const int error = SendParts(fd, parts, i + 1, pace);
        if (error != 0) {
            return error;
        }
        parts += i;
        count -= i;
        i = 0;
        *parts = {static_cast<unsigned char*>(large.iov_base) + ahead, large.iov_len - ahead};
    }
    return SendParts(fd, parts, count, pace);
}

GatherOutput::GatherOutput(int fd, Sender sender, TransferPace& pace, unsigned char* scratch,
                           std::size_t scratchSize, std::size_t used)
    : fd(fd), sender(sender), pace(pace), scratch(scratch), scratchSize(scratchSize), used(used) {
    AddPart(scratch, used);
}

bool GatherOutput::Next(void** data, int* size) {
    if ((used == scratchSize || partCount == parts.size()) && Flush() != 0) {
        return false;
    }
    const std::size_t block = std::min(blockSize, scratchSize - used);
    *data = scratch + used;
    *size = static_cast<int>(block);
    AddPart(scratch + used, block);
    used += block;
    byteCount += static_cast<std::int64_t>(block);
    return error == 0;
}

void GatherOutput::BackUp(int count) {
    const auto unused = static_cast<std::size_t>(count);
    used -= unused;
    byteCount -= count;
    iovec& last = parts[partCount - 1];
    last.iov_len -= unused;
    if (last.iov_len == 0) {
        --partCount;
    }
}

bool GatherOutput::WriteAliasedRaw(const void* data, int size) {
    AddPart(data, static_cast<std::size_t>(size));
    byteCount += size;
    return error == 0;
}

void GatherOutput::AddPart(const void* data, std::size_t size) {
    if (size == 0) {
        return;
    }
    if (partCount > 0) {
        iovec& last = parts[partCount - 1];
        if (static_cast<const unsigned char*>(last.iov_base) + last.iov_len == data) {
            last.iov_len += size;
            return;
        }
    }
    if (partCount == parts.size()) {
        Flush();
    }
    // The system's structure has no const; sending only reads.
    parts[partCount++] = {const_cast<void*>(data), size};  // NOLINT(*-const-cast)
}

int GatherOutput::Flush() {
    if (error == 0) {
        error = sender(fd, parts.data(), partCount, pace);
    }
    partCount = 0;
    used = 0;
    return error;
}

}  // namespace Brantel::Services
