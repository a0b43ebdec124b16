#pragma once

namespace BrantelStorageApi {

// Root of every object that can be addressed through the protocol.
class DynamicObject {
  public:
    virtual ~DynamicObject() = default;

  protected:
    DynamicObject() = default;
    DynamicObject(const DynamicObject&) = default;
    DynamicObject& operator=(const DynamicObject&) = default;
};

}  // namespace BrantelStorageApi
