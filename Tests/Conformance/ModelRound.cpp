#include "Conformance/ModelRound.h"

#include "Conformance/ReferenceStorage.h"
#include "Conformance/StorageDriver.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <exception>
#include <memory>
#include <utility>

namespace Brantel::Tracks {

namespace {

std::string OutcomeOf(const StorageOperation& operation, const std::string& answer) {
    constexpr std::size_t longest = 150;
    std::string outcome = ToText(StorageOperation{operation.verb, {}}) + ": ";
    for (const char letter : answer.substr(0, longest)) {
        const bool isDigit = letter >= '0' && letter <= '9';
        if (!isDigit) {
            outcome += letter;
        } else if (outcome.back() != '#') {
            outcome += '#';
        }
    }
    return outcome;
}

}  // namespace

// One engine and its reference.
class ModelRound::Side {
  public:
    Side(const Engine::EngineHarnessFactory& factory, const StorageOptions& options)
        : name(factory.name), driver(factory.make(limit), options), reference(options, limit) {}

    // "": as it must be; else what is wrong. `answer` gets what was answered.
    std::string Step(const StorageOperation& operation, std::string& answer) {
        const StorageOperation resolved = reference.Resolve(operation);
        const Answer given = driver.CarryOut(resolved);
        const std::string expected = reference.Expect(resolved, given);
        answer = given.text;
        if (operation.verb == Verb::Append && given.areSegmentsShort) {
            return SettleShortAppend(resolved, given, expected);
        }
        if (given.text == expected) {
            return "";
        }
        std::string excuse = "none";
        if (operation.verb == Verb::Unprotect && reference.TrackOf(resolved) != 0) {
            excuse = reference.Adopt(resolved, driver.TimesOf(reference.TrackOf(resolved)));
        }
        return excuse.empty() ? "" : Wrong(given.text, expected);
    }

    const std::string& GetName() const { return name; }

  private:
    std::string Wrong(const std::string& given, const std::string& expected) const {
        return name + " answered\n  " + given + "\nand the right answer is\n  " + expected;
    }

    std::string SettleShortAppend(const StorageOperation& append, const Answer& given,
                                  const std::string& expected) {
        const bool isDone =
            given.text.find(" of ") != std::string::npos && !given.text.starts_with("Track");
        const bool isForeseen = !expected.starts_with("Track");
        if (!isDone || !isForeseen) {
            return given.text == expected ? "" : Wrong(given.text, expected);
        }
        const std::string wrong =
            reference.Adopt(append, driver.TimesOf(reference.TrackOf(append)));
        return wrong.empty() ? "" : Wrong(given.text, expected) + "\n" + wrong;
    }

    const std::string name;
    StorageDriver driver;
    ReferenceStorage reference;
};

ModelRound::ModelRound(std::uint64_t seed, std::vector<Engine::EngineHarnessFactory> engines)
    : engines(std::move(engines)) {
    constexpr std::array<std::uint32_t, 3> segments{12288, 16384, 32768};
    constexpr std::array<std::size_t, 3> caches{0, 4000, 1U << 20U};
    constexpr std::array<std::uint64_t, 4> spares{40, 40, 40, 6};
    options.smallestSegmentBytes = segments.at(seed % segments.size());
    options.entryCacheBytes = caches.at(seed / 3 % caches.size());
    options.spareSegments = spares.at(seed / 9 % spares.size());
    options.commandHistory = 12;
    options.protectionsLimit = 30;
    // Most crashes here are of the server alone; tracks choose other modes for themselves.
    options.durability.mode = Engine::Durability::Mode::Os;
    options.clock = [] { return std::chrono::steady_clock::time_point(); };
}

std::optional<ModelRound::Failure> ModelRound::Run(
    const std::vector<StorageOperation>& operations) {
    std::vector<std::unique_ptr<Side>> sides;
    for (const Engine::EngineHarnessFactory& engine : engines) {
        sides.push_back(std::make_unique<Side>(engine, options));
    }
    // Whether a command was finished or undone when the server ended is each engine's own luck.
    bool isComparable = true;
    for (std::size_t index = 0; index < operations.size(); ++index) {
        isComparable = isComparable && operations[index].verb != Verb::CutOff;
        std::vector<std::string> answers(sides.size());
        for (std::size_t side = 0; side < sides.size(); ++side) {
            try {
                const std::string wrong = sides[side]->Step(operations[index], answers[side]);
                if (!wrong.empty()) {
                    return Failure{index, wrong};
                }
            } catch (const std::exception& error) {
                return Failure{index, sides[side]->GetName() + " threw: " + error.what()};
            }
            outcomes.insert(OutcomeOf(operations[index], answers[side]));
            if (isComparable && answers[side] != answers[0]) {
                return Failure{index, sides[side]->GetName() + " answered\n  " + answers[side] +
                                          "\nand " + sides[0]->GetName() + "\n  " + answers[0]};
            }
        }
    }
    return std::nullopt;
}

std::vector<StorageOperation> ModelRound::Shrink(std::vector<StorageOperation> operations,
                                                 std::size_t tries) {
    const auto cutBehindFailure = [this, &tries](std::vector<StorageOperation>& sequence) {
        --tries;
        const std::optional<Failure> failure = Run(sequence);
        if (failure) {
            sequence.resize(failure->operation + 1);
        }
        return failure.has_value();
    };
    cutBehindFailure(operations);
    for (std::size_t step = operations.size() / 2; step > 0; step /= 2) {
        for (std::size_t begin = 0; begin < operations.size() && tries > 0;) {
            std::vector<StorageOperation> fewer = operations;
            const std::size_t end = std::min(begin + step, fewer.size());
            fewer.erase(fewer.begin() + static_cast<std::ptrdiff_t>(begin),
                        fewer.begin() + static_cast<std::ptrdiff_t>(end));
            if (cutBehindFailure(fewer)) {
                operations = std::move(fewer);
            } else {
                begin += step;
            }
        }
    }
    return operations;
}

}  // namespace Brantel::Tracks
