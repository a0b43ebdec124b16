#pragma once

#include <cstdint>
#include <functional>
#include <mutex>
#include <set>
#include <string>
#include <utility>

namespace Brantel::Tracks {

// What is wrong with a store, each thing once. Thread-safe.
class StoreFindings {
  public:
    // `print` is told each finding, one at a time.
    explicit StoreFindings(std::function<void(const std::string&)> print)
        : print(std::move(print)) {}

    void Add(const std::string& text) {
        const std::lock_guard lock(mutex);
        if (texts.insert(text).second) {
            print(text);
        }
    }
    std::uint64_t GetCount() {
        const std::lock_guard lock(mutex);
        return texts.size();
    }

  private:
    const std::function<void(const std::string&)> print;
    std::mutex mutex;
    std::set<std::string> texts;  // guarded by mutex
};

}  // namespace Brantel::Tracks
