#include "ChunkRecord.h"
#include "Converter.h"
#include "DataChunk.h"

#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <utility>

namespace Brantel::ProtocolX {
namespace {

constexpr std::uint64_t numberSize = sizeof(std::uint64_t);

// Throws the standard library's own std::out_of_range for an access to an empty string.
void RequireNotEmpty(std::uint64_t length) {
    if (length == 0) {
        static_cast<void>(std::string().at(0));
    }
}

template <typename List>
unsigned long SizeOfEntries(const List& list) {
    unsigned long size = 0;
    for (const auto& item : list.items()) {
        size += item.key().size() + item.value().size() + 2 * numberSize;
    }
    return size;
}

unsigned char* PutNumber(unsigned char* to, std::uint64_t number) {
    std::memcpy(to, &number, numberSize);
    return to + numberSize;
}

unsigned char* PutBytes(unsigned char* to, const std::string& bytes) {
    to = PutNumber(to, bytes.size());
    RequireNotEmpty(bytes.size());
    return to + bytes.copy(reinterpret_cast<char*>(to), bytes.size());
}

template <typename List>
unsigned char* PutList(unsigned char* to, const List& list) {
    to = PutNumber(to, static_cast<std::uint64_t>(list.items_size()));
    for (const auto& item : list.items()) {
        to = PutBytes(to, item.key());
        to = PutBytes(to, item.value());
    }
    return to;
}

// Reads a record in memory, field after field, believing it.
class MemoryReader {
  public:
    explicit MemoryReader(const unsigned char* at) : next(at) {}

    const unsigned char* Position() const { return next; }

    std::uint64_t Number() {
        std::uint64_t number = 0;
        std::memcpy(&number, next, numberSize);
        next += numberSize;
        return number;
    }

    void TimePoint(Protocol::TimePoint& out) {
        Time::TimePoint timePoint;
        next += timePoint.Deserialize(next);
        Converter::To(timePoint, out);
    }

    std::string Bytes() {
        const std::uint64_t length = Number();
        RequireNotEmpty(length);
        std::string bytes(reinterpret_cast<const char*>(next), length);
        next += length;
        return bytes;
    }

  private:
    const unsigned char* next;
};

// Reads a record from a descriptor, field after field, believing it. A number of which nothing or
// not all comes is made of zero bytes there, so that the end of a file is a length of 0 or an end
// of the list, and never what happened to lie in memory.
class FileReader {
  public:
    explicit FileReader(int fd) : fd(fd) {}

    // What the record's size is compared with: the results of all reads, and the declared length of
    // what was skipped or filtered.
    std::uint64_t Consumed() const { return consumed; }

    std::uint64_t Number() {
        std::uint64_t number = 0;
        consumed += Read(&number, numberSize);
        return number;
    }

    void TimePoint(Protocol::TimePoint& out) {
        Time::TimePoint timePoint;
        consumed += Moved(timePoint.Deserialize(fd));
        Converter::To(timePoint, out);
    }

    std::string Bytes() {
        std::string bytes = Sized(Number());
        consumed += Read(bytes.data(), bytes.size());
        return bytes;
    }

    void ReadList(const std::set<std::string>& keys, Protocol::DataList& list) {
        for (std::uint64_t count = Number(); count != 0; --count) {
            const std::string key = Bytes();
            const std::uint64_t length = Number();
            consumed += length;
            if (keys.count(key) == 0) {
                Skip(length);
                continue;
            }
            auto* item = list.add_items();
            item->set_key(key);
            std::string& value = *item->mutable_value();
            value = Sized(length);
            Read(value.data(), length);
        }
    }

    // Back to where this reader began.
    void GoBack() const { ::lseek64(fd, -moved, SEEK_CUR); }

    // Back by what was consumed, but not before the place where this reader began: what was
    // declared may be more than what the file held.
    void GoBackByConsumed() const {
        const auto back = static_cast<std::int64_t>(consumed);
        ::lseek64(fd, back < 0 ? -moved : -std::min(back, moved), SEEK_CUR);
    }

  private:
    static std::string Sized(std::uint64_t length) {
        RequireNotEmpty(length);
        return std::string(length, '\0');
    }

    std::uint64_t Read(void* to, std::uint64_t size) { return Moved(::read(fd, to, size)); }

    // Passes the result of a read on, -1 included, and notes how far it went.
    std::uint64_t Moved(std::int64_t result) {
        moved += std::max<std::int64_t>(result, 0);
        return static_cast<std::uint64_t>(result);
    }

    void Skip(std::uint64_t length) {
        const auto distance = static_cast<off64_t>(length);
        if (::lseek64(fd, distance, SEEK_CUR) >= 0) {
            moved += distance;
        }
    }

