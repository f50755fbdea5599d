#pragma once

// Not API: used by the value codecs and the library itself.
//
// Objects of open hierarchies that write and read themselves, and the class-ID form that
// carries them: "ClassID" with the class number, then the object inside "Object". A null
// pointer writes nothing at all. Objects are made on reading by the factory registered for
// their class ID.

#include <cstdint>
#include <memory>

#include <tessel_link/export.h>
#include <tessel_link/serialize/deserializer.h>
#include <tessel_link/serialize/serializer.h>

namespace Serialization {

// An object of an open hierarchy: it writes and reads its own members and names its
// class ID.
class TL_API Serializable {
public:
    virtual ~Serializable();
    virtual void Write(Serializer& serializer) const = 0;
    virtual void Read(Deserializer& deserializer) = 0;
    virtual std::uint32_t GetClassID() const = 0;
};

// Makes the objects of one or more class IDs.
class TL_API SerializableFactory {
public:
    virtual ~SerializableFactory();
    // A new object of the class, or null when the factory cannot make one.
    virtual std::unique_ptr<Serializable> Create(std::uint32_t classId) = 0;
};

// The process-wide registry from class ID to factory. The library only looks factories up;
// hosts register theirs. A second registration of an ID replaces the first; a factory must
// stay alive while it is registered.
TL_API void RegisterFactory(std::uint32_t classId, SerializableFactory* factory);
TL_API void UnregisterFactory(std::uint32_t classId);
TL_API SerializableFactory* FindFactory(std::uint32_t classId);

// The class-ID form of a pointer.
TL_API Serializer& operator<<(Serializer& serializer, const std::shared_ptr<Serializable>& object);
// Throws 0x9c0006 for class ID 0 and 0x9c0005 when no factory makes the object.
TL_API Deserializer& operator>>(Deserializer& deserializer, std::shared_ptr<Serializable>& object);

}  // namespace Serialization
