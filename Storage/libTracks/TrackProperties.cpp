// The part of Track that keeps its properties.
#include "FieldReader.h"
#include "FieldWriter.h"
#include "StorageOptions.h"
#include "Track.h"

#include <stdexcept>
#include <utility>
#include <vector>

namespace Brantel::Tracks {

namespace {

constexpr std::uint8_t version = 1;

std::map<std::string, std::string> Decode(std::string_view bytes) {
    FieldReader fields(bytes);
    if (const auto found = fields.Get<std::uint8_t>(); found != version) {
        throw std::runtime_error("a record of properties of version " + std::to_string(found) +
                                 ", known is " + std::to_string(version));
    }
    std::map<std::string, std::string> properties;
    for (auto rest = fields.Get<std::uint32_t>(); rest > 0; --rest) {
        const std::string_view key = fields.GetText();
        properties[std::string(key)] = fields.GetText();
    }
    return properties;
}

}  // namespace

std::string Track::EncodeProperties(const Properties& properties) {
    std::string bytes;
    FieldWriter fields(bytes);
    fields.Put(version);
    fields.Put(static_cast<std::uint32_t>(properties.size()));
    for (const auto& [key, value] : properties) {
        fields.PutText(key);
        fields.PutText(value);
    }
    return bytes;
}

TrackSettings Track::MakeSettings(const Properties& properties) const {
    TrackSettings settings;
    settings.retention = context.options.retention;
    settings.durability = context.options.durability;
    for (const auto& [key, value] : properties) {
        settings.Set(key, value);
    }
    return settings;
}

void Track::LoadProperties() {
    const auto record = context.engine.ReadRecord(PropertiesKey(context.track));
    if (!record) {
        return;
    }
    Properties properties = Decode(record->value);
    const TrackSettings settings = MakeSettings(properties);
    const std::lock_guard lock(state.mutex);
    state.properties = std::move(properties);
    state.settings = settings;
}

void Track::GetProperties(Protocol::PropertyList& properties) {
    const std::lock_guard lock(state.mutex);
    state.CheckUsableLocked(context.track);
    for (const auto& [key, value] : state.properties) {
        auto& item = *properties.add_items();
        item.set_key(key);
        item.set_value(value);
    }
}

Track::Properties Track::CopyProperties() {
    const std::lock_guard lock(state.mutex);
    state.CheckUsableLocked(context.track);
    return state.properties;
}

template <typename Change>
void Track::ChangeProperties(const Protocol::PropertyList& properties, Change change) {
    const std::lock_guard gate(propertiesGate);
    Properties changed = CopyProperties();
    for (const auto& item : properties.items()) {
        if (item.key().empty()) {
            throw TrackError(context.track, "a property has an empty key");
        }
        change(changed, item);
    }
    Replace(std::move(changed));
}

void Track::SetProperties(const Protocol::PropertyList& properties) {
    ChangeProperties(properties, [](Properties& changed, const auto& item) {
        changed[item.key()] = item.value();
    });
}

void Track::RemoveProperties(const Protocol::PropertyList& properties) {
    ChangeProperties(properties,
                     [](Properties& changed, const auto& item) { changed.erase(item.key()); });
}

void Track::Replace(Properties properties) {
    TrackSettings settings;
    try {
        settings = MakeSettings(properties);
    } catch (const std::runtime_error& error) {
        throw TrackError(context.track, error.what());
    }
    const std::string bytes = EncodeProperties(properties);
    if (bytes.size() > context.options.propertiesLimitBytes) {
        throw TrackError(context.track, "properties of " + std::to_string(bytes.size()) +
                                            " bytes are over the limit of " +
                                            std::to_string(context.options.propertiesLimitBytes) +
                                            " bytes");
    }
    const std::vector<Engine::RecordChange> batch{{PropertiesKey(context.track), bytes}};
    Named([&] {
        if (!context.engine.WriteRecords(batch)) {
            throw TrackError(context.track, "its properties were changed by somebody else");
        }
    });
    const std::lock_guard lock(state.mutex);
    state.properties = std::move(properties);
    state.settings = settings;
}

}  // namespace Brantel::Tracks
