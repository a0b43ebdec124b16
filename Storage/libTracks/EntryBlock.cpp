#include "EntryBlock.h"

#include <algorithm>
#include <bit>
#include <numeric>

namespace Brantel::Tracks {

using Engine::ChunkEntry;

namespace {

constexpr unsigned wordBits = 64;
constexpr unsigned offsetUnitBits = 3;  // chunks lie at multiples of 8

enum Column : std::size_t { Sum, Time, Offset, Length, HeadLength, Ordinal, Front };

using Row = std::array<std::int64_t, EntryBlock::columns>;
using Rows = std::array<Row, EntryBlock::capacity + 1>;

std::uint64_t Unsigned(std::int64_t number) {
    return static_cast<std::uint64_t>(number);
}
std::int64_t Signed(std::uint64_t number) {
    return static_cast<std::int64_t>(number);
}
// A difference of numbers of 32 bits.
std::int64_t SignedHalf(std::uint32_t number) {
    return static_cast<std::int32_t>(number);
}

// Bits that hold each row's number of a column, with its sign.
std::uint8_t WidthOf(std::span<const Row> rows, std::size_t column) {
    std::uint64_t bits = 0;
    bool isAny = false;
    for (const Row& row : rows) {
        const std::int64_t number = row[column];
        bits |= Unsigned(number < 0 ? ~number : number);
        isAny = isAny || number != 0;
    }
    return isAny ? static_cast<std::uint8_t>(std::bit_width(bits) + 1) : std::uint8_t{0};
}

void Put(std::span<const Row> rows, const EntryBlock& block, std::vector<std::uint64_t>& words) {
    unsigned used = wordBits;  // of the last word
    for (const Row& row : rows) {
        for (std::size_t column = 0; column < EntryBlock::columns; ++column) {
            const unsigned width = block.widths[column];
            if (width == 0) {
                continue;
            }
            const std::uint64_t bits =
                Unsigned(row[column]) << (wordBits - width) >> (wordBits - width);
            if (used == wordBits) {
                words.push_back(bits);
                used = width;
                continue;
            }
            words.back() |= bits << used;
            if (used + width > wordBits) {
                words.push_back(bits >> (wordBits - used));
                used -= wordBits;
            }
            used += width;
        }
    }
}

// Takes numbers out of rows, one behind the other.
class RowReader {
  public:
    RowReader(const std::uint64_t* rows, std::size_t position) : rows(rows), position(position) {}

    void Skip(unsigned width) { position += width; }
    std::int64_t Take(unsigned width) {
        if (width == 0) {
            return 0;
        }
        const std::uint64_t* word = rows + position / wordBits;
        const unsigned shift = position % wordBits;
        std::uint64_t bits = word[0] >> shift;
        if (shift + width > wordBits) {
            bits |= word[1] << (wordBits - shift);
        }
        position += width;
        return Signed(bits << (wordBits - width)) >> (wordBits - width);
    }

