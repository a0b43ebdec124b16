#pragma once

#include <libProtocolX/DataChunk.h>

#include <StorageTool/Export/DataFile.h>
#include <StorageTool/Export/ExportFormat.h>
#include <StorageTool/Export/RunningChecksum.h>

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace Brantel::Tool {

// Reads an export file from its beginning to its end and checks every byte of it. Takes the memory
// of one record, and 16 bytes for each one that went by. One thread.
class ExportReader {
  public:
    // Reads the header. Throws ExportHeaderError when the file is no export file, or its header is
    // damaged.
    explicit ExportReader(DataFile file);

    const ExportFormat::Header& Header() const { return header; }
    const std::string& Path() const { return file.Path(); }

    // The chunk of the next record. False at the end, when index, trailer and all checksums are
    // right. Throws ExportDamage; the reader stays before the damage then.
    bool Next(ProtocolX::DataChunk& chunk);

    // Steps over the record at Place() or over damage: where the reading goes on, at most the
    // file's size. What was skipped makes the checksum of the whole file meaningless: Next then
    // throws at its end.
    void GoOnAt(std::uint64_t newPlace) { place = newPlace; }

    // The next place from `from` on at which a whole record stands; the file's size when there is
    // none.
    std::uint64_t FindRecord(std::uint64_t from);

    // Where the next record stands, or the index.
    std::uint64_t Place() const { return place; }
    std::uint64_t Size() const { return size; }
    // Of the records so far.
    const std::vector<ExportFormat::Entry>& Entries() const { return entries; }
    // Of all bytes before Place().
    const RunningChecksum& Checksum() const { return checksum; }

    // Whether there is a trailer, so that the file was written to its end.
    static bool IsFinished(const DataFile& file);

    // Opens the file at its beginning whatever its header says: for what is left of a damaged one.
    static ExportReader WithoutHeader(DataFile file);

  private:
    struct Blank {};
    ExportReader(DataFile file, Blank blank);

    void ReadHeader();
    // These bytes of the file, fewer at its end; valid until the next call.
    std::string_view Window(std::uint64_t from, std::uint64_t count);
    // A head and what it says that follows, when the checksum is right.
    std::string_view Part(std::uint64_t at, const ExportFormat::PartHead& head,
                          std::uint64_t bodySize);
    bool IsRecordAt(std::uint64_t at);
    void ReadEnd(const ExportFormat::PartHead& head);
    [[noreturn]] void Fail(std::uint64_t at, const std::string& what, bool isCut = false) const;

    DataFile file;
    const std::uint64_t size;
    ExportFormat::Header header;
    std::uint64_t place = 0;
    std::vector<ExportFormat::Entry> entries;
    RunningChecksum checksum;

    std::string window;
    std::uint64_t windowPlace = 0;
};

}  // namespace Brantel::Tool
