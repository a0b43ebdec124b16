#pragma once

#include "Bench/Peers/Peer.h"

#include <cstdint>
#include <functional>
#include <iterator>
#include <map>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

namespace Brantel::Bench {

// What the servers that are part of the benchmark keep: rows of values by time, in memory. A row
// keeps the last few values, as ours keeps what fits into a track. Thread-safe.
class KeptValues {
  public:
    // Takes the value over; its time is behind all before. Keeps `limit` values.
    void Append(std::int64_t row, std::string&& value, std::size_t limit) {
        std::vector<std::function<void()>> woken;
        {
            const std::lock_guard lock(mutex);
            Row& mine = rows[row];
            mine.values.emplace(++mine.time, std::move(value));
            if (mine.values.size() > limit) {
                mine.values.erase(mine.values.begin());
            }
            woken.swap(mine.waiting);
        }
        for (const auto& wake : woken) {
            wake();
        }
    }
    std::size_t Count(std::int64_t row) {
        const std::lock_guard lock(mutex);
        return rows[row].values.size();
    }
    // Copies the value behind (or before) this time, or the first (last) one, and returns its
    // time; 0 when the row is empty.
    std::int64_t Read(std::int64_t row, std::int64_t time, bool backwards, std::string& value) {
        const std::lock_guard lock(mutex);
        const auto& values = rows[row].values;
        if (values.empty()) {
            return 0;
        }
        auto place = values.upper_bound(time);
        if (backwards) {
            place = values.lower_bound(time);
            place = place == values.begin() ? std::prev(values.end()) : std::prev(place);
        } else if (place == values.end()) {
            place = values.begin();
        }
        value = place->second;
        return place->first;
    }
    // Calls `wake` once, when a value behind this time is there.
    void WhenBehind(std::int64_t row, std::int64_t time, std::function<void()> wake) {
        {
            const std::lock_guard lock(mutex);
            Row& mine = rows[row];
            if (mine.time <= time) {
                mine.waiting.push_back(std::move(wake));
                return;
            }
        }
        wake();
    }
    std::int64_t LastTime(std::int64_t row) {
        const std::lock_guard lock(mutex);
        return rows[row].time;
    }

  private:
    struct Row {
        std::map<std::int64_t, std::string> values;
        std::int64_t time = 0;
        std::vector<std::function<void()>> waiting;
    };

    std::mutex mutex;
    std::map<std::int64_t, Row> rows;
};

// The row of a task: one for each size, those that are walked through apart.
inline std::int64_t RowOf(const Task& task) {
    const bool isWalk = task.work == Work::Next || task.work == Work::Previous;
    return static_cast<std::int64_t>(task.size) * 2 + (isWalk ? 1 : 0);
}

// How many values a row keeps.
inline std::size_t LimitOf(std::int64_t row) {
    return row % 2 == 1 ? walkValues : KeptOf(static_cast<std::size_t>(row / 2));
}

}  // namespace Brantel::Bench
