#pragma once

#include <libTime/TimePoint.h>

#include <set>
#include <string>

namespace Protocol {
class Chunk;
class TimePoint;
}  // namespace Protocol

namespace Brantel::ProtocolX {

class DataChunk;

// Between the facade's types and the messages on the wire. Static functions without state or locks:
// a chunk and the messages it touches belong to one thread at a time.
class Converter {
  public:
    // The same 64 bits: negative counts come back unchanged. An unset field gives 0 nanoseconds.
    static Time::TimePoint From(const Protocol::TimePoint& timePoint);
    // The same 64 bits the other way.
    static void To(const Time::TimePoint& timePoint, Protocol::TimePoint& out);

    // Replaces the contents of `chunk` by a copy of `message`. A chunk that references a message
    // goes on doing so, and that message is overwritten.
    static void CopyFrom(DataChunk& chunk, const Protocol::Chunk& message);

    // From now on `chunk` works on `message` itself, without a copy: setters change it in spite of
    // the const, and destroying `chunk` empties it. `message` must outlive `chunk`, or its next
    // assignment.
    static void ReferenceFrom(DataChunk& chunk, const Protocol::Chunk& message);

    // Exchanges the contents of both; no bytes are copied.
    static void Swap(DataChunk& chunk, Protocol::Chunk& message);

    // Copies `chunk` into `message` with only those data blocks whose key is in `keys` (empty:
    // all). Time point, duration and properties are replaced whole and then always present.
    static void Fill(const DataChunk& chunk, Protocol::Chunk& message,
                     const std::set<std::string>& keys);
};

}  // namespace Brantel::ProtocolX
