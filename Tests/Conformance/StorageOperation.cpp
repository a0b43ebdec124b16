#include "Conformance/StorageOperation.h"

#include <algorithm>
#include <functional>
#include <limits>
#include <random>
#include <sstream>
#include <stdexcept>
#include <string_view>
#include <utility>

namespace Brantel::Tracks {

namespace {

struct VerbTraits {
    std::string_view name;
    int weight = 0;  // how often it is drawn
};

// In the order of Verb.
constexpr std::array<VerbTraits, static_cast<std::size_t>(Verb::Crash) + 1> traits{{
    {"Create", 6},
    {"Grow", 4},
    {"Delete", 6},
    {"Clear", 5},
    {"CutOff", 1},
    {"OpenReader", 12},
    {"CloseReader", 5},
    {"OpenWriter", 14},
    {"CloseWriter", 5},
    {"Append", 360},
    {"GetChunk", 60},
    {"NextChunk", 50},
    {"PreviousChunk", 50},
    {"NextTime", 40},
    {"PreviousTime", 40},
    {"Wait", 20},
    {"ReaderTrack", 3},
    {"WriterTrack", 3},
    {"Beginning", 15},
    {"End", 15},
    {"Size", 10},
    {"Infos", 20},
    {"ListTracks", 6},
    {"Count", 40},
    {"Duration", 40},
    {"SetProperties", 9},
    {"RemoveProperties", 6},
    {"GetProperties", 15},
    {"Protect", 24},
    {"Unprotect", 20},
    {"ListProtections", 12},
    {"ListWorkers", 8},
    {"DescribeWorkers", 10},
    {"DescribeCommand", 12},
    {"ListOngoing", 4},
    {"RemainingSpace", 6},
    {"Inspect", 6},
    {"Restart", 2},
    {"Crash", 2},
}};

class Generator {
  public:
    explicit Generator(std::uint64_t seed) : random(seed) {}

    // Tracks to work on, and somebody who works on them.
    void Begin(std::vector<StorageOperation>& operations) {
        for (std::int64_t track = 1; track <= 3; ++track) {
            operations.push_back({Verb::Create, {track, CapacityOf(Draw(0, 15))}});
        }
        OpenAll(operations);
    }

    void Next(std::vector<StorageOperation>& operations) {
        const auto verb = static_cast<Verb>(verbs(random));
        operations.push_back({verb, NumbersOf(verb)});
        if (verb == Verb::Restart || verb == Verb::Crash || verb == Verb::CutOff) {
            OpenAll(operations);
        }
    }

  private:
    using Numbers = std::array<std::int64_t, 5>;

    static std::vector<int> Weights() {
        std::vector<int> weights;
        for (const VerbTraits& verb : traits) {
            weights.push_back(verb.weight);
        }
        return weights;
    }

    std::int64_t Draw(std::int64_t from, std::int64_t to) {
        return std::uniform_int_distribution<std::int64_t>(from, to)(random);
    }
    bool Seldom(std::int64_t one) { return Draw(1, one) == 1; }

    static std::int64_t CapacityOf(std::int64_t draw) {
        constexpr std::array<std::int64_t, 8> pages{1, 2, 4, 5, 8, 12, 16, 32};
        return pages.at(static_cast<std::size_t>(draw) % pages.size()) * 4096;
    }
    std::int64_t Size() {
        constexpr std::array<std::int64_t, 8> odd{
            -1, 0, 159, 160, 5000, 700000, 1 << 30, std::numeric_limits<std::int64_t>::max()};
        return Seldom(4) ? odd.at(static_cast<std::size_t>(Draw(0, 7))) : CapacityOf(Draw(0, 15));
    }
    // Mostly among those that exist from the beginning on.
    std::int64_t Track() { return Seldom(5) ? Draw(0, highestTrack + 1) : Draw(1, 3); }
    std::int64_t Slot() { return Draw(0, static_cast<std::int64_t>(slotCount) - 1); }
    std::int64_t Time() {
        if (Seldom(40)) {
            constexpr std::array<std::int64_t, 4> edges{-1, 0,
                                                        std::numeric_limits<std::int64_t>::max(),
                                                        std::numeric_limits<std::int64_t>::min()};
            return edges.at(static_cast<std::size_t>(Draw(0, 3)));
        }
        const std::int64_t back = Seldom(2) ? 100 : 3000;
        return std::max<std::int64_t>(-1, now - Draw(-30, back));
    }

