#include "Export/ExportFormat.h"

#include "Export/RunningChecksum.h"

#include <cstring>
#include <stdexcept>

#ifdef __x86_64__
// The same checksums, by the widest instructions that the processor has.
#include <xxh_x86dispatch.h>
#else
#include <xxhash.h>
#endif

namespace Brantel::Tool::ExportFormat {

namespace {

constexpr std::string_view headerMagic("BRTRKEXP", 8);
constexpr std::string_view trailerMagic("BRTRKEND", 8);

template <typename Number>
void Put(std::string& bytes, Number number) {
    char raw[sizeof(number)];  // NOLINT(modernize-avoid-c-arrays): bytes of a number
    std::memcpy(raw, &number, sizeof(number));
    bytes.append(raw, sizeof(number));
}

void PutText(std::string& bytes, const std::string& text) {
    Put(bytes, static_cast<std::uint32_t>(text.size()));
    bytes += text;
}

// Takes numbers and texts off the front of bytes; throws when they end before.
class Taker {
  public:
    explicit Taker(std::string_view bytes) : left(bytes) {}

    std::string_view Bytes(std::size_t size) {
        if (size > left.size()) {
            throw std::runtime_error("the header ends within its properties");
        }
        const std::string_view bytes = left.substr(0, size);
        left.remove_prefix(size);
        return bytes;
    }
    template <typename Number>
    Number Take() {
        Number number = 0;
        std::memcpy(&number, Bytes(sizeof(number)).data(), sizeof(number));
        return number;
    }
    std::string Text() { return std::string(Bytes(Take<std::uint32_t>())); }
    std::size_t Left() const { return left.size(); }

  private:
    std::string_view left;
};

}  // namespace

std::uint64_t Checksum(std::string_view bytes) {
    return XXH3_64bits(bytes.data(), bytes.size());
}

std::string EncodeHeader(const Header& header) {
    std::string bytes(headerMagic);
    std::uint64_t size = headerStartSize + checksumSize;
    for (const auto& [key, value] : header.properties) {
        size += 2 * sizeof(std::uint32_t) + key.size() + value.size();
    }
    if (size > largestHeader) {
        throw std::runtime_error("The properties of track " + std::to_string(header.track) +
                                 " make a header of " + std::to_string(size) +
                                 " bytes; the limit is " + std::to_string(largestHeader));
    }
    Put(bytes, version);
    Put(bytes, static_cast<std::uint32_t>(size));
    Put(bytes, header.track);
    Put(bytes, header.capacity);
    Put(bytes, static_cast<std::uint64_t>(header.properties.size()));
    for (const auto& [key, value] : header.properties) {
        PutText(bytes, key);
        PutText(bytes, value);
    }
    Put(bytes, Checksum(bytes));
    return bytes;
}

std::size_t HeaderSize(std::string_view start) {
    Taker taker(start);
    if (start.size() < headerStartSize || taker.Bytes(headerMagic.size()) != headerMagic) {
        throw std::runtime_error("is no export file: it does not begin with BRTRKEXP");
    }
    const auto found = taker.Take<std::uint32_t>();
    if (found != version) {
        throw std::runtime_error("is an export file of version " + std::to_string(found) +
                                 "; this program knows version " + std::to_string(version));
    }
    const auto size = taker.Take<std::uint32_t>();
    if (size < headerStartSize + checksumSize || size > largestHeader) {
        throw std::runtime_error("the header says it has " + std::to_string(size) + " bytes");
    }
    return size;
}

Header DecodeHeader(std::string_view bytes) {
    const std::size_t size = HeaderSize(bytes);
    if (bytes.size() != size) {
        throw std::runtime_error("the file ends within its header of " + std::to_string(size) +
                                 " bytes");
    }
    const std::string_view guarded = bytes.substr(0, size - checksumSize);
    if (Taker(bytes.substr(guarded.size())).Take<std::uint64_t>() != Checksum(guarded)) {
        throw std::runtime_error("the checksum of the header is wrong");
    }
    Taker taker(guarded.substr(headerMagic.size() + 2 * sizeof(std::uint32_t)));
    Header header;
    header.track = taker.Take<std::int64_t>();
    header.capacity = taker.Take<std::int64_t>();
    for (auto count = taker.Take<std::uint64_t>(); count != 0; --count) {
        std::string key = taker.Text();
        header.properties[std::move(key)] = taker.Text();
    }
    if (taker.Left() != 0) {
        throw std::runtime_error("there are bytes behind the properties of the header");
    }
    return header;
}

namespace {

std::string PartHeadOf(std::string_view mark, std::uint64_t count) {
    std::string head(mark);
    Put(head, std::uint32_t{0});
    Put(head, count);
    return head;
}

}  // namespace

std::string EncodeRecordHead(std::string_view chunk) {
    const std::string head = PartHeadOf(recordMark, chunk.size());
    RunningChecksum checksum;
    checksum.Add(head);
    checksum.Add(chunk);
    std::string bytes;
    Put(bytes, checksum.Value());
    return bytes + head;
}

std::string EncodeIndex(const std::vector<Entry>& entries) {
    std::string guarded = PartHeadOf(indexMark, entries.size());
    guarded.reserve(guarded.size() + entries.size() * entrySize);
    for (const Entry& entry : entries) {
        Put(guarded, entry.timePoint);
        Put(guarded, entry.place);
    }
    std::string bytes;
    Put(bytes, Checksum(guarded));
    return bytes + guarded;
}

PartHead DecodePartHead(std::string_view bytes) {
    Taker taker(bytes);
    PartHead head;
    head.checksum = taker.Take<std::uint64_t>();
    const std::string_view mark = taker.Bytes(recordMark.size());
    const bool padded = taker.Take<std::uint32_t>() == 0;
    head.isRecord = padded && mark == recordMark;
    head.isIndex = padded && mark == indexMark;
    head.count = taker.Take<std::uint64_t>();
    return head;
}

std::vector<Entry> DecodeEntries(std::string_view bytes) {
    std::vector<Entry> entries;
    entries.reserve(bytes.size() / entrySize);
    for (Taker taker(bytes); taker.Left() >= entrySize;) {
        Entry entry;
        entry.timePoint = taker.Take<std::int64_t>();
        entry.place = taker.Take<std::uint64_t>();
        entries.push_back(entry);
    }
    return entries;
}

std::string EncodeTrailer(const Trailer& trailer) {
    std::string bytes(trailerMagic);
    Put(bytes, trailer.indexPlace);
    Put(bytes, trailer.count);
    Put(bytes, trailer.first);
    Put(bytes, trailer.last);
    Put(bytes, trailer.checksum);
    Put(bytes, Checksum(bytes));
    return bytes;
}

bool DecodeTrailer(std::string_view bytes, Trailer& trailer) {
    if (bytes.size() != trailerSize || bytes.substr(0, trailerMagic.size()) != trailerMagic) {
        return false;
    }
    const std::string_view guarded = bytes.substr(0, trailerSize - checksumSize);
    if (Taker(bytes.substr(guarded.size())).Take<std::uint64_t>() != Checksum(guarded)) {
        return false;
    }
    Taker taker(guarded.substr(trailerMagic.size()));
    trailer.indexPlace = taker.Take<std::uint64_t>();
    trailer.count = taker.Take<std::uint64_t>();
    trailer.first = taker.Take<std::int64_t>();
    trailer.last = taker.Take<std::int64_t>();
    trailer.checksum = taker.Take<std::uint64_t>();
    return true;
}

}  // namespace Brantel::Tool::ExportFormat
