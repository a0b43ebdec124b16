#include "Export/ExportWriter.h"

#include "Export/ExportDamage.h"

#include <libTime/TimePoint.h>

#include <stdexcept>
#include <utility>

namespace Brantel::Tool {

ExportWriter::ExportWriter(const std::string& path, const ExportFormat::Header& header)
    : file(DataFile::Create(path)) {
    file.Lock();
    Put(ExportFormat::EncodeHeader(header));
    WriteOut();
}

ExportWriter::ExportWriter(DataFile file, const ExportReader& read)
    : file(std::move(file)),
      entries(read.Entries()),
      checksum(read.Checksum()),
      written(read.Place()) {
    // The old index and trailer go before anything comes in their place: at no time do they stand
    // behind records that they don't know.
    this->file.Truncate(written);
}

ExportWriter ExportWriter::Continue(const std::string& path, std::int64_t track) {
    DataFile file = DataFile::OpenToChange(path);
    file.Lock();
    ExportReader reader(DataFile::OpenToRead(path));
    if (reader.Header().track != track) {
        throw std::runtime_error(path + ": is the export of track " +
                                 std::to_string(reader.Header().track) + ", not of track " +
                                 std::to_string(track));
    }
    try {
        ProtocolX::DataChunk chunk;
        while (reader.Next(chunk)) {
        }
    } catch (const ExportDamage& damage) {
        if (!damage.IsCut()) {
            throw;
        }
    }
    return {std::move(file), reader};
}

std::string ExportWriter::Append(const ProtocolX::DataChunk& chunk) {
    record.resize(chunk.GetSizeOnFile());
    std::string reason;
    if (chunk.TryWrite(reinterpret_cast<unsigned char*>(record.data()), record.size(), &reason) ==
        0) {
        return reason;
    }
    const std::int64_t timePoint = chunk.GetTimePoint().ToNanoseconds();
    if (!entries.empty() && timePoint <= Last()) {
        return "Time point " + std::to_string(timePoint) + " is not after the one before, " +
               std::to_string(Last());
    }
    const std::string head = ExportFormat::EncodeRecordHead(record);
    const std::uint64_t place = Size();
    Put(head);
    Put(record);
    entries.push_back({timePoint, place});
    return {};
}

void ExportWriter::Finish() {
    ExportFormat::Trailer trailer;
    trailer.indexPlace = Size();
    trailer.count = entries.size();
    if (!entries.empty()) {
        trailer.first = entries.front().timePoint;
        trailer.last = entries.back().timePoint;
    }
    Put(ExportFormat::EncodeIndex(entries));
    // Lasting before the trailer says that everything is there.
    WriteOut();
    file.Flush();
    trailer.checksum = checksum.Value();
    Put(ExportFormat::EncodeTrailer(trailer));
    WriteOut();
    file.Flush();
}

void ExportWriter::WriteOut() {
    file.Write(written, pending);
    written += pending.size();
    pending.clear();
}

void ExportWriter::Put(const std::string& bytes) {
    constexpr std::size_t enough = std::size_t{1} << 20U;
    checksum.Add(bytes);
    pending += bytes;
    if (pending.size() >= enough) {
        WriteOut();
    }
}

}  // namespace Brantel::Tool