  private:
    const std::uint64_t* const rows;
    std::size_t position;  // in bits
};

// The lines through what is to be packed.
EntryBlock Fit(std::span<const ChunkEntry> entries, std::uint64_t durations) {
    const auto count = static_cast<std::int64_t>(entries.size());
    const ChunkEntry& begin = entries.front();
    const ChunkEntry& last = entries.back();
    EntryBlock block;
    block.durationStep = Unsigned(Signed(durations) / count);
    if (count > 1) {
        const std::uint64_t before = durations - Unsigned(last.duration);
        const std::uint64_t gaps = Unsigned(last.timePoint) - Unsigned(begin.timePoint) - before;
        block.timeStep = Unsigned(Signed(gaps) / (count - 1));
    }
    block.ordinal = begin.ordinal;
    block.front = begin.front;
    block.frontStep = last.front - begin.front >= entries.size() / 2 ? 1 : 0;
    block.offset = begin.offset;
    block.headLength = begin.headLength;
    constexpr std::uint32_t unit = 1U << offsetUnitBits;
    const bool isEven = std::all_of(entries.begin(), entries.end(), [&](const ChunkEntry& entry) {
        return (entry.offset - begin.offset) % unit == 0 && entry.length % unit == 0;
    });
    block.unitBits = isEven ? offsetUnitBits : 0;
    const std::int64_t step = SignedHalf(last.offset + last.length - begin.offset) / count;
    block.offsetStep = static_cast<std::uint32_t>(isEven ? step / unit * unit : step);
    return block;
}

}  // namespace

EntryBlock EntryBlock::Pack(std::span<const ChunkEntry> entries, std::uint64_t durationBefore,
                            std::vector<std::uint64_t>& words) {
    const std::uint64_t durations = std::accumulate(
        entries.begin(), entries.end(), std::uint64_t{0},
        [](std::uint64_t sum, const ChunkEntry& entry) { return sum + Unsigned(entry.duration); });
    EntryBlock block = Fit(entries, durations);
    block.durationBefore = durationBefore;
    block.place = static_cast<std::uint32_t>(words.size());

    Rows all;  // NOLINT(*-member-init): as many as are used are filled
    const std::span<Row> rows = std::span(all).first(entries.size() + 1);
    const ChunkEntry& begin = entries.front();
    const ChunkEntry& last = entries.back();
    std::uint64_t sum = 0;
    std::uint64_t number = 0;
    const auto offsetRow = [&block](std::uint32_t offset, std::uint64_t index) {
        return SignedHalf(offset - block.offset -
                          static_cast<std::uint32_t>(index) * block.offsetStep) >>
               block.unitBits;
    };
    for (std::size_t index = 0; index < entries.size(); ++index, ++number) {
        const ChunkEntry& entry = entries[index];
        const std::uint32_t end =
            index + 1 < entries.size() ? entries[index + 1].offset : last.offset + last.length;
        rows[index] = {Signed(sum - number * block.durationStep),
                       Signed(Unsigned(entry.timePoint) - Unsigned(begin.timePoint) - sum -
                              number * block.timeStep),
                       offsetRow(entry.offset, number),
                       SignedHalf(entry.length - (end - entry.offset)),
                       SignedHalf(entry.headLength - block.headLength),
                       Signed(entry.ordinal - block.ordinal - number),
                       Signed(entry.front - block.front - number * block.frontStep)};
        sum += Unsigned(entry.duration);
    }
    rows.back() = {Signed(sum - number * block.durationStep),
                   0,
                   offsetRow(last.offset + last.length, number),
                   0,
                   0,
                   0,
                   0};
    for (std::size_t column = 0; column < columns; ++column) {
        block.widths[column] = WidthOf(rows, column);
    }
    Put(rows, block, words);
    return block;
}

std::int64_t EntryBlock::GetTimeStep() const {
    const bool isEven = (widths[Sum] | widths[Time]) == 0;
    return isEven ? std::max<std::int64_t>(Signed(durationStep + timeStep), 0) : 0;
}

std::size_t EntryBlockReader::GetRowBits() const {
    std::size_t bits = 0;
    for (const std::uint8_t width : block.widths) {
        bits += width;
    }
    return bits;
}

std::uint64_t EntryBlockReader::GetDurationBefore(std::size_t index) const {
    const unsigned width = block.widths[Sum];
    const std::uint64_t line = block.durationBefore + index * block.durationStep;
    return width == 0 ? line : line + Unsigned(RowReader(rows, index * GetRowBits()).Take(width));
}

std::int64_t EntryBlockReader::GetTimePoint(std::size_t index) const {
    std::uint64_t time = Unsigned(first) + index * (block.durationStep + block.timeStep);
    if ((block.widths[Sum] | block.widths[Time]) != 0) {
        RowReader row(rows, index * GetRowBits());
        time += Unsigned(row.Take(block.widths[Sum]));
        time += Unsigned(row.Take(block.widths[Time]));
    }
    return Signed(time);
}

ChunkEntry EntryBlockReader::GetEntry(std::size_t index) const {
    const auto& widths = block.widths;
    const auto index32 = static_cast<std::uint32_t>(index);
    const auto scaled = [this](std::int64_t number) {
        return static_cast<std::uint32_t>(number) << block.unitBits;
    };
    RowReader row(rows, index * GetRowBits());
    const std::uint64_t sum = Unsigned(row.Take(widths[Sum]));
    const std::uint64_t time = Unsigned(row.Take(widths[Time]));
    const std::uint32_t offset = scaled(row.Take(widths[Offset]));
    ChunkEntry entry;
    entry.timePoint =
        Signed(Unsigned(first) + index * (block.durationStep + block.timeStep) + sum + time);
    entry.offset = block.offset + index32 * block.offsetStep + offset;
    entry.length = block.offsetStep + static_cast<std::uint32_t>(row.Take(widths[Length]));
    entry.headLength = block.headLength + static_cast<std::uint32_t>(row.Take(widths[HeadLength]));
    entry.ordinal = block.ordinal + index + Unsigned(row.Take(widths[Ordinal]));
    entry.front = block.front + index * block.frontStep + Unsigned(row.Take(widths[Front]));
    // The next row begins here.
    entry.duration = Signed(block.durationStep + Unsigned(row.Take(widths[Sum])) - sum);
    row.Skip(widths[Time]);
    entry.length += scaled(row.Take(widths[Offset])) - offset;
    return entry;
}

std::size_t EntryBlockReader::FindAfter(std::size_t begin, std::size_t end,
                                        std::int64_t timePoint) const {
    const std::int64_t step = block.GetTimeStep();
    if (step != 0) {
        if (timePoint < first) {
            return begin;
        }
        const std::uint64_t index = (Unsigned(timePoint) - Unsigned(first)) / Unsigned(step) + 1;
        return static_cast<std::size_t>(std::clamp<std::uint64_t>(index, begin, end));
    }
    while (begin < end) {
        const std::size_t middle = begin + (end - begin) / 2;
        if (GetTimePoint(middle) <= timePoint) {
            begin = middle + 1;
        } else {
            end = middle;
        }
    }
    return begin;
}

}  // namespace Brantel::Tracks
