#include "IdSource.h"

#include "FieldReader.h"
#include "FieldWriter.h"

#include <stdexcept>
#include <utility>
#include <vector>

namespace Brantel::Tracks {

IdSource::IdSource(Engine::IEngine& engine, std::string key) : engine(engine), key(std::move(key)) {
    if (const auto record = engine.ReadRecord(this->key)) {
        last = FieldReader(record->value).Get<std::int64_t>();
        bound = last;
    }
}

std::int64_t IdSource::Next() {
    const std::lock_guard lock(mutex);
    if (last == bound) {
        Write(bound + block);
        bound += block;
    }
    return ++last;
}

void IdSource::Settle() {
    const std::lock_guard lock(mutex);
    if (last != bound) {
        Write(last);
        bound = last;
    }
}

void IdSource::Write(std::int64_t value) {
    std::string bytes;
    FieldWriter(bytes).Put(value);
    const std::vector<Engine::RecordChange> changes{{key, bytes}};
    if (!engine.WriteRecords(changes)) {
        throw std::runtime_error("the record " + key + " was changed by somebody else");
    }
}

}  // namespace Brantel::Tracks
