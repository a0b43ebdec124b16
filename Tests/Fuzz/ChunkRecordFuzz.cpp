// The checked readers of the chunk record, on any bytes: what is taken for a record is written back
// byte for byte; what is refused changes nothing; buffer and file answer alike.
#include <libProtocolX/DataChunk.h>
#include <libTime/TimePoint.h>

#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <set>
#include <string>
#include <vector>

namespace {

using Brantel::ProtocolX::DataChunk;
using Brantel::Time::TimePoint;

void Require(bool holds, const char* what) {
    if (!holds) {
        std::cerr << "Does not hold: " << what << std::endl;
        std::abort();
    }
}

DataChunk Marked() {
    DataChunk chunk;
    chunk.SetTimePoint(TimePoint::Nanoseconds(4711));
    chunk.SetProperty("mark", "as before");
    return chunk;
}

std::vector<unsigned char> RecordOf(const DataChunk& chunk) {
    std::vector<unsigned char> record(chunk.GetSizeOnFile());
    Require(chunk.TryWrite(record.data(), record.size()) == record.size(), "it can be written");
    return record;
}

void RequireUnchanged(const DataChunk& chunk) {
    Require(RecordOf(chunk) == RecordOf(Marked()), "a refused record changes nothing");
}

// A file in memory that begins with one byte more, so that no position is 0 by chance.
class MemoryFile {
  public:
    MemoryFile() : fd(memfd_create("record", MFD_CLOEXEC)) {
        Require(fd >= 0 && write(fd, "x", 1) == 1, "a file can be made");
    }
    ~MemoryFile() { close(fd); }
    MemoryFile(const MemoryFile&) = delete;
    MemoryFile& operator=(const MemoryFile&) = delete;

    // Makes these bytes its contents.
    void Fill(const std::uint8_t* data, std::size_t size) const {
        Require(pwrite(fd, data, size, 1) == static_cast<ssize_t>(size), "a file can be filled");
        Require(ftruncate(fd, static_cast<off_t>(size) + 1) == 0, "a file can end");
    }
    int Get() const { return fd; }
    void Rewind() const { lseek(fd, 1, SEEK_SET); }
    std::size_t Position() const { return static_cast<std::size_t>(lseek(fd, 0, SEEK_CUR)) - 1; }

  private:
    const int fd;
};

std::size_t FromBuffer(const std::uint8_t* data, std::size_t size) {
    DataChunk chunk = Marked();
    std::string reason;
    const std::size_t taken = chunk.TryReadFrom(data, size, &reason);
    if (taken == 0) {
        RequireUnchanged(chunk);
        return 0;
    }
    Require(reason.empty() && taken <= size, "a record lies within its buffer");
    const std::vector<unsigned char> record = RecordOf(chunk);
    Require(record.size() == taken && std::memcmp(record.data(), data, taken) == 0,
            "what was read is what is written");
    return taken;
}

bool OnlyFrom(const std::set<std::string>& found, const std::set<std::string>& wanted) {
    return std::includes(wanted.begin(), wanted.end(), found.begin(), found.end());
}

void FromFile(const MemoryFile& file, const std::set<std::string>& keys, std::size_t expected) {
    DataChunk chunk = Marked();
    std::string reason;
    file.Rewind();
    const std::size_t taken = chunk.TryReadFrom(file.Get(), keys, &reason);
    Require(taken == expected, "buffer and file answer alike");
    Require(file.Position() == taken, "the position moves by the record and not otherwise");
    if (taken == 0) {
        RequireUnchanged(chunk);
    } else {
        Require(keys.empty() || OnlyFrom(chunk.GetDataKeys(), keys),
                "only the wanted blocks are kept");
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::size_t taken = FromBuffer(data, size);
    static const MemoryFile file;
    file.Fill(data, size);
    FromFile(file, {}, taken);
    FromFile(file, {"image"}, taken);
    return 0;
}
