#include "GatherOutput.h"

#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>

namespace Brantel::Services {

int SendParts(int fd, iovec* parts, std::size_t count) {
    while (count > 0) {
        msghdr message{};
        message.msg_iov = parts;
        message.msg_iovlen = count;
        const ssize_t result = ::sendmsg(fd, &message, MSG_NOSIGNAL);
        if (result < 0) {
            if (errno == EAGAIN) {
                pollfd wait{fd, POLLOUT, 0};
                ::poll(&wait, 1, -1);
            } else if (errno != EINTR) {
                return errno;
            }
            continue;
        }
        auto sent = static_cast<std::size_t>(result);
        while (count > 0 && sent >= parts->iov_len) {
            sent -= parts->iov_len;
            ++parts;
            --count;
        }
        if (count > 0) {
            parts->iov_base = static_cast<unsigned char*>(parts->iov_base) + sent;
            parts->iov_len -= sent;
        }
    }
    return 0;
}

int SendAligned(int fd, iovec* parts, std::size_t count) {
    for (std::size_t i = 0; i < count; ++i) {
        const iovec large = parts[i];
        const std::size_t ahead =
            (cacheLineSize - reinterpret_cast<std::uintptr_t>(large.iov_base) % cacheLineSize) %
            cacheLineSize;
        if (large.iov_len < alignedPartSize || i + ahead == 0) {
            continue;
        }
        parts[i].iov_len = ahead;
        const int error = SendParts(fd, parts, i + 1);
        if (error != 0) {
            return error;
        }
        parts += i;
        count -= i;
        i = 0;
        *parts = {static_cast<unsigned char*>(large.iov_base) + ahead, large.iov_len - ahead};
    }
    return SendParts(fd, parts, count);
}

GatherOutput::GatherOutput(int fd, Sender sender, unsigned char* scratch, std::size_t scratchSize,
                           std::size_t used)
    : fd(fd), sender(sender), scratch(scratch), scratchSize(scratchSize), used(used) {
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
        error = sender(fd, parts.data(), partCount);
    }
    partCount = 0;
    used = 0;
    return error;
}

}  // namespace Brantel::Services
