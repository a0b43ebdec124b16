#pragma once

#include "Support/EngineHarness.h"
#include "Support/TemporaryFolder.h"

#include <libEngine/ChunkLayout.h>
#include <libEngine/Local/LocalEngine.h>

#include <cstdint>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <memory>
#include <stdexcept>
#include <string>
#include <utility>

namespace Brantel::Engine {

// A store in a temporary folder. Its crash goes on with a copy of the files as they are at that
// instant, taken behind the back of the engine, which lives on over the former folder.
class LocalHarness : public IEngineHarness {
  public:
    // Of the disk `keepFree` bytes stay free.
    explicit LocalHarness(std::uint64_t limit, std::uint64_t keepFree = 0) {
        options.limit = limit;
        options.keepFree = keepFree;
        options.preparation = LocalOptions::Preparation::Allocate;
        options.directory = folder->File("store");
        engine = std::make_unique<LocalEngine>(options);
    }

    IEngine& GetEngine() override { return *engine; }

    void Restart() override {
        ForgetFormer();
        engine.reset();
        engine = std::make_unique<LocalEngine>(options);
    }

    void Crash() override {
        auto next = std::make_unique<Tests::TemporaryFolder>();
        const std::string copy = next->File("store");
        std::filesystem::copy(options.directory, copy, std::filesystem::copy_options::recursive);
        ForgetFormer();
        former = std::move(engine);
        formerFolder = std::move(folder);
        folder = std::move(next);
        options.directory = copy;
        engine = std::make_unique<LocalEngine>(options);
    }

    void DamageChunk(const SegmentId& id, const ChunkEntry& entry, std::size_t part) override {
        const std::string described = engine->Describe(id);
        const std::string path = described.substr(0, described.find(" ("));
        std::fstream file(path, std::ios::in | std::ios::out | std::ios::binary);
        const std::uint64_t table = entry.offset + ChunkLayout::headSize;
        std::uint32_t partCount = 0;
        Read(file, entry.offset + 12, partCount);
        std::uint64_t place = table + std::uint64_t{partCount} * ChunkLayout::partSize;
        for (std::size_t index = 0; index < part; ++index) {
            std::uint32_t size = 0;
            Read(file, table + index * ChunkLayout::partSize + 8, size);
            place += size;
        }
        char byte = 0;
        Read(file, place, byte);
        byte = static_cast<char>(byte ^ 1);
        file.seekp(static_cast<std::streamoff>(place));
        file.write(&byte, 1);
        if (!file.flush()) {
            throw std::runtime_error("can't damage " + path);
        }
    }

  private:
    void ForgetFormer() {
        former.reset();
        formerFolder.reset();
    }
    template <typename Value>
    static void Read(std::fstream& file, std::uint64_t place, Value& value) {
        file.seekg(static_cast<std::streamoff>(place));
        file.read(reinterpret_cast<char*>(&value), sizeof value);
    }

    // Before its engine, which ends first.
    std::unique_ptr<Tests::TemporaryFolder> formerFolder;
    std::unique_ptr<LocalEngine> former;
    std::unique_ptr<Tests::TemporaryFolder> folder = std::make_unique<Tests::TemporaryFolder>();
    LocalOptions options;
    std::unique_ptr<LocalEngine> engine;
};

inline EngineHarnessFactory LocalHarnessFactory() {
    return {"Local", [](std::uint64_t limit) { return std::make_unique<LocalHarness>(limit); }};
}

}  // namespace Brantel::Engine
