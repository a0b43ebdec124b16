#pragma once

#include <CommonMessages.pb.h>
#include <libTime/TimePoint.h>

#include <cstddef>
#include <set>
#include <string>

namespace Brantel::ProtocolX {

// One chunk of a track: a time point, a duration, named properties and named data blocks, each list
// in the order in which its entries were added. A thin wrapper around one Protocol::Chunk message:
// its own, or after Converter::ReferenceFrom a message of the caller's, on which then every
// operation works, the changing ones and the destructor included.
//
// A key is found by a scan from the first entry; the first match wins. The setters keep keys unique
// and refuse empty keys and values; lists that come from a file or a message are taken as they are.
// References and pointers to values stay valid until the next change of the same list, Clear, or
// the end of the message. A plain value without locks: one thread at a time. Errors are
// std::runtime_error and leave the chunk as it was.
class DataChunk {
  public:
    // An empty chunk: time point and duration 0, no entries.
    DataChunk();
    // A deep copy of what `other` shows, in a message of its own.
    DataChunk(const DataChunk& other);
    // Copies what `other` shows into the chunk's own message and works on that one from then on:
    // assigning a chunk to itself ends its reference to a caller's message and keeps the contents.
    DataChunk& operator=(const DataChunk& other);
    // Empties the message that the chunk works on, a caller's message too.
    ~DataChunk();

    // Empties the chunk: time point and duration 0, no entries.
    void Clear();

    // Sets the time point; any count is taken here, a storage may refuse it.
    void SetTimePoint(const Time::TimePoint& timePoint);
    // The time point; 0 nanoseconds when none was set.
    Time::TimePoint GetTimePoint() const;
    // Sets the duration; any count is taken here, a storage may refuse it.
    void SetDuration(const Time::TimePoint& duration);
    // The duration; 0 nanoseconds when none was set.
    Time::TimePoint GetDuration() const;

    // Sets a property to a copy of `size` bytes at `value`: overwrites the first entry with this
    // key, or adds one at the end. Throws for an empty key or a size of 0.
    void SetProperty(const std::string& key, const unsigned char* value, unsigned long size);
    // The same with a string. Throws for an empty key or an empty value.
    void SetProperty(const std::string& key, const std::string& value);
    // The value of a property. Throws when there is no such property.
    const std::string& GetProperty(const std::string& key) const;
    // The bytes of a property and their number in `valueSize`; null, `valueSize` untouched, when
    // there is no such property. Never throws.
    const unsigned char* GetProperty(const char* key, unsigned long keyLength,
                                     long& valueSize) const noexcept;
    // How many entries the list has, entries with the same key counted each.
    unsigned long GetPropertySize() const;
    // The keys of all properties.
    std::set<std::string> GetPropertyKeys() const;

    // Sets a data block as SetProperty sets a property: overwrites the first one with this key, or
    // adds one at the end. Throws for an empty key or a size of 0.
    void SetData(const std::string& key, const unsigned char* value, unsigned long size);
    // The same with a string. Throws for an empty key or an empty value.
    void SetData(const std::string& key, const std::string& value);
    // The bytes of a data block. Throws when there is no such block.
    const std::string& GetData(const std::string& key) const;
    // The block to be filled in place: the first one with this key, or a new, empty one at the end.
    // Throws for an empty key.
    std::string& GetData(const std::string& key);
    // The bytes of a data block and their number in `valueSize`; null, `valueSize` untouched, when
    // there is no such block. Never throws.
    const unsigned char* GetData(const char* key, unsigned long keyLength,
                                 long& valueSize) const noexcept;
    // How many data blocks there are, those with the same key counted each.
    unsigned long GetDataSize() const;
    // The keys of all data blocks.
    std::set<std::string> GetDataKeys() const;

    // Replaces time point, duration and all properties by those of `other`; the data blocks stay.
    void CopyMetadata(const DataChunk& other);

