// The reader of export files, on any bytes: it comes to an end or says where the damage is; chunks
// come in the order of time, and the search for whole records finds every one that was read. When
// the first byte is odd, checksums of parts are made right first, so that what lies behind them is
// reached.
#include <libProtocolX/DataChunk.h>
#include <libTime/TimePoint.h>

#include <StorageTool/Export/DataFile.h>
#include <StorageTool/Export/ExportDamage.h>
#include <StorageTool/Export/ExportFormat.h>
#include <StorageTool/Export/ExportReader.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <stdexcept>
#include <string>
#include <string_view>

namespace {

using Brantel::ProtocolX::DataChunk;
using Brantel::Tool::DataFile;
using Brantel::Tool::ExportDamage;
using Brantel::Tool::ExportHeaderError;
using Brantel::Tool::ExportReader;
namespace ExportFormat = Brantel::Tool::ExportFormat;

void Require(bool holds, const char* what) {
    if (!holds) {
        std::cerr << "Does not hold: " << what << std::endl;
        std::abort();
    }
}

void PutChecksum(std::string& bytes, std::size_t at, std::string_view of) {
    const std::uint64_t checksum = ExportFormat::Checksum(of);
    std::memcpy(bytes.data() + at, &checksum, sizeof checksum);
}

// Makes the two checksums of what may be the trailer right.
void MakeEndRight(std::string& bytes) {
    constexpr std::size_t guarded = ExportFormat::trailerSize - ExportFormat::checksumSize;
    const std::size_t place = bytes.size() - ExportFormat::trailerSize;
    const std::string_view all = bytes;
    PutChecksum(bytes, place + guarded - ExportFormat::checksumSize, all.substr(0, place));
    PutChecksum(bytes, place + guarded, all.substr(place, guarded));
}

// Makes the checksums of the header and of the parts behind it right, as far as their sizes lead.
void MakeRight(std::string& bytes) {
    std::size_t place = 0;
    try {
        place = ExportFormat::HeaderSize(bytes);
    } catch (const std::runtime_error&) {
        return;
    }
    if (place > bytes.size()) {
        return;
    }
    const std::size_t end = place - ExportFormat::checksumSize;
    PutChecksum(bytes, end, std::string_view(bytes).substr(0, end));
    while (bytes.size() - place >= ExportFormat::partHeadSize) {
        const auto head = ExportFormat::DecodePartHead(
            std::string_view(bytes).substr(place, ExportFormat::partHeadSize));
        const std::uint64_t left = bytes.size() - place - ExportFormat::partHeadSize;
        const std::uint64_t unit = head.isIndex ? ExportFormat::entrySize : 1;
        if ((!head.isRecord && !head.isIndex) || head.count > left / unit) {
            return;
        }
        const std::size_t size = ExportFormat::partHeadSize + head.count * unit;
        PutChecksum(bytes, place,
                    std::string_view(bytes).substr(place + ExportFormat::checksumSize,
                                                   size - ExportFormat::checksumSize));
        place += size;
        if (head.isIndex && bytes.size() - place == ExportFormat::trailerSize) {
            MakeEndRight(bytes);
            return;
        }
    }
}

// The same file in memory each time, with these contents.
DataFile FileOf(const std::string& bytes) {
    static const int memory = memfd_create("export", MFD_CLOEXEC);
    const int descriptor = dup(memory);
    Require(descriptor >= 0, "a file can be made");
    DataFile file(descriptor, "file");
    file.Write(0, bytes);
    file.Truncate(bytes.size());
    return file;
}

void ReadAll(const std::string& bytes) {
    ExportReader reader(FileOf(bytes));
    DataChunk chunk;
    std::int64_t last = INT64_MIN;
    try {
        while (reader.Next(chunk)) {
            const std::int64_t timePoint = chunk.GetTimePoint().ToNanoseconds();
            Require(timePoint > last, "time points increase");
            last = timePoint;
        }
        Require(ExportReader::IsFinished(FileOf(bytes)), "what comes to its end was finished");
    } catch (const ExportDamage& damage) {
        Require(damage.Place() <= bytes.size(), "damage lies in the file");
        Require(reader.Place() <= damage.Place(), "the reader stays before the damage");
    }
    for (const auto& entry : reader.Entries()) {
        Require(reader.FindRecord(entry.place) == entry.place, "each record is found");
    }
    Require(reader.FindRecord(reader.Place()) <= bytes.size(), "the search ends");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size == 0) {
        return 0;
    }
    std::string bytes(reinterpret_cast<const char*>(data) + 1, size - 1);
    if (data[0] % 2 == 1) {
        MakeRight(bytes);
    }
    try {
        ReadAll(bytes);
    } catch (const ExportHeaderError&) {
        return 0;
    }
    return 0;
}
