#include "Converter.h"

#include "DataChunk.h"

#include <CommonMessages.pb.h>

namespace Brantel::ProtocolX {

Time::TimePoint Converter::From(const Protocol::TimePoint& timePoint) {
    Time::TimePoint result;
    result.FromNanoseconds(static_cast<long>(timePoint.nanoseconds()));
    return result;
}

void Converter::To(const Time::TimePoint& timePoint, Protocol::TimePoint& out) {
    out.set_nanoseconds(static_cast<std::uint64_t>(timePoint.ToNanoseconds()));
}

void Converter::CopyFrom(DataChunk& chunk, const Protocol::Chunk& message) {
    chunk.activeChunk->CopyFrom(message);
}

void Converter::ReferenceFrom(DataChunk& chunk, const Protocol::Chunk& message) {
    // The reference is borrowed for reading and writing alike, whatever its type says.
    chunk.activeChunk = const_cast<Protocol::Chunk*>(&message);
}

void Converter::Swap(DataChunk& chunk, Protocol::Chunk& message) {
    chunk.activeChunk->Swap(&message);
}

void Converter::Fill(const DataChunk& chunk, Protocol::Chunk& message,
                     const std::set<std::string>& keys) {
    const Protocol::Chunk& source = *chunk.activeChunk;
    if (keys.empty()) {
        message.CopyFrom(source);
        return;
    }
    message.mutable_timecode()->CopyFrom(source.timecode());
    message.mutable_duration()->CopyFrom(source.duration());
    message.mutable_properties()->CopyFrom(source.properties());
    // Selected aside: `message` may be the one that the chunk references.
    Protocol::DataList selected;
    for (const Protocol::DataList::Item& item : source.data().items()) {
        if (keys.count(item.key()) != 0) {
            *selected.add_items() = item;
        }
    }
    message.mutable_data()->Swap(&selected);
}

}  // namespace Brantel::ProtocolX
