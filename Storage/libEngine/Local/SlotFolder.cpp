#include "Local/SlotFolder.h"

#include "EngineError.h"
#include "Local/File.h"
#include "Local/Report.h"
#include "Local/SegmentFormat.h"

#include <fcntl.h>

#include <algorithm>
#include <charconv>
#include <cstdio>
#include <exception>
#include <optional>
#include <string_view>
#include <utility>

namespace Brantel::Engine {

namespace {

constexpr std::string_view slotEnding = ".segment";
constexpr std::string_view unfinishedEnding = ".new";
constexpr std::size_t zeroBlockSize = 1U << 20U;
constexpr std::uint64_t flushEvery = std::uint64_t{64} << 20U;

std::string NameOf(std::uint32_t number) {
    std::string digits = std::to_string(number);
    constexpr std::size_t width = 5;
    return std::string(width - std::min(width, digits.size()), '0') + digits;
}

std::optional<std::uint32_t> NumberOf(std::string_view name) {
    if (!name.ends_with(slotEnding)) {
        return std::nullopt;
    }
    name.remove_suffix(slotEnding.size());
    std::uint32_t number = 0;
    const auto [end, error] = std::from_chars(name.data(), name.data() + name.size(), number);
    const bool whole = error == std::errc() && end == name.data() + name.size();
    return whole && NameOf(number) == name ? std::optional(number) : std::nullopt;
}

}  // namespace

// One run of Make: counts what it took and takes it back when it does not come to its end.
class SlotFolder::Preparation {
  public:
    Preparation(const LocalContext& context, const std::string& folder, std::uint64_t total,
                std::uint32_t segmentSize, IProgress& progress)
        : context(context),
          folder(folder),
          total(total),
          segmentSize(segmentSize),
          progress(progress) {}
    Preparation(const Preparation&) = delete;
    Preparation& operator=(const Preparation&) = delete;
    ~Preparation() {
        if (!finished) {
            Undo();
        }
    }

    void MakeUnfinished(std::uint32_t number) {
        const std::string path = folder + "/" + NameOf(number);
        made.push_back(path);
        const std::string unfinished = path + std::string(unfinishedEnding);
        context.folders.RemoveFile(unfinished);
        const File file(context.folders.GetCalls(), unfinished, O_RDWR | O_CREAT | O_EXCL);
        const bool allocated = file.Allocate(segmentSize);
        if (!allocated || context.options.preparation == LocalOptions::Preparation::Write) {
            Fill(file);
        }
        file.Flush();
        context.budget.NoteTaken(segmentSize);
        taken += segmentSize;
        done += segmentSize;
        Report(done);
    }

    void Finish() {
        for (const std::string& path : made) {
            context.folders.Rename(path + std::string(unfinishedEnding),
                                   path + std::string(slotEnding));
        }
        context.folders.FlushFolder(folder);
        finished = true;
    }

    void Report(std::uint64_t place) {
        if (!progress.Report(std::min(place, total), total)) {
            throw EngineError(EngineError::Kind::Cancelled, folder + ": reserving was cancelled");
        }
    }

  private:
    void Fill(const File& file) {
        const std::vector<char> zeros(std::min<std::size_t>(zeroBlockSize, segmentSize));
        for (std::uint64_t place = 0; place < segmentSize; place += zeros.size()) {
            const std::size_t size = static_cast<std::size_t>(
                std::min<std::uint64_t>(zeros.size(), segmentSize - place));
            file.Write(zeros.data(), size, place);
            unflushed += size;
            if (unflushed >= flushEvery) {
                file.FlushData();
                unflushed = 0;
            }
            Report(done + place + size - std::min<std::uint64_t>(1, size));
        }
    }

    void Undo() noexcept {
        context.budget.Adopt(0, taken);
        try {
            for (const std::string& path : made) {
                context.folders.RemoveFile(path + std::string(unfinishedEnding));
                context.folders.RemoveFile(path + std::string(slotEnding));
            }
        } catch (const std::exception& error) {
            // The error that led here is the one to tell; the next start removes the files.
            Tell(context.options.report, error.what());
        }
    }

    const LocalContext& context;
    const std::string& folder;
    const std::uint64_t total;
    const std::uint32_t segmentSize;
    IProgress& progress;
    std::vector<std::string> made;  // without endings
    std::uint64_t taken = 0;
    std::uint64_t done = 0;
    std::uint64_t unflushed = 0;
    bool finished = false;
};

SlotFolder::SlotFolder(const LocalContext& context, TrackId track)
    : context(context), path(context.tracksFolder + "/" + std::to_string(track)) {}

std::vector<SlotFolder::Slot> SlotFolder::List() const {
    std::vector<Slot> slots;
    for (const std::string& name : context.folders.List(path)) {
        const std::optional<std::uint32_t> number = NumberOf(name);
        if (number) {
            slots.push_back(std::make_shared<SlotFile>(context.cache, path + "/" + name, *number));
        } else if (name.ends_with(unfinishedEnding) && !context.options.readOnly) {
            context.folders.RemoveFile(path + "/" + name);
        }
    }
    return slots;
}

std::vector<SlotFolder::Slot> SlotFolder::Make(const std::vector<std::uint32_t>& numbers,
                                               std::uint32_t segmentSize,
                                               IProgress& progress) const {
    const std::uint64_t total = std::uint64_t{segmentSize} * numbers.size();
    std::vector<Slot> slots;
    Preparation preparation(context, path, total, segmentSize, progress);
    preparation.Report(0);
    context.folders.MakeFolder(path);
    for (const std::uint32_t number : numbers) {
        slots.push_back(std::make_shared<SlotFile>(
            context.cache, path + "/" + NameOf(number) + std::string(slotEnding), number));
        preparation.MakeUnfinished(number);
    }
    preparation.Finish();
    return slots;
}

void SlotFolder::Remove(const Slot& slot) const {
    context.folders.RemoveFile(slot->GetPath());
}

void SlotFolder::Flush() const {
    context.folders.FlushFolder(path);
}

void SlotFolder::RemoveFolder() const {
    context.folders.RemoveFolder(path);
    context.folders.FlushFolder(context.tracksFolder);
}

}  // namespace Brantel::Engine
