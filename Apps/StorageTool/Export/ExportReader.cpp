#include "Export/ExportReader.h"

#include "Export/ExportDamage.h"

#include <libTime/TimePoint.h>

#include <algorithm>
#include <stdexcept>
#include <utility>

namespace Brantel::Tool {

using ExportFormat::checksumSize;
using ExportFormat::PartHead;
using ExportFormat::partHeadSize;

ExportReader::ExportReader(DataFile file, Blank /*blank*/)
    : file(std::move(file)), size(this->file.Size()) {}

ExportReader::ExportReader(DataFile file) : ExportReader(std::move(file), Blank{}) {
    ReadHeader();
}

ExportReader ExportReader::WithoutHeader(DataFile file) {
    return {std::move(file), Blank{}};
}

void ExportReader::ReadHeader() {
    try {
        const std::size_t headerSize =
            ExportFormat::HeaderSize(Window(0, ExportFormat::headerStartSize));
        const std::string_view bytes = Window(0, headerSize);
        header = ExportFormat::DecodeHeader(bytes);
        checksum.Add(bytes);
        place = headerSize;
    } catch (const std::runtime_error& error) {
        throw ExportHeaderError(file.Path() + ": " + error.what());
    }
}

bool ExportReader::IsFinished(const DataFile& file) {
    const std::uint64_t size = file.Size();
    std::string bytes(ExportFormat::trailerSize, '\0');
    ExportFormat::Trailer trailer;
    return size >= bytes.size() &&
           file.Read(size - bytes.size(), bytes.data(), bytes.size()) == bytes.size() &&
           ExportFormat::DecodeTrailer(bytes, trailer);
}

std::string_view ExportReader::Window(std::uint64_t from, std::uint64_t count) {
    constexpr std::uint64_t readAhead = std::uint64_t{1} << 20U;
    const std::uint64_t there = from < size ? std::min(count, size - from) : 0;
    if (from < windowPlace || from + there > windowPlace + window.size()) {
        window.resize(std::min(std::max(there, readAhead), size - std::min(from, size)));
        windowPlace = from;
        window.resize(file.Read(from, window.data(), window.size()));
    }
    return std::string_view(window).substr(
        std::min<std::uint64_t>(from - windowPlace, window.size()), there);
}

std::string_view ExportReader::Part(std::uint64_t at, const PartHead& head,
                                    std::uint64_t bodySize) {
    const char* const kind = head.isRecord ? "record" : "index";
    if (bodySize > size - at - partHeadSize) {
        Fail(at,
             "the file ends within this " + std::string(kind) + ", which has " +
                 std::to_string(bodySize) + " bytes",
             true);
    }
    const std::string_view part = Window(at, partHeadSize + bodySize);
    if (part.size() != partHeadSize + bodySize) {
        Fail(at, "the file was made shorter meanwhile");
    }
    if (ExportFormat::Checksum(part.substr(checksumSize)) != head.checksum) {
        Fail(at, "the checksum of this " + std::string(kind) + " is wrong");
    }
    return part;
}

bool ExportReader::Next(ProtocolX::DataChunk& chunk) {
    const std::string_view start = Window(place, partHeadSize);
    if (start.size() < partHeadSize) {
        Fail(place, "the file ends without its index", true);
    }
    const PartHead head = ExportFormat::DecodePartHead(start);
    if (head.isIndex) {
        ReadEnd(head);
        return false;
    }
    if (!head.isRecord) {
        Fail(place, "neither a record nor the index begins here");
    }
    if (head.count > ExportFormat::largestChunk) {
        Fail(place, "the record says its chunk has " + std::to_string(head.count) + " bytes");
    }
    const std::string_view part = Part(place, head, head.count);
    const std::string_view body = part.substr(partHeadSize);
    std::string reason;
    const unsigned long read = chunk.TryReadFrom(
        reinterpret_cast<const unsigned char*>(body.data()), body.size(), &reason);
    if (read != body.size()) {
        Fail(place, reason.empty() ? "the chunk is shorter than its record" : reason);
    }
    const std::int64_t timePoint = chunk.GetTimePoint().ToNanoseconds();
    if (!entries.empty() && timePoint <= entries.back().timePoint) {
        Fail(place, "time point " + std::to_string(timePoint) + " is not after the one before, " +
                        std::to_string(entries.back().timePoint));
    }
    entries.push_back({timePoint, place});
    checksum.Add(part);
    place += part.size();
    return true;
}

void ExportReader::ReadEnd(const PartHead& head) {
    if (head.count > size / ExportFormat::entrySize) {
        Fail(place, "the file ends within this index of " + std::to_string(head.count) + " entries",
             true);
    }
    const std::string_view part = Part(place, head, head.count * ExportFormat::entrySize);
    const auto told = ExportFormat::DecodeEntries(part.substr(partHeadSize));
    const bool same =
        std::equal(told.begin(), told.end(), entries.begin(), entries.end(),
                   [](const auto& one, const auto& other) {
                       return one.timePoint == other.timePoint && one.place == other.place;
                   });
    if (!same) {
        Fail(place, "the index does not tell of the " + std::to_string(entries.size()) +
                        " records before it");
    }
    RunningChecksum whole = checksum;
    whole.Add(part);
    const std::uint64_t trailerPlace = place + part.size();
    if (size - trailerPlace < ExportFormat::trailerSize) {
        Fail(place, "the file ends without its trailer", true);
    }
    ExportFormat::Trailer trailer;
    if (size - trailerPlace != ExportFormat::trailerSize ||
        !ExportFormat::DecodeTrailer(Window(trailerPlace, ExportFormat::trailerSize), trailer)) {
        Fail(trailerPlace, "the file does not end with its trailer");
    }
    const bool empty = entries.empty();
    if (trailer.indexPlace != place || trailer.count != entries.size() ||
        trailer.first != (empty ? -1 : entries.front().timePoint) ||
        trailer.last != (empty ? -1 : entries.back().timePoint)) {
        Fail(trailerPlace, "the trailer does not tell of the records before it");
    }
    if (trailer.checksum != whole.Value()) {
        Fail(trailerPlace, "the checksum of the whole file is wrong");
    }
}

bool ExportReader::IsRecordAt(std::uint64_t at) {
    const std::string_view start = Window(at, partHeadSize);
    if (start.size() < partHeadSize) {
        return false;
    }
    const PartHead head = ExportFormat::DecodePartHead(start);
    if (!head.isRecord || head.count > size - at - partHeadSize) {
        return false;
    }
    const std::string_view part = Window(at, partHeadSize + head.count);
    return part.size() == partHeadSize + head.count &&
           ExportFormat::Checksum(part.substr(checksumSize)) == head.checksum;
}

std::uint64_t ExportReader::FindRecord(std::uint64_t from) {
    constexpr std::uint64_t step = std::uint64_t{1} << 20U;
    const std::string_view mark = ExportFormat::recordMark;
    while (from < size) {
        // Marks across the border of two steps are found in the second one, which overlaps.
        const std::string_view bytes = Window(from, step);
        const std::size_t found = bytes.find(mark, checksumSize);
        if (found == std::string_view::npos) {
            if (bytes.size() < step) {
                return size;
            }
            from += bytes.size() - checksumSize - mark.size() + 1;
            continue;
        }
        const std::uint64_t at = from + found - checksumSize;
        if (IsRecordAt(at)) {
            return at;
        }
        from = at + 1;
    }
    return size;
}

void ExportReader::Fail(std::uint64_t at, const std::string& what, bool isCut) const {
    throw ExportDamage(file.Path(), at, what, isCut);
}

}  // namespace Brantel::Tool
