#include "ChunkRecord.h"

#include "Converter.h"

#include <CommonMessages.pb.h>
#include <libTime/TimePoint.h>

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <system_error>

namespace Brantel::ProtocolX::ChunkRecord {
namespace {

constexpr std::uint64_t numberSize = 8;
constexpr std::uint64_t timePointSize = Time::TimePoint::serializedSize;
constexpr std::uint64_t headerSize = 2 * numberSize;
constexpr std::uint64_t leastRecordSize = headerSize + 2 * timePointSize + 2 * numberSize;
// One byte of key, one byte of value and their lengths.
constexpr std::uint64_t leastEntrySize = 2 * numberSize + 2;

std::string Number(std::uint64_t value) {
    return std::to_string(value);
}

std::string SystemText(int code) {
    return std::system_category().message(code);
}

std::string TooLarge(std::uint64_t size) {
    return "the record size is " + Number(size) + ", over the limit of " + Number(sizeLimit);
}

// The two sources below have the same operations. The parser asks for no more than Size() bytes
// altogether. What can't be read is zero bytes, and Fault() says why from then on; since a length
// of 0 ends every record, the parser has nothing to test before its end.

class BufferSource {
  public:
    BufferSource(const unsigned char* buffer, std::uint64_t size) : next(buffer), size(size) {}

    std::uint64_t Size() const { return size; }
    static std::string Fault() { return {}; }

    void Read(unsigned char* to, std::uint64_t count) {
        std::memcpy(to, next, count);
        next += count;
    }
    void Read(std::string& to, std::uint64_t count) {
        to.assign(reinterpret_cast<const char*>(next), count);
        next += count;
    }
    void Skip(std::uint64_t count) { next += count; }

  private:
    const unsigned char* next;
    const std::uint64_t size;
};

// Reads ahead in small pieces, so that a short field costs no system call of its own; long values
// go from the file straight into their strings. The file's position is never touched.
class FileSource {
  public:
    FileSource(int fd, std::uint64_t position, std::uint64_t size)
        : fd(fd), filePosition(position), size(size) {}

    std::uint64_t Size() const { return size; }
    const std::string& Fault() const { return fault; }

    void Read(unsigned char* to, std::uint64_t count) {
        const std::uint64_t taken = TakeBuffered(to, count);
        to += taken;
        count -= taken;
        if (count >= ahead.size()) {
            Fetch(to, count, count);
        } else if (count != 0) {
            begin = 0;
            end = Fetch(ahead.data(), count, ahead.size());
            const std::uint64_t came = TakeBuffered(to, count);
            std::memset(to + came, 0, count - came);
        }
    }
    void Read(std::string& to, std::uint64_t count) {
        to.resize(count);
        Read(reinterpret_cast<unsigned char*>(to.data()), count);
    }
    void Skip(std::uint64_t count) {
        const std::uint64_t buffered = std::min<std::uint64_t>(count, end - begin);
        begin += buffered;
        filePosition += count - buffered;
    }

  private:
    std::uint64_t TakeBuffered(unsigned char* to, std::uint64_t count) {
        const std::uint64_t taken = std::min<std::uint64_t>(count, end - begin);
        std::memcpy(to, ahead.data() + begin, taken);
        begin += taken;
        return taken;
    }

    // Reads at least `least` and at most `most` bytes; returns how many came.
    std::uint64_t Fetch(unsigned char* to, std::uint64_t least, std::uint64_t most) {
        std::uint64_t done = 0;
        while (done < least) {
            ssize_t result = 0;
            do {
                result = ::pread64(fd, to + done, most - done, static_cast<off64_t>(filePosition));
            } while (result < 0 && errno == EINTR);
            if (result <= 0) {
                fault = WhyStopped(result < 0 ? errno : 0);
                return done;
            }
            done += static_cast<std::uint64_t>(result);
            filePosition += static_cast<std::uint64_t>(result);
        }
        return done;
    }

    // `error`: the system's number, 0 at the end of the file.
    std::string WhyStopped(int error) const {
        if (error == 0) {
            return "the file was cut at offset " + Number(filePosition) + " while it was read";
        }
        return "reading at offset " + Number(filePosition) + " failed: " + SystemText(error);
    }