    // Whether both have the same time point, duration, properties and data blocks, in any order. A
    // chunk in which a key occurs twice is equal to nothing, not even to itself. When `other` has
    // as many entries but lacks a key, one line on the standard output says so.
    bool IsEqual(const DataChunk& other) const;

    // Four lines: time point, duration, number of properties, number of data blocks.
    std::string ToString() const;

    // The size in bytes of the chunk as one flat record.
    //
    // Records are for files in which they follow each other. All numbers are 8 bytes in the host's
    // byte order (little-endian on x86-64), nothing is padded:
    //
    //      0  record size, this field included
    //      8  version, 1
    //     16  time point, as Time::TimePoint::Serialize writes it (8 bytes)
    //     24  duration, the same
    //     32  number of properties, then for each: key length, key, value length, value
    //      .  number of data blocks, then each as a property
    //
    // Keys and values are at least one byte long.
    unsigned long GetSizeOnFile() const;

    // Writes the record to `buffer`, which has room for GetSizeOnFile() bytes: not checked. Returns
    // the record's size. Throws std::out_of_range at an empty key or value; the buffer then holds
    // the record up to that entry's zero length.
    unsigned long Write(unsigned char* buffer) const;

    // Replaces the chunk by the record at `buffer`, which must be whole and well formed: nothing
    // but the version is checked. Returns the bytes consumed, 0 for another version (the chunk is
    // then empty). Throws std::out_of_range at a length of 0; the chunk keeps the entries before.
    unsigned long ReadFrom(const unsigned char* buffer);

    // Replaces the chunk by the record at the descriptor's position. Returns the record's size, or
    // 0 with the descriptor back where it stood: at the end of the file or for another version (the
    // chunk is empty), or when the record's size is wrong (the chunk holds what was read). Throws
    // std::out_of_range at a length of 0, wherever the descriptor then stands. Lengths are
    // believed: a damaged one makes std::string throw or takes that much memory.
    unsigned long ReadFrom(int fd);
    // The same, with only those data blocks whose key is in `keys` (empty: all); the others are
    // skipped without being read. A kept value counts with its declared length, even if the file
    // ends in it.
    unsigned long ReadFrom(int fd, const std::set<std::string>& keys);

    // Replaces the chunk by the record at the start of the `size` bytes at `buffer`; more may
    // follow it.
    //
    // This and all that follow are the checked forms, for records and files that nobody vouches
    // for. They return the size of the record, or 0 and in `reason` (when given) what is wrong,
    // which entry, the value and the limit; the reason is empty when there is just nothing there: a
    // size of 0, the end of a file. On 0 the chunk, the descriptor's position and the buffer that
    // is written to are as before. Only running out of memory throws (std::bad_alloc); it leaves
    // the same behind. No length is believed before the bytes are known to be there; a record over
    // 2 GiB - 1 is refused, since no message can carry it.
    unsigned long TryReadFrom(const unsigned char* buffer, std::size_t size,
                              std::string* reason = nullptr);
    // The same, with only those data blocks whose key is in `keys` (empty: all).
    unsigned long TryReadFrom(const unsigned char* buffer, std::size_t size,
                              const std::set<std::string>& keys, std::string* reason = nullptr);
    // The record at the position of a regular file; other descriptors are refused, because nothing
    // bounds what comes out of them. On success the position is just behind the record.
    unsigned long TryReadFrom(int fd, std::string* reason = nullptr);
    // The same, with only those data blocks whose key is in `keys` (empty: all).
    unsigned long TryReadFrom(int fd, const std::set<std::string>& keys,
                              std::string* reason = nullptr);
    // Writes the record, if it fits in the `capacity` bytes at `buffer` and no key or value is
    // empty.
    unsigned long TryWrite(unsigned char* buffer, std::size_t capacity,
                           std::string* reason = nullptr) const;

  private:
    friend class Converter;
    friend class StorageReaderX;
    friend class StorageWriterX;

    Protocol::Chunk ownChunk;
    Protocol::Chunk* activeChunk;
};

}  // namespace Brantel::ProtocolX
