#pragma once

#include <libProtocolX/DataChunk.h>

#include <StorageTool/Export/ExportReader.h>

#include <cstdint>
#include <functional>
#include <string>

namespace Brantel::Tool {

// Goes over all of an export file, damaged or not, and finds what is whole. One thread.
class ExportSalvage {
  public:
    struct Handlers {
        // A chunk that is whole; the next one has a later time point.
        std::function<void(const ProtocolX::DataChunk&)> onChunk;
        // What is damaged, with its place.
        std::function<void(const std::string&)> onDamage;
        // Up to this byte now and then.
        std::function<void(std::uint64_t)> onProgress;
    };
    struct Sums {
        std::int64_t chunks = 0;
        std::int64_t damages = 0;
        // What the header says, when it is whole.
        bool hasHeader = false;
        ExportFormat::Header header;
    };

    // Throws std::runtime_error when the file can't be read, or nothing in it was ever an export
    // file.
    static Sums Run(const std::string& path, const Handlers& handlers);

  private:
    ExportSalvage(ExportReader reader, const Handlers& handlers);

    void Go();
    bool Step();

    ExportReader reader;
    const Handlers& handlers;
    Sums sums;
};

}  // namespace Brantel::Tool
