#include "Local/FileCache.h"

#include "Local/File.h"

#include <fcntl.h>

#include <algorithm>
#include <utility>

namespace Brantel::Engine {

void FileCache::Enter(SlotFile& file) {
    std::shared_ptr<File> dropped;  // closed after the locks
    const std::lock_guard lock(mutex);
    clock.fetch_add(1, std::memory_order_relaxed);
    if (std::find(files.begin(), files.end(), &file) != files.end()) {
        return;
    }
    if (files.size() >= limit) {
        const auto oldest =
            std::min_element(files.begin(), files.end(), [](SlotFile* left, SlotFile* right) {
                return left->lastUse.load(std::memory_order_relaxed) <
                       right->lastUse.load(std::memory_order_relaxed);
            });
        const std::lock_guard fileLock((*oldest)->mutex);
        dropped = std::move((*oldest)->file);
        files.erase(oldest);
    }
    files.push_back(&file);
}

void FileCache::Leave(SlotFile& file) noexcept {
    const std::lock_guard lock(mutex);
    std::erase(files, &file);
}

SlotFile::SlotFile(FileCache& cache, std::string path, std::uint32_t number)
    : cache(cache), path(std::move(path)), number(number) {}

SlotFile::~SlotFile() {
    cache.Leave(*this);
}

std::shared_ptr<File> SlotFile::Open() {
    lastUse.store(cache.clock.load(std::memory_order_relaxed), std::memory_order_relaxed);
    {
        const std::lock_guard lock(mutex);
        if (file) {
            return file;
        }
    }
    auto opened = std::make_shared<File>(cache.calls, path, cache.readOnly ? O_RDONLY : O_RDWR);
    opened->ExpectRandomReads();
    {
        const std::lock_guard lock(mutex);
        if (file) {
            return file;
        }
        file = opened;
    }
    cache.Enter(*this);
    return opened;
}

}  // namespace Brantel::Engine