    Numbers NumbersOfAppend() {
        now += Draw(1, 25);
        std::int64_t time = now;
        std::int64_t duration = Draw(0, 30);
        if (Seldom(25)) {
            time = Time();
        }
        if (Seldom(40)) {
            duration = Draw(-3, 400);
        }
        std::int64_t size = Draw(0, 700);
        if (Seldom(8)) {
            size = Draw(0, 5000);
        }
        return {Slot(), time, duration, size, Draw(0, 1 << 20)};
    }

    Numbers NumbersOf(Verb verb) {
        switch (verb) {
            case Verb::Create: return {Seldom(12) ? Draw(-2, 0) : Draw(0, highestTrack), Size()};
            case Verb::Grow: return {Track(), Size()};
            case Verb::CutOff: return {Draw(0, 2), Draw(0, highestTrack), Size()};
            case Verb::OpenReader:
            case Verb::OpenWriter: return {Slot(), Track()};
            case Verb::Append: return NumbersOfAppend();
            case Verb::GetChunk:
            case Verb::NextChunk:
            case Verb::PreviousChunk: return {Slot(), Time(), Seldom(3) ? Draw(0, 15) : 0};
            case Verb::NextTime:
            case Verb::PreviousTime: return {Slot(), Time()};
            case Verb::Wait: return {Slot(), Time(), Seldom(20) ? Draw(-1, 2) : 0};
            case Verb::CloseReader:
            case Verb::CloseWriter:
            case Verb::ReaderTrack:
            case Verb::WriterTrack: return {Slot()};
            case Verb::Infos: return {Track(), Track(), Track()};
            case Verb::Count:
            case Verb::Duration: return {Track(), Time(), Time()};
            case Verb::SetProperties:
            case Verb::RemoveProperties: return {Track(), Draw(0, 40), Draw(0, 40)};
            case Verb::Protect:
                return {Track(), Time(), Seldom(20) ? Draw(-2, 4000) : Draw(0, 120)};
            case Verb::Unprotect: return {Draw(0, 9)};
            case Verb::DescribeWorkers: return {Draw(0, 9), Draw(0, 9)};
            case Verb::DescribeCommand: return {Draw(0, 30)};
            default: return {Track()};
        }
    }

    void OpenAll(std::vector<StorageOperation>& operations) {
        for (std::int64_t slot = 0; slot < 3; ++slot) {
            operations.push_back({Verb::OpenWriter, {slot, slot + 1}});
            operations.push_back({Verb::OpenReader, {slot, slot + 1}});
        }
    }