    const int fd;
    std::uint64_t filePosition;
    const std::uint64_t size;
    std::string fault;
    std::array<unsigned char, 4096> ahead;
    std::size_t begin = 0;
    std::size_t end = 0;
};

template <typename Source>
class Parser {
  public:
    explicit Parser(Source& source) : source(source) {}

    // `keys`: the data blocks that are kept, empty for all.
    Outcome Parse(const std::set<std::string>& keys, Protocol::Chunk& chunk) {
        if (source.Size() == 0) {
            return {};
        }
        const bool valid = ParseHeader() && ParseContents(keys, chunk) && IsAtEnd();
        // A fault comes first: what the parser made of the missing bytes is no reason.
        if (!source.Fault().empty()) {
            return {0, source.Fault()};
        }
        return {valid ? recordSize : 0, reason};
    }

  private:
    bool Fail(std::string text) {
        reason = std::move(text);
        return false;
    }

    std::uint64_t ReadNumber() {
        std::uint64_t number = 0;
        left -= numberSize;
        source.Read(reinterpret_cast<unsigned char*>(&number), numberSize);
        return number;
    }

    bool ParseHeader() {
        left = source.Size();
        if (left < headerSize) {
            return Fail("the header needs " + Number(headerSize) + " bytes, " + Number(left) +
                        " are left");
        }
        recordSize = ReadNumber();
        const std::uint64_t found = ReadNumber();
        if (found != version) {
            return Fail("the version is " + Number(found) + ", only " + Number(version) +
                        " is known");
        }
        if (recordSize < leastRecordSize) {
            return Fail("the record size is " + Number(recordSize) + ", below the least size of " +
                        Number(leastRecordSize));
        }
        if (recordSize > sizeLimit) {
            return Fail(TooLarge(recordSize));
        }
        if (recordSize > source.Size()) {
            return Fail("the record size is " + Number(recordSize) + ", but only " +
                        Number(source.Size()) + " bytes are left");
        }
        left = recordSize - headerSize;
        return true;
    }

    bool ParseContents(const std::set<std::string>& keys, Protocol::Chunk& chunk) {
        const std::set<std::string> all;
        ParseTimePoint(*chunk.mutable_timecode());
        ParseTimePoint(*chunk.mutable_duration());
        return ParseList("property", all, *chunk.mutable_properties()) &&
               ParseList("data block", keys, *chunk.mutable_data());
    }

    bool IsAtEnd() {
        if (left != 0) {
            return Fail("the record size is " + Number(recordSize) + ", but its entries end at " +
                        Number(recordSize - left));
        }
        return true;
    }

    // Both time points and the number of properties lie within the least record size.
    void ParseTimePoint(Protocol::TimePoint& out) {
        std::array<unsigned char, timePointSize> form{};
        left -= timePointSize;
        source.Read(form.data(), form.size());
        Time::TimePoint timePoint;
        timePoint.Deserialize(form.data());
        Converter::To(timePoint, out);
    }

    template <typename List>
    bool ParseList(const char* what, const std::set<std::string>& keys, List& list) {
        if (left < numberSize) {
            return Fail(std::string("the ") + what + " count needs " + Number(numberSize) +
                        " bytes, " + Number(left) + " are left of the record");
        }
        const std::uint64_t count = ReadNumber();
        const std::uint64_t most = left / leastEntrySize;
        if (count > most) {
            return Fail(std::string("the ") + what + " count is " + Number(count) + ", but the " +
                        Number(left) + " bytes that are left of the record hold no more than " +
                        Number(most));
        }
        list.mutable_items()->Reserve(static_cast<int>(keys.empty() ? count : 0));
        for (std::uint64_t index = 0; index < count; ++index) {
            if (!ParseEntry(keys, list)) {
                return Fail(std::string(what) + " " + Number(index) + ": " + reason);
            }
        }
        return true;
    }

