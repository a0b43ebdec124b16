#pragma once

#include <google/protobuf/descriptor.h>

#include <cstddef>
#include <string>

namespace Brantel::Services {

// Counts the elements of one message (see ConnectionLimits) and how deep they nest, on the bytes,
// before anything is made of them: a message of empty texts takes thirty times its size when it is
// parsed. Bytes that are no fields end the count where the parser will end, too. An extension of a
// type counts as something that the type does not know.
class ElementCount {
  public:
    ElementCount(std::size_t elementLimit, int depthLimit)
        : elementLimit(elementLimit), depthLimit(depthLimit) {}

    // Adds whole fields of a message of this type that lies `depth` parts deep (0: the outermost).
    // False: one of the limits is passed.
    bool Add(const google::protobuf::Descriptor& type, const unsigned char* data, std::size_t size,
             int depth);

    // Adds an element whose content is not there yet; `depth` as above, of the message that has it.
    bool AddText();
    bool AddPart(int depth);

    bool IsOver() const { return tooMany || tooDeep; }
    // "holds more elements than the limit of 65536"; empty when none is passed.
    std::string Reason() const;

  private:
    // The bytes that are left.
    struct Rest {
        const unsigned char* data;
        std::size_t size;
    };
    enum class Next { Field, End, Over };

    Next AddFields(const google::protobuf::Descriptor* type, Rest& rest, int depth);
    Next AddField(const google::protobuf::Descriptor* type, Rest& rest, int depth);
    Next AddGroup(const google::protobuf::FieldDescriptor* known, Rest& rest, int depth);

    const std::size_t elementLimit;
    const int depthLimit;
    std::size_t elements = 0;
    bool tooMany = false;
    bool tooDeep = false;
};

}  // namespace Brantel::Services