    std::mt19937_64 random;
    std::discrete_distribution<std::size_t> verbs = [] {
        const std::vector<int> weights = Weights();
        return std::discrete_distribution<std::size_t>(weights.begin(), weights.end());
    }();
    std::int64_t now = 0;
};

}  // namespace

std::vector<StorageOperation> MakeOperations(std::uint64_t seed, std::size_t count) {
    Generator generator(seed);
    std::vector<StorageOperation> operations;
    generator.Begin(operations);
    while (operations.size() < count) {
        generator.Next(operations);
    }
    return operations;
}

std::string ToText(const StorageOperation& operation) {
    std::string text(traits.at(static_cast<std::size_t>(operation.verb)).name);
    std::size_t count = operation.numbers.size();
    while (count > 0 && operation.numbers.at(count - 1) == 0) {
        --count;
    }
    for (std::size_t index = 0; index < count; ++index) {
        text += ' ' + std::to_string(operation.numbers.at(index));
    }
    return text;
}

std::string ToText(const std::vector<StorageOperation>& operations) {
    std::string text;
    for (const StorageOperation& operation : operations) {
        text += (text.empty() ? "" : "; ") + ToText(operation);
    }
    return text;
}

std::vector<StorageOperation> FromText(const std::string& text) {
    std::vector<StorageOperation> operations;
    std::istringstream all(text);
    for (std::string one; std::getline(all, one, ';');) {
        std::istringstream words(one);
        std::string name;
        words >> name;
        const auto found = std::find_if(traits.begin(), traits.end(),
                                        [&](const VerbTraits& verb) { return verb.name == name; });
        if (found == traits.end()) {
            throw std::runtime_error("no operation is called " + name);
        }
        StorageOperation operation{static_cast<Verb>(found - traits.begin()), {}};
        for (std::int64_t& number : operation.numbers) {
            if (!(words >> number)) {
                number = 0;
            }
        }
        operations.push_back(operation);
    }
    return operations;
}

Protocol::Chunk ChunkOf(const StorageOperation& append) {
    const auto& [slot, time, duration, size, shape] = append.numbers;
    Protocol::Chunk chunk;
    chunk.mutable_timecode()->set_nanoseconds(static_cast<std::uint64_t>(time));
    chunk.mutable_duration()->set_nanoseconds(static_cast<std::uint64_t>(duration));
    chunk.mutable_properties();
    chunk.mutable_data();
    const auto bits = static_cast<std::uint64_t>(shape);
    const bool isOdd = bits % 64 == 63;  // some have keys that are not allowed
    for (std::uint64_t index = 0; index < bits / 64 % 3; ++index) {
        auto& property = *chunk.mutable_properties()->add_items();
        property.set_key(isOdd && bits / 4096 % 4 == 0 ? "" : std::string(index + 1, 'p'));
        property.set_value(std::to_string(time));
    }
    const std::uint64_t blocks = bits / 192 % 4;
    for (std::uint64_t index = 0; index < blocks; ++index) {
        auto& block = *chunk.mutable_data()->add_items();
        block.set_key(std::string(1, static_cast<char>('a' + (isOdd ? 0 : index))));
        const std::uint64_t bytes = static_cast<std::uint64_t>(size) / blocks;
        std::string& value = *block.mutable_value();
        value.resize(bytes);
        for (std::uint64_t place = 0; place < bytes; ++place) {
            value[place] =
                static_cast<char>(static_cast<std::uint64_t>(time) * 31 + index * 7 + place * 13);
        }
    }
    return chunk;
}

Protocol::KeyList KeysOf(std::int64_t number) {
    constexpr std::array<const char*, 4> names{"a", "b", "c", "unknown"};
    Protocol::KeyList keys;
    for (std::size_t index = 0; index < names.size(); ++index) {
        if ((static_cast<std::uint64_t>(number) >> index & 1U) != 0) {
            keys.add_keys(names.at(index));
        }
    }
    return keys;
}

std::pair<std::string, std::string> PropertyOf(std::int64_t number) {
    constexpr std::array<std::pair<const char*, const char*>, 12> odd{{
        {"storage.retention", "stop"},
        {"storage.retention", "stop"},
        {"storage.retention", "loop"},
        {"storage.retention", "loop"},
        {"storage.retention", "loop"},
        {"storage.durability", "os"},
        {"storage.durability", "os"},
        {"storage.durability", "interval:40ms"},
        {"storage.durability", "always"},
        {"storage.retention", "often"},
        {"storage.colour", "red"},
        {"", "value"},
    }};
    const auto place = static_cast<std::size_t>(number);
    if (place < odd.size()) {
        return odd.at(place);
    }
    return {"key" + std::to_string(number % 4), std::string(place, 'v')};
}

std::string Describe(const Protocol::Chunk& chunk) {
    std::string text = std::to_string(static_cast<std::int64_t>(chunk.timecode().nanoseconds())) +
                       '+' +
                       std::to_string(static_cast<std::int64_t>(chunk.duration().nanoseconds()));
    for (const auto& property : chunk.properties().items()) {
        text += ' ' + property.key() + '=' + property.value();
    }
    for (const auto& block : chunk.data().items()) {
        text += ' ' + block.key() + ':' + std::to_string(block.value().size()) + ':' +
                std::to_string(std::hash<std::string>()(block.value()) % 1000000007);
    }
    return text;
}

}  // namespace Brantel::Tracks
