#include "JsonObject.h"

#include <cstddef>
#include <nlohmann/json.hpp>
#include <utility>

namespace Brantel::Tool {

struct JsonObject::Value {
    nlohmann::ordered_json json = nlohmann::ordered_json::object();
};

namespace {

bool IsUtf8(std::string_view bytes) {
    try {
        static_cast<void>(nlohmann::json(std::string(bytes)).dump());
        return true;
    } catch (const nlohmann::json::type_error&) {
        return false;
    }
}

std::string Base64(std::string_view bytes) {
    constexpr std::string_view digits =
        "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    constexpr std::size_t group = 3;
    std::string text;
    for (std::size_t start = 0; start < bytes.size(); start += group) {
        const std::string_view part = bytes.substr(start, group);
        std::uint32_t bits = 0;
        for (std::size_t i = 0; i < group; ++i) {
            bits = (bits << 8U) | (i < part.size() ? static_cast<unsigned char>(part[i]) : 0U);
        }
        for (std::size_t i = 0; i <= group; ++i) {
            const std::uint32_t digit = (bits >> (6U * (group - i))) & 63U;
            text += i <= part.size() ? digits[digit] : '=';
        }
    }
    return text;
}

}  // namespace

JsonObject::JsonObject() : value(std::make_unique<Value>()) {}
JsonObject::JsonObject(const JsonObject& other) : value(std::make_unique<Value>(*other.value)) {}
JsonObject::JsonObject(JsonObject&& other) noexcept = default;
JsonObject::~JsonObject() = default;

JsonObject& JsonObject::Add(std::string_view key, std::int64_t number) {
    constexpr std::int64_t highestExact = std::int64_t{1} << 53U;
    if (number > highestExact || number < -highestExact) {
        value->json[std::string(key)] = std::to_string(number);
    } else {
        value->json[std::string(key)] = number;
    }
    return *this;
}

JsonObject& JsonObject::Add(std::string_view key, int number) {
    return Add(key, std::int64_t{number});
}

JsonObject& JsonObject::Add(std::string_view key, double number) {
    value->json[std::string(key)] = number;
    return *this;
}

JsonObject& JsonObject::Add(std::string_view key, bool truth) {
    value->json[std::string(key)] = truth;
    return *this;
}

JsonObject& JsonObject::Add(std::string_view key, std::string_view text) {
    value->json[std::string(key)] = std::string(text);
    return *this;
}

JsonObject& JsonObject::Add(std::string_view key, const char* text) {
    return Add(key, std::string_view(text));
}

JsonObject& JsonObject::Add(std::string_view key, const JsonObject& object) {
    value->json[std::string(key)] = object.value->json;
    return *this;
}

JsonObject& JsonObject::Add(std::string_view key, const std::vector<JsonObject>& objects) {
    nlohmann::ordered_json array = nlohmann::ordered_json::array();
    for (const JsonObject& object : objects) {
        array.push_back(object.value->json);
    }
    value->json[std::string(key)] = std::move(array);
    return *this;
}

JsonObject& JsonObject::Add(std::string_view key, const std::vector<std::string>& texts) {
    value->json[std::string(key)] = texts;
    return *this;
}

JsonObject& JsonObject::AddNull(std::string_view key) {
    value->json[std::string(key)] = nullptr;
    return *this;
}

JsonObject& JsonObject::AddBytes(const std::string& key, std::string_view bytes) {
    return IsUtf8(bytes) ? Add(key, bytes) : Add(key + "Base64", std::string_view(Base64(bytes)));
}

std::string JsonObject::Print() const {
    return value->json.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace);
}

}  // namespace Brantel::Tool
