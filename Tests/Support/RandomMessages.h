#pragma once

#include <google/protobuf/message.h>

#include <cstddef>
#include <cstdint>
#include <random>
#include <string>
#include <string_view>

namespace Brantel::Tests {

// Makes messages of any type, and bytes that are nearly one; the same seed makes the same.
class RandomMessages {
  public:
    explicit RandomMessages(std::uint64_t seed) : random(seed) {}

    // A number from 0 to `end` - 1.
    std::size_t Below(std::size_t end) { return random() % end; }
    bool OneIn(std::size_t chances) { return Below(chances) == 0; }

    // Sets fields of every kind, nested ones too, until they are about `size` bytes.
    void Fill(google::protobuf::Message& message, std::size_t size);

    // The same message in other bytes, or something that is hardly one any more: needless bytes in
    // numbers, fields doubled, unknown ones between, others of the wrong wire type, groups without
    // end, lengths that lie, at every level.
    std::string Rewritten(std::string_view bytes, const google::protobuf::Descriptor& type);

    // Bits turned, bytes lost or new.
    void Damage(std::string& bytes);

    // A serialised Brantel::Tests::EveryField of so many levels, by every way in which one can lie
    // in another, with about `size` bytes at its ground.
    std::string Nested(int levels, std::size_t size);

  private:
    void FillPart(google::protobuf::Message& message, int depth);
    void FillField(google::protobuf::Message& message,
                   const google::protobuf::FieldDescriptor& field, int depth);
    void FillMap(google::protobuf::Message& message, const google::protobuf::FieldDescriptor& field,
                 int depth);
    void FillScalar(google::protobuf::Message& message,
                    const google::protobuf::FieldDescriptor& field);
    std::string Text(bool isText);
    std::string Number(std::uint64_t value);
    std::string Junk(const google::protobuf::Descriptor& type);
    std::string AnyField(std::uint32_t number, int depth);

    std::mt19937_64 random;
    std::size_t left = 0;  // bytes that may still be filled
    bool mayBreakTexts = false;
};

}  // namespace Brantel::Tests
