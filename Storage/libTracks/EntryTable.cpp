#include "EntryTable.h"

#include <algorithm>
#include <new>

namespace Brantel::Tracks {

using Engine::ChunkEntry;

namespace {

template <typename Vector>
void ReserveMore(Vector& vector, std::size_t count) {
    if (vector.capacity() - vector.size() < count) {
        vector.reserve(vector.size() + std::max(count, vector.size() / 2));
    }
}

}  // namespace

EntryTable::EntryTable(const std::vector<ChunkEntry>& entries) {
    marks.reserve(entries.size() / groupSize + 1);
    blocks.reserve(entries.size() / blockSize + 1);
    times.reserve(entries.size() / blockSize + 1);
    for (const ChunkEntry& entry : entries) {
        Add(entry);
    }
    Pack();
}

EntryTable::Cursor::Cursor(const EntryTable& table, std::size_t wanted)
    : table(table), index(std::min(wanted, table.GetSize())) {
    durationBefore = table.GetDurationBefore(index);
    if (index < table.GetSize()) {
        entry = table.GetEntry(index);
    }
}

void EntryTable::Cursor::Next() {
    durationBefore += static_cast<std::uint64_t>(entry.duration);
    ++index;
    if (index < table.GetSize()) {
        entry = table.GetEntry(index);
    }
}

ChunkEntry EntryTable::GetEntry(std::size_t index) const {
    return index < packed ? Read(index / blockSize).GetEntry(index % blockSize)
                          : tail[index - packed];
}

std::int64_t EntryTable::GetTimePoint(std::size_t index) const {
    if (index >= packed) {
        return tail[index - packed].timePoint;
    }
    const Mark& mark = marks[index / groupSize];
    return mark.timeStep != 0
               ? mark.time + static_cast<std::int64_t>(index % groupSize) * mark.timeStep
               : Read(index / blockSize).GetTimePoint(index % blockSize);
}

std::uint64_t EntryTable::GetDurationBefore(std::size_t index) const {
    if (index < packed) {
        const Mark& mark = marks[index / groupSize];
        return mark.timeStep != 0 ? mark.durationBefore + index % groupSize * mark.durationStep
                                  : Read(index / blockSize).GetDurationBefore(index % blockSize);
    }
    if (index == GetSize()) {
        return durationSum;
    }
    std::uint64_t sum = packedDuration;
    for (std::size_t place = 0; place < index - packed; ++place) {
        sum += static_cast<std::uint64_t>(tail[place].duration);
    }
    return sum;
}

// The group of [first, last] that has it in a regular stream; the right one when it lies in front
// of all others or in the last one.
std::size_t EntryTable::Guess(std::size_t first, std::size_t last,
                              std::int64_t timePoint) const noexcept {
    if (first == last || timePoint <= marks[first].time) {
        return first;
    }
    if (timePoint >= marks[last].time) {
        return last;
    }
    const auto from = static_cast<std::uint64_t>(marks[first].time);
    const auto distance = [from](std::int64_t time) {
        return static_cast<double>(static_cast<std::uint64_t>(time) - from);
    };
    const double share = distance(timePoint) / distance(marks[last].time);
    return std::clamp(first + static_cast<std::size_t>(share * static_cast<double>(last - first)),
                      first, last - 1);
}

// The last group of (first, last] that begins at or before the time point, or `first`.
std::size_t EntryTable::FindGroup(std::size_t first, std::size_t last,
                                  std::int64_t timePoint) const {
    const std::size_t guess = Guess(first, last, timePoint);
    if (guess == last || timePoint <= marks[first].time) {
        return guess;
    }
    // `low` begins at or before it, `high` behind it. From the first look on in steps that double,
    // until it is between two looks.
    std::size_t low = first;
    std::size_t high = last;
    const bool isBehind = marks[guess].time <= timePoint;
    (isBehind ? low : high) = guess;
    for (std::size_t stride = 1; low + stride < high; stride *= 2) {
        const std::size_t look = isBehind ? low + stride : high - stride;
        const bool isLow = marks[look].time <= timePoint;
        (isLow ? low : high) = look;
        if (isLow != isBehind) {
            break;
        }
    }
    while (high - low > 1) {
        const std::size_t middle = low + (high - low) / 2;
        (marks[middle].time <= timePoint ? low : high) = middle;
    }
    return low;
}

// As FindAfter, for what the group has of [begin, end): at least one entry.
std::size_t EntryTable::FindInGroup(std::size_t group, std::size_t begin, std::size_t end,
                                    std::int64_t timePoint) const {
    const Mark& mark = marks[group];
    const std::size_t base = group * groupSize;
    begin = std::max(begin, base);
    end = std::min(end, base + groupSize);
    if (mark.timeStep != 0) {
        if (timePoint < mark.time) {
            return begin;
        }
        const std::uint64_t passed =
            static_cast<std::uint64_t>(timePoint) - static_cast<std::uint64_t>(mark.time);
        const std::uint64_t index = passed / static_cast<std::uint64_t>(mark.timeStep) + 1;
        return static_cast<std::size_t>(std::clamp<std::uint64_t>(base + index, begin, end));
    }
    // The last block that begins at or before it, or the first one.
    const auto first = times.begin() + static_cast<std::ptrdiff_t>(begin / blockSize);
    const auto last = times.begin() + static_cast<std::ptrdiff_t>((end - 1) / blockSize);
    const auto behind = std::partition_point(
        first + 1, last + 1, [timePoint](std::int64_t time) { return time <= timePoint; });
    const auto block = static_cast<std::size_t>(behind - 1 - times.begin());
    const std::size_t blockBase = block * blockSize;
    return blockBase + Read(block).FindAfter(std::max(begin, blockBase) - blockBase,
                                             std::min(end - blockBase, blockSize), timePoint);
}

std::size_t EntryTable::FindAfter(std::size_t begin, std::size_t end,
                                  std::int64_t timePoint) const {
    if (begin >= end) {
        return end;
    }
    if (end > packed) {
        const std::size_t from = std::max(begin, packed) - packed;
        if (begin >= packed || tail[from].timePoint <= timePoint) {
            const auto place = tail.begin();
            const auto found = std::partition_point(
                place + static_cast<std::ptrdiff_t>(from),
                place + static_cast<std::ptrdiff_t>(end - packed),
                [&](const ChunkEntry& entry) { return entry.timePoint <= timePoint; });
            return packed + static_cast<std::size_t>(found - place);
        }
        end = packed;
    }
    return FindInGroup(FindGroup(begin / groupSize, (end - 1) / groupSize, timePoint), begin, end,
                       timePoint);
}

void EntryTable::Prefetch(std::size_t begin, std::size_t end,
                          std::int64_t timePoint) const noexcept {
    if (begin < std::min(end, packed)) {
        const std::size_t last = (std::min(end, packed) - 1) / groupSize;
        __builtin_prefetch(&marks[Guess(begin / groupSize, last, timePoint)]);
    }
}

void EntryTable::ReserveBlock() {
    ReserveMore(marks, 1);
    ReserveMore(times, 1);
    ReserveMore(blocks, 1);
    ReserveMore(words, EntryBlock::mostWords);
}

void EntryTable::ReserveOne() {
    constexpr std::size_t few = 4;
    if (packed % blockSize != 0) {
        UnpackLast();
    }
    if (tail.size() == tail.capacity()) {
        tail.reserve(std::clamp(2 * tail.size(), few, blockSize));
    }
    if (tail.size() + 1 == blockSize) {
        ReserveBlock();
    }
}

void EntryTable::Add(const ChunkEntry& entry) {
    ReserveOne();
    tail.push_back(entry);
    durationSum += static_cast<std::uint64_t>(entry.duration);
    if (tail.size() == blockSize) {
        PackTail();
    }
}

void EntryTable::Pack() noexcept {
    if (!tail.empty()) {
        try {
            ReserveBlock();
        } catch (const std::bad_alloc&) {
            return;
        }
        PackTail();
    }
    std::vector<ChunkEntry>().swap(tail);
    marks.shrink_to_fit();
    times.shrink_to_fit();
    blocks.shrink_to_fit();
    words.shrink_to_fit();
}

void EntryTable::PackTail() {
    times.push_back(tail.front().timePoint);
    blocks.push_back(EntryBlock::Pack(tail, packedDuration, words));
    AddMark(blocks.back());
    packed += tail.size();
    packedDuration = durationSum;
    tail.clear();
}

// A new block's part of the marks.
void EntryTable::AddMark(const EntryBlock& block) {
    const std::int64_t time = times.back();
    const std::int64_t step = block.GetTimeStep();
    if (packed % groupSize == 0) {
        marks.push_back(Mark{time, packedDuration, step, block.durationStep});
        return;
    }
    Mark& mark = marks.back();
    const std::size_t before = packed % groupSize;
    const std::uint64_t expected =
        static_cast<std::uint64_t>(mark.time) + before * static_cast<std::uint64_t>(mark.timeStep);
    if (step != mark.timeStep || block.durationStep != mark.durationStep ||
        static_cast<std::uint64_t>(time) != expected) {
        mark.timeStep = 0;
    }
}

void EntryTable::UnpackLast() {
    const std::size_t count = packed % blockSize;
    const EntryBlock block = blocks.back();
    tail.reserve(blockSize);
    packed -= count;
    for (std::size_t index = 0; index < count; ++index) {
        tail.push_back(Read(blocks.size() - 1).GetEntry(index));
    }
    packedDuration = block.durationBefore;
    words.resize(block.place);
    blocks.pop_back();
    times.pop_back();
    if (packed % groupSize == 0) {
        marks.pop_back();
    }
}

std::size_t EntryTable::GetMemory() const {
    return sizeof *this + tail.capacity() * sizeof(ChunkEntry) + marks.capacity() * sizeof(Mark) +
           times.capacity() * sizeof(std::int64_t) + blocks.capacity() * sizeof(EntryBlock) +
           words.capacity() * sizeof(std::uint64_t);
}

}  // namespace Brantel::Tracks
