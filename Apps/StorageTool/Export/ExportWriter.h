#pragma once

#include <libProtocolX/DataChunk.h>

#include <StorageTool/Export/DataFile.h>
#include <StorageTool/Export/ExportFormat.h>
#include <StorageTool/Export/ExportReader.h>
#include <StorageTool/Export/RunningChecksum.h>

#include <cstdint>
#include <string>
#include <vector>

namespace Brantel::Tool {

// Writes an export file. What is interrupted, even by a crash, leaves a file that Continue goes on
// with behind its last whole record. Nobody else may write the file meanwhile: it is locked. One
// thread. Failures of the system are std::system_error with the path.
class ExportWriter {
  public:
    // A new file; an existing one is an error.
    ExportWriter(const std::string& path, const ExportFormat::Header& header);

    // Goes on behind the last whole record of a file that was cut off or finished. Everything in it
    // is read and checked before it is changed; throws ExportDamage, or std::runtime_error when the
    // file is of another track, or when an earlier call has failed at its header.
    static ExportWriter Continue(const std::string& path, std::int64_t track);

    // Adds a chunk, whose time point lies after the last one. Empty when that was done; otherwise
    // why it can't be a record, and nothing was changed.
    std::string Append(const ProtocolX::DataChunk& chunk);

    // Writes index and trailer, and makes everything last. Nothing may be called afterwards.
    void Finish();
    // Writes what was appended so far, so that it can be continued.
    void WriteOut();

    // The last time point; -1 without a record.
    std::int64_t Last() const { return entries.empty() ? -1 : entries.back().timePoint; }
    std::uint64_t Count() const { return entries.size(); }
    // The size of the file when everything is written out.
    std::uint64_t Size() const { return written + pending.size(); }

  private:
    ExportWriter(DataFile file, const ExportReader& read);

    void Put(const std::string& bytes);

    DataFile file;
    std::vector<ExportFormat::Entry> entries;
    RunningChecksum checksum;  // of everything that was put
    std::uint64_t written = 0;
    std::string pending;
    std::string record;
};

}  // namespace Brantel::Tool