    const int fd;
    std::uint64_t consumed = 0;
    std::int64_t moved = 0;
};

template <typename Reader, typename List>
void ReadList(Reader& reader, List& list) {
    for (std::uint64_t count = reader.Number(); count != 0; --count) {
        std::string key = reader.Bytes();
        std::string value = reader.Bytes();
        auto* item = list.add_items();
        item->set_key(std::move(key));
        item->set_value(std::move(value));
    }
}

// What both forms on a descriptor share; `readData` reads the data blocks.
template <typename ReadData>
unsigned long ReadRecord(int fd, Protocol::Chunk& chunk, const ReadData& readData) {
    chunk.Clear();
    FileReader reader(fd);
    const std::uint64_t recordSize = reader.Number();
    const std::uint64_t version = reader.Number();
    if (reader.Consumed() != 2 * numberSize || version != ChunkRecord::version) {
        reader.GoBack();
        return 0;
    }
    reader.TimePoint(*chunk.mutable_timecode());
    reader.TimePoint(*chunk.mutable_duration());
    ReadList(reader, *chunk.mutable_properties());
    readData(reader, *chunk.mutable_data());
    if (reader.Consumed() != recordSize) {
        reader.GoBackByConsumed();
        return 0;
    }
    return recordSize;
}

// Takes over what a checked read brought, and hands its result on.
unsigned long Finish(ChunkRecord::Outcome outcome, Protocol::Chunk& chunk, Protocol::Chunk& read,
                     std::string* reason) {
    if (outcome.size != 0) {
        chunk.Swap(&read);
    }
    if (reason != nullptr) {
        *reason = std::move(outcome.reason);
    }
    return outcome.size;
}

}  // namespace

unsigned long DataChunk::GetSizeOnFile() const {
    const unsigned long header =
        2 * numberSize + 2 * Time::TimePoint().GetSerializedSize() + numberSize;
    return header + SizeOfEntries(activeChunk->properties()) + numberSize +
           SizeOfEntries(activeChunk->data());
}

unsigned long DataChunk::Write(unsigned char* buffer) const {
    const unsigned long size = GetSizeOnFile();
    unsigned char* next = PutNumber(buffer, size);
    next = PutNumber(next, ChunkRecord::version);
    next += GetTimePoint().Serialize(next);
    next += GetDuration().Serialize(next);
    next = PutList(next, activeChunk->properties());
    PutList(next, activeChunk->data());
    return size;
}

unsigned long DataChunk::ReadFrom(const unsigned char* buffer) {
    Clear();
    MemoryReader reader(buffer + numberSize);
    if (reader.Number() != ChunkRecord::version) {
        return 0;
    }
    reader.TimePoint(*activeChunk->mutable_timecode());
    reader.TimePoint(*activeChunk->mutable_duration());
    ReadList(reader, *activeChunk->mutable_properties());
    ReadList(reader, *activeChunk->mutable_data());
    return static_cast<unsigned long>(reader.Position() - buffer);
}

unsigned long DataChunk::ReadFrom(int fd) {
    return ReadRecord(fd, *activeChunk,
                      [](FileReader& reader, Protocol::DataList& data) { ReadList(reader, data); });
}

unsigned long DataChunk::ReadFrom(int fd, const std::set<std::string>& keys) {
    if (keys.empty()) {
        return ReadFrom(fd);
    }
    return ReadRecord(fd, *activeChunk, [&keys](FileReader& reader, Protocol::DataList& data) {
        reader.ReadList(keys, data);
    });
}

unsigned long DataChunk::TryReadFrom(const unsigned char* buffer, std::size_t size,
                                     std::string* reason) {
    return TryReadFrom(buffer, size, {}, reason);
}

unsigned long DataChunk::TryReadFrom(const unsigned char* buffer, std::size_t size,
                                     const std::set<std::string>& keys, std::string* reason) {
    Protocol::Chunk read;
    return Finish(ChunkRecord::ReadBuffer(buffer, size, keys, read), *activeChunk, read, reason);
}

unsigned long DataChunk::TryReadFrom(int fd, std::string* reason) {
    return TryReadFrom(fd, {}, reason);
}

unsigned long DataChunk::TryReadFrom(int fd, const std::set<std::string>& keys,
                                     std::string* reason) {
    Protocol::Chunk read;
    return Finish(ChunkRecord::ReadFile(fd, keys, read), *activeChunk, read, reason);
}

unsigned long DataChunk::TryWrite(unsigned char* buffer, std::size_t capacity,
                                  std::string* reason) const {
    std::string why = ChunkRecord::WhyNotWritable(*activeChunk, GetSizeOnFile(), capacity);
    const bool writable = why.empty();
    if (reason != nullptr) {
        *reason = std::move(why);
    }
    return writable ? Write(buffer) : 0;
}

}  // namespace Brantel::ProtocolX
