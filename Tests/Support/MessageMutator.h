#pragma once

#include <google/protobuf/message.h>

#include <cstddef>
#include <cstdint>
#include <random>
#include <string>

namespace Brantel::Tests {

// Changes messages field by field, so that fuzzing gets past the parser: with the few values that
// mean something to a track storage, and with those at the ends of a type.
class MessageMutator {
  public:
    explicit MessageMutator(unsigned seed) : random(seed) {}

    // A number from 0 to `end` - 1.
    std::size_t Below(std::size_t end) { return random() % end; }

    // Sets, clears or repeats one field of the message or of one inside it.
    void Mutate(google::protobuf::Message& message);
    // Sets what is required and missing.
    void Complete(google::protobuf::Message& message);

  private:
    void MutateField(google::protobuf::Message& message,
                     const google::protobuf::FieldDescriptor& field);
    void SetScalar(google::protobuf::Message& message,
                   const google::protobuf::FieldDescriptor& field);
    std::uint64_t Number();
    std::string Text();

    std::minstd_rand random;
};

}  // namespace Brantel::Tests
