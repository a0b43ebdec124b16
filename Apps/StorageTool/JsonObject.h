#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace Brantel::Tool {

// One JSON object on one line, its members in the order in which they were added. Whole numbers
// beyond 2^53, which many readers of JSON round, become strings of digits.
class JsonObject {
  public:
    JsonObject();
    JsonObject(const JsonObject& other);
    JsonObject& operator=(const JsonObject& other) = delete;
    JsonObject(JsonObject&& other) noexcept;
    JsonObject& operator=(JsonObject&& other) = delete;
    ~JsonObject();

    JsonObject& Add(std::string_view key, std::int64_t value);
    JsonObject& Add(std::string_view key, int value);
    JsonObject& Add(std::string_view key, double value);
    JsonObject& Add(std::string_view key, bool value);
    // Bytes that are no UTF-8 are replaced by U+FFFD; AddBytes keeps them.
    JsonObject& Add(std::string_view key, std::string_view value);
    JsonObject& Add(std::string_view key, const char* value);
    JsonObject& Add(std::string_view key, const JsonObject& value);
    JsonObject& Add(std::string_view key, const std::vector<JsonObject>& values);
    JsonObject& Add(std::string_view key, const std::vector<std::string>& values);
    JsonObject& AddNull(std::string_view key);
    // As text under this key when they are UTF-8, otherwise in base64 under the key and "Base64".
    JsonObject& AddBytes(const std::string& key, std::string_view bytes);

    // Without the end of the line.
    std::string Print() const;

  private:
    struct Value;
    std::unique_ptr<Value> value;
};

}  // namespace Brantel::Tool
