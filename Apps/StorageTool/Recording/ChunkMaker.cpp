#include "Recording/ChunkMaker.h"

#include "DurationText.h"
#include "ExitCodes.h"
#include "Media/LineSplitter.h"
#include "Media/MjpegSplitter.h"
#include "Media/RecordSplitter.h"
#include "Media/SizeSplitter.h"
#include "SizeText.h"
#include "TimeText.h"

#include <chrono>
#include <stdexcept>
#include <utility>

namespace Brantel::Tool {

using ProtocolX::DataChunk;
using Time::TimePoint;

namespace {

TimePoint WallClock() {
    return TimeBounds::FromNow({}, {}).now;
}

void Refuse(bool given, const std::string& option, const std::string& format) {
    if (given) {
        throw Misuse(option + " has no meaning with --format " + format);
    }
}

Rate ParseRate(const std::string& text) {
    try {
        return Rate::Parse(text);
    } catch (const std::runtime_error& error) {
        throw Misuse(error.what());
    }
}

}  // namespace

ChunkMaker::ChunkMaker(const RecordOptions& options) {
    ReadFormat(options);
    ReadRate(options);
    ReadProperties(options);
    key = options.key.empty() ? (format == Format::Mjpeg ? "image" : "data") : options.key;
    if (!options.timeField.empty()) {
        if (options.timeField.find_first_not_of('0') == std::string::npos) {
            throw Misuse("--time-field " + options.timeField + ": the first field is 1");
        }
        timeField.emplace(options.timeField);
    }
    if (!options.duration.empty()) {
        fixedDuration = TimePoint::Nanoseconds(DurationText::Parse(options.duration));
        if (fixedDuration < TimePoint()) {
            throw Misuse("A duration is not below 0: " + options.duration);
        }
    }
}

void ChunkMaker::ReadFormat(const RecordOptions& options) {
    const std::string& name = options.format;
    if (name == "mjpeg") {
        format = Format::Mjpeg;
    } else if (name == "raw") {
        format = Format::Raw;
    } else if (name == "lines") {
        format = Format::Lines;
    } else {
        format = Format::Record;
        Refuse(!options.key.empty(), "--key", name);
        Refuse(!options.start.empty(), "--start", name);
        Refuse(!options.duration.empty(), "--duration", name);
    }
    Refuse(format != Format::Mjpeg && !options.fps.empty(), "--fps", name);
    Refuse(format != Format::Raw && !options.chunkSize.empty(), "--chunk-size", name);
    Refuse(format != Format::Lines && !options.timeField.empty(), "--time-field", name);
    Refuse((format == Format::Mjpeg || format == Format::Record) && !options.rate.empty(), "--rate",
           name);
    if (format == Format::Raw) {
        constexpr std::int64_t usual = std::int64_t{64} << 10U;
        const std::int64_t size =
            options.chunkSize.empty() ? usual : SizeText::Parse(options.chunkSize);
        if (size < 1 || size > static_cast<std::int64_t>(ISplitter::defaultLimit)) {
            throw Misuse("A chunk has 1 to " + std::to_string(ISplitter::defaultLimit) +
                         " bytes: " + options.chunkSize);
        }
        chunkSize = static_cast<std::size_t>(size);
    }
}

void ChunkMaker::ReadRate(const RecordOptions& options) {
    constexpr std::int64_t bitsOfByte = 8;
    constexpr std::int64_t chunksOfSecond = 1'000'000'000;
    if (format == Format::Mjpeg) {
        rate = ParseRate(options.fps.empty() ? "25" : options.fps);
    } else if (!options.rate.empty()) {
        const bool hasUnit = options.rate.find_first_not_of("0123456789./") != std::string::npos;
        countsBytes = hasUnit && format == Format::Raw;
        rate =
            countsBytes ? Rate(RateText::Parse(options.rate), bitsOfByte) : ParseRate(options.rate);
    }
    if (rate && !countsBytes && rate->Numerator() / rate->Denominator() >= chunksOfSecond) {
        throw Misuse("Time points are whole nanoseconds: a rate is below 1000000000 a second");
    }
    if (rate && !options.timeField.empty()) {
        throw Misuse("Either --rate or --time-field says when a line was");
    }
    if (rate && !options.duration.empty()) {
        throw Misuse("The rate says how long a chunk is; --duration does too");
    }
    if (!rate && !options.start.empty()) {
        throw Misuse("--start needs a rate: without one, time points are those of the input");
    }
}

void ChunkMaker::ReadProperties(const RecordOptions& options) {
    for (const std::string& text : options.properties) {
        const std::size_t equals = text.find('=');
        if (equals == std::string::npos || equals == 0 || equals + 1 == text.size()) {
            throw Misuse("'" + text + "' is no property: KEY=VALUE, neither of them empty");
        }
        if (!properties.emplace(text.substr(0, equals), text.substr(equals + 1)).second) {
            throw Misuse("The property " + text.substr(0, equals) + " is given twice");
        }
    }
}

std::unique_ptr<ISplitter> ChunkMaker::MakeSplitter() const {
    switch (format) {
        case Format::Mjpeg: return std::make_unique<MjpegSplitter>();
        case Format::Lines: return std::make_unique<LineSplitter>();
        case Format::Record: return std::make_unique<RecordSplitter>();
        case Format::Raw: break;
    }
    return std::make_unique<SizeSplitter>(chunkSize);
}

void ChunkMaker::Make(std::string& piece, DataChunk& chunk) {
    ++number;
    chunk.Clear();
    if (format == Format::Record) {
        MakeFromRecord(piece, chunk);
    } else {
        SetTimes(piece, chunk);
        chunk.GetData(key) = std::move(piece);
    }
    for (const auto& [name, value] : properties) {
        chunk.SetProperty(name, value);
    }
    if (chunk.GetTimePoint() <= last) {
        throw std::runtime_error("number " + std::to_string(number) + " is at " +
                                 TimeText::Print(chunk.GetTimePoint(), TimeFormat::Auto) +
                                 ", not after the one before, " +
                                 TimeText::Print(last, TimeFormat::Auto));
    }
    last = chunk.GetTimePoint();
}

void ChunkMaker::SetTimes(const std::string& piece, DataChunk& chunk) {
    TimePoint time;
    TimePoint duration = fixedDuration;
    if (rate) {
        const RateClock clock(begin, *rate);
        time = clock.At(count);
        count += countsBytes ? piece.size() : 1;
        duration = clock.At(count) - time;
    } else if (timeField) {
        const std::optional<std::string> text = timeField->Find(piece);
        if (!text) {
            throw std::runtime_error("line " + std::to_string(number) + " has no field " +
                                     timeField->Text());
        }
        try {
            time = TimeText::Parse(*text).Resolve(TimeBounds::FromNow({}, {}));
        } catch (const Misuse& error) {
            throw std::runtime_error("line " + std::to_string(number) + ": " + error.what());
        }
    } else {
        time = Arrival();
    }
    chunk.SetTimePoint(time);
    chunk.SetDuration(duration);
}

// The clock may stand still between two pieces, or be set back.
TimePoint ChunkMaker::Arrival() {
    const TimePoint now = WallClock();
    return now > last ? now : last + TimePoint::Nanoseconds(1);
}

void ChunkMaker::MakeFromRecord(const std::string& piece, DataChunk& chunk) const {
    std::string reason;
    const auto* const bytes = reinterpret_cast<const unsigned char*>(piece.data());
    if (chunk.TryReadFrom(bytes, piece.size(), &reason) != piece.size()) {
        throw std::runtime_error("chunk record " + std::to_string(number) + ": " +
                                 (reason.empty() ? "it has bytes behind its end" : reason));
    }
}

}  // namespace Brantel::Tool
