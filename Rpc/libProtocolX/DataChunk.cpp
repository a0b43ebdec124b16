#include "DataChunk.h"

#include "Converter.h"

#include <cstring>
#include <iostream>
#include <stdexcept>

namespace Brantel::ProtocolX {
namespace {

// PropertyList and DataList are alike; each operation below is written once for both.

template <typename Items>
int FindIndex(const Items& items, const char* key, std::size_t keyLength) noexcept {
    for (int index = 0; index < items.size(); ++index) {
        const std::string& candidate = items.Get(index).key();
        if (candidate.size() == keyLength && std::memcmp(candidate.data(), key, keyLength) == 0) {
            return index;
        }
    }
    return -1;
}

template <typename List>
const std::string* FindValue(const List& list, const char* key, std::size_t keyLength) noexcept {
    const int index = FindIndex(list.items(), key, keyLength);
    return index < 0 ? nullptr : &list.items(index).value();
}

// The value of the first item with this key, or of a new one at the end, present and empty.
template <typename List>
std::string& FindOrAddValue(List& list, const std::string& key) {
    const int index = FindIndex(list.items(), key.data(), key.size());
    if (index >= 0) {
        return *list.mutable_items(index)->mutable_value();
    }
    auto* item = list.add_items();
    item->set_key(key);
    return *item->mutable_value();
}

template <typename List>
void SetValue(List& list, const std::string& key, const char* value, std::size_t size) {
    FindOrAddValue(list, key).assign(value, size);
}

template <typename List>
const unsigned char* FindBytes(const List& list, const char* key, std::size_t keyLength,
                               long& valueSize) noexcept {
    const std::string* value = FindValue(list, key, keyLength);
    if (value == nullptr) {
        return nullptr;
    }
    valueSize = static_cast<long>(value->size());
    return reinterpret_cast<const unsigned char*>(value->data());
}

template <typename List>
std::set<std::string> Keys(const List& list) {
    std::set<std::string> keys;
    for (const auto& item : list.items()) {
        keys.insert(item.key());
    }
    return keys;
}

const char* Characters(const unsigned char* bytes) noexcept {
    return reinterpret_cast<const char*>(bytes);
}

void RequireKeyAndValue(const char* operation, const std::string& key, const std::string& value) {
    if (key.empty() || value.empty()) {
        throw std::runtime_error(std::string(operation) +
                                 ": key and value cannot be empty: " + key + " " + value);
    }
}

// What both lists' comparison shares: the number of entries, then the values in ascending key
// order, the other chunk's first.
template <typename OtherValue, typename OwnValue>
bool SameValues(const std::set<std::string>& keys, unsigned long otherSize,
                const OtherValue& otherValue, const OwnValue& ownValue) {
    if (otherSize != keys.size()) {
        return false;
    }
    for (const std::string& key : keys) {
        const std::string& theirs = otherValue(key);
        if (theirs != ownValue(key)) {
            return false;
        }
    }
    return true;
}

}  // namespace

DataChunk::DataChunk() : activeChunk(&ownChunk) {}

DataChunk::DataChunk(const DataChunk& other)
    : ownChunk(*other.activeChunk), activeChunk(&ownChunk) {}

// Without a test for self-assignment: a chunk that references a message is detached from it that
// way.
// NOLINTNEXTLINE(bugprone-unhandled-self-assignment)
DataChunk& DataChunk::operator=(const DataChunk& other) {
    ownChunk.CopyFrom(*other.activeChunk);
    activeChunk = &ownChunk;
    return *this;
}

DataChunk::~DataChunk() {
    Clear();
}

void DataChunk::Clear() {
    activeChunk->Clear();
}

void DataChunk::SetTimePoint(const Time::TimePoint& timePoint) {
    Converter::To(timePoint, *activeChunk->mutable_timecode());
}

Time::TimePoint DataChunk::GetTimePoint() const {
    return Converter::From(activeChunk->timecode());
}

void DataChunk::SetDuration(const Time::TimePoint& duration) {
    Converter::To(duration, *activeChunk->mutable_duration());
}

Time::TimePoint DataChunk::GetDuration() const {
    return Converter::From(activeChunk->duration());
}

void DataChunk::SetProperty(const std::string& key, const unsigned char* value,
                            unsigned long size) {
    if (size == 0 || key.empty()) {
        throw std::runtime_error("SetProperty: key cannot be empty nor propSize 0");
    }
    SetValue(*activeChunk->mutable_properties(), key, Characters(value), size);
}

void DataChunk::SetProperty(const std::string& key, const std::string& value) {
    RequireKeyAndValue("SetProperty", key, value);
    SetValue(*activeChunk->mutable_properties(), key, value.data(), value.size());
}

const std::string& DataChunk::GetProperty(const std::string& key) const {
    const std::string* value = FindValue(activeChunk->properties(), key.data(), key.size());
    if (value == nullptr) {
        throw std::runtime_error("DataChunk: property key " + key + " not found");
    }
    return *value;
}

const unsigned char* DataChunk::GetProperty(const char* key, unsigned long keyLength,
                                            long& valueSize) const noexcept {
    return FindBytes(activeChunk->properties(), key, keyLength, valueSize);
}

unsigned long DataChunk::GetPropertySize() const {
    return static_cast<unsigned long>(activeChunk->properties().items_size());
}

std::set<std::string> DataChunk::GetPropertyKeys() const {
    return Keys(activeChunk->properties());
}

void DataChunk::SetData(const std::string& key, const unsigned char* value, unsigned long size) {
    if (size == 0 || key.empty()) {
        throw std::runtime_error("SetData: key cannot be empty nor dataSize 0");
    }
    SetValue(*activeChunk->mutable_data(), key, Characters(value), size);
}

void DataChunk::SetData(const std::string& key, const std::string& value) {
    RequireKeyAndValue("SetData", key, value);
    SetValue(*activeChunk->mutable_data(), key, value.data(), value.size());
}

const std::string& DataChunk::GetData(const std::string& key) const {
    const std::string* value = FindValue(activeChunk->data(), key.data(), key.size());
    if (value == nullptr) {
        throw std::runtime_error("DataChunk: data key " + key + " not found");
    }
    return *value;
}

std::string& DataChunk::GetData(const std::string& key) {
    if (key.empty()) {
        throw std::runtime_error("GetData: key cannot be empty");
    }
    return FindOrAddValue(*activeChunk->mutable_data(), key);
}

const unsigned char* DataChunk::GetData(const char* key, unsigned long keyLength,
                                        long& valueSize) const noexcept {
    return FindBytes(activeChunk->data(), key, keyLength, valueSize);
}

unsigned long DataChunk::GetDataSize() const {
    return static_cast<unsigned long>(activeChunk->data().items_size());
}

std::set<std::string> DataChunk::GetDataKeys() const {
    return Keys(activeChunk->data());
}

void DataChunk::CopyMetadata(const DataChunk& other) {
    const Protocol::Chunk& source = *other.activeChunk;
    activeChunk->mutable_timecode()->CopyFrom(source.timecode());
    activeChunk->mutable_duration()->CopyFrom(source.duration());
    activeChunk->mutable_properties()->CopyFrom(source.properties());
}

bool DataChunk::IsEqual(const DataChunk& other) const {
    try {
        if (GetTimePoint() != other.GetTimePoint() || GetDuration() != other.GetDuration()) {
            return false;
        }
        const auto property = [](const DataChunk& chunk) {
            return [&chunk](const std::string& key) -> const std::string& {
                return chunk.GetProperty(key);
            };
        };
        const auto data = [](const DataChunk& chunk) {
            return [&chunk](const std::string& key) -> const std::string& {
                return chunk.GetData(key);
            };
        };
        if (!SameValues(GetPropertyKeys(), other.GetPropertySize(), property(other),
                        property(*this))) {
            return false;
        }
        return SameValues(GetDataKeys(), other.GetDataSize(), data(other), data(*this));
    } catch (const std::runtime_error& error) {
        std::cout << "DataChunk IsEqual error: " << error.what() << std::endl;
        return false;
    }
}

std::string DataChunk::ToString() const {
    return "Tc: " + GetTimePoint().ToString() + "\n" + "Dur: " + GetDuration().ToString() + "\n" +
           "Nb props: " + std::to_string(GetPropertySize()) + "\n" +
           "Nb data: " + std::to_string(GetDataSize()) + "\n";
}

}  // namespace Brantel::ProtocolX
