#pragma once

#include <cstddef>
#include <memory>
#include <random>
#include <vector>

namespace Brantel::Bench {

// Leaves the heap of this thread with holes of many sizes, as that of a program that has run for a
// while. Where a buffer begins within a page, against where it is copied to or from, can make one
// copy many times slower than the next; a benchmark that measures in one fresh heap measures one
// draw of that. Owns the blocks between the holes.
class ScatteredHeap {
  public:
    explicit ScatteredHeap(unsigned seed) {
        constexpr int count = 256;
        constexpr std::size_t largest = 6000;
        std::mt19937 random(seed);
        std::vector<std::unique_ptr<char[]>> all;  // NOLINT(modernize-avoid-c-arrays)
        for (int i = 0; i < count; ++i) {
            all.emplace_back(new char[1 + random() % largest]);
        }
        for (auto& block : all) {
            if (random() % 2 == 0) {
                blocks.push_back(std::move(block));
            }
        }
    }

  private:
    std::vector<std::unique_ptr<char[]>> blocks;  // NOLINT(modernize-avoid-c-arrays)
};

}  // namespace Brantel::Bench
