#pragma once

// Not API: the container hand-off between the value codecs and the serializers
// that take containers whole.

#include <tessel_link/export.h>
#include <tessel_link/serialize/meta_info.h>
#include <tessel_link/serialize/serializer.h>

namespace Serialization {

// A walk over the elements of a container, for serializers that take containers whole.
class TL_API ContainerIterator {
public:
    virtual ~ContainerIterator();
    // True while the iterator is not at the end.
    virtual bool HasNext() = 0;
    virtual void Next() = 0;
    // Writes the element at the iterator to `serializer`.
    virtual void WriteCurrent(Serializer& serializer) = 0;
};

// A serializer that builds containers itself instead of receiving the "vector" and "map"
// element forms. Codecs find it through Common::QueryInterface on the serializer; a
// serializer offers it by registering this interface with its DynamicCasterImpl.
class TL_API ContainerAwareSerializer {
public:
    virtual ~ContainerAwareSerializer();
    // The container stored under the member described by `meta`.
    virtual void WriteContainer(const MetaInfo& meta, ContainerIterator& items) = 0;
};

}  // namespace Serialization