    // A length that fits in what is left of the record and isn't 0.
    bool ParseLength(const char* of, std::uint64_t& length) {
        if (left < numberSize) {
            return Fail(std::string("the ") + of + " length needs " + Number(numberSize) +
                        " bytes, " + Number(left) + " are left of the record");
        }
        length = ReadNumber();
        if (length == 0) {
            return Fail(std::string("the ") + of + " is empty");
        }
        if (length > left) {
            return Fail(std::string("the ") + of + " length is " + Number(length) + ", but only " +
                        Number(left) + " bytes are left of the record");
        }
        return true;
    }

    void ReadBytes(std::uint64_t length, std::string& to) {
        left -= length;
        source.Read(to, length);
    }

    template <typename List>
    bool ParseEntry(const std::set<std::string>& keys, List& list) {
        std::uint64_t length = 0;
        std::string key;
        if (!ParseLength("key", length)) {
            return false;
        }
        ReadBytes(length, key);
        if (!ParseLength("value", length)) {
            return false;
        }
        if (!keys.empty() && keys.count(key) == 0) {
            left -= length;
            source.Skip(length);
            return true;
        }
        auto* item = list.add_items();
        item->set_key(std::move(key));
        ReadBytes(length, *item->mutable_value());
        return true;
    }

    Source& source;
    std::uint64_t recordSize = 0;
    std::uint64_t left = 0;
    std::string reason;
};

// Names the first entry with an empty key or value.
template <typename List>
std::string WhyNotWritable(const std::string& what, const List& list) {
    for (int index = 0; index < list.items_size(); ++index) {
        const auto& item = list.items(index);
        if (item.key().empty() || item.value().empty()) {
            return what + " " + std::to_string(index) + ": the " +
                   (item.key().empty() ? "key" : "value") + " is empty";
        }
    }
    return {};
}

Outcome Refused(const std::string& why) {
    return {0, "Chunk record: " + why};
}

}  // namespace

Outcome ReadBuffer(const unsigned char* buffer, std::uint64_t size,
                   const std::set<std::string>& keys, Protocol::Chunk& chunk) {
    BufferSource source(buffer, size);
    Outcome outcome = Parser(source).Parse(keys, chunk);
    return outcome.reason.empty() ? outcome : Refused(outcome.reason);
}

Outcome ReadFile(int fd, const std::set<std::string>& keys, Protocol::Chunk& chunk) {
    struct stat status {};
    if (::fstat(fd, &status) != 0) {
        return Refused("descriptor " + std::to_string(fd) + ": " + SystemText(errno));
    }
    if (!S_ISREG(status.st_mode)) {
        return Refused("descriptor " + std::to_string(fd) +
                       " is not a regular file, nothing bounds what comes out of it");
    }
    const off64_t position = ::lseek64(fd, 0, SEEK_CUR);
    if (position < 0) {
        return Refused("descriptor " + std::to_string(fd) +
                       " has no position: " + SystemText(errno));
    }
    if (position >= status.st_size) {
        return {};
    }
    FileSource source(fd, static_cast<std::uint64_t>(position),
                      static_cast<std::uint64_t>(status.st_size - position));
    Outcome outcome = Parser(source).Parse(keys, chunk);
    if (!outcome.reason.empty()) {
        return Refused("at offset " + std::to_string(position) + ": " + outcome.reason);
    }
    ::lseek64(fd, position + static_cast<off64_t>(outcome.size), SEEK_SET);
    return outcome;
}

std::string WhyNotWritable(const Protocol::Chunk& chunk, std::uint64_t size,
                           std::uint64_t capacity) {
    std::string why = WhyNotWritable("property", chunk.properties());
    if (why.empty()) {
        why = WhyNotWritable("data block", chunk.data());
    }
    if (why.empty() && size > sizeLimit) {
        why = TooLarge(size);
    }
    if (why.empty() && size > capacity) {
        why = "the record size is " + Number(size) + ", but the buffer has room for " +
              Number(capacity);
    }
    if (why.empty()) {
        return {};
    }
    return Refused(why).reason;
}

}  // namespace Brantel::ProtocolX::ChunkRecord
