#include "Export/ExportSalvage.h"

#include "Export/ExportDamage.h"

#include <stdexcept>
#include <utility>

namespace Brantel::Tool {

using ProtocolX::DataChunk;

ExportSalvage::ExportSalvage(ExportReader reader, const Handlers& handlers)
    : reader(std::move(reader)), handlers(handlers) {}

ExportSalvage::Sums ExportSalvage::Run(const std::string& path, const Handlers& handlers) {
    try {
        ExportSalvage salvage(ExportReader(DataFile::OpenToRead(path)), handlers);
        salvage.sums.hasHeader = true;
        salvage.sums.header = salvage.reader.Header();
        salvage.Go();
        return salvage.sums;
    } catch (const ExportHeaderError& error) {
        // Without a single whole record this is some other file.
        ExportSalvage salvage(ExportReader::WithoutHeader(DataFile::OpenToRead(path)), handlers);
        const std::uint64_t first = salvage.reader.FindRecord(0);
        if (first == salvage.reader.Size()) {
            throw;
        }
        ++salvage.sums.damages;
        handlers.onDamage(error.what());
        salvage.reader.GoOnAt(first);
        salvage.Go();
        return salvage.sums;
    }
}

void ExportSalvage::Go() {
    while (Step()) {
        handlers.onProgress(reader.Place());
    }
}

// False at the end of what can be read.
bool ExportSalvage::Step() {
    DataChunk chunk;
    try {
        if (!reader.Next(chunk)) {
            return false;
        }
    } catch (const ExportDamage& damage) {
        const std::uint64_t next = reader.FindRecord(damage.Place() + 1);
        // Behind damage the index can't be right: that is no news.
        if (next != reader.Size() || sums.damages == 0) {
            ++sums.damages;
            handlers.onDamage(damage.what());
        }
        reader.GoOnAt(next);
        return next != reader.Size();
    }
    ++sums.chunks;
    handlers.onChunk(chunk);
    return true;
}

}  // namespace Brantel::Tool
