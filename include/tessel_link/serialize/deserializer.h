#pragma once

// The reading end of value transport, which every packet reader implements.

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include <tessel_link/common/dynamic_caster.h>
#include <tessel_link/common/error.h>
#include <tessel_link/common/guid.h>
#include <tessel_link/export.h>
#include <tessel_link/serialize/blob.h>
#include <tessel_link/serialize/meta_info.h>

namespace Serialization {

// The reading end of all value transport, the mirror of Serializer. Readers tolerate extra
// and reordered elements and throw Common::Error for missing ones.
class TL_API Deserializer : public Common::DynamicCasterImpl {
public:
    ~Deserializer() override;

    // Reads the value of the element that `meta` names into `value`.
    virtual Deserializer& Read(const MetaInfo& meta, Blob& value) = 0;
    virtual Deserializer& Read(const MetaInfo& meta, std::vector<unsigned char>& value) = 0;
    virtual Deserializer& Read(const MetaInfo& meta, std::uint16_t& value) = 0;
    virtual Deserializer& Read(const MetaInfo& meta, std::int16_t& value) = 0;
    virtual Deserializer& Read(const MetaInfo& meta, std::string& value) = 0;
    virtual Deserializer& Read(const MetaInfo& meta, std::int64_t& value) = 0;
    virtual Deserializer& Read(const MetaInfo& meta, std::int32_t& value) = 0;
    virtual Deserializer& Read(const MetaInfo& meta, std::uint64_t& value) = 0;
    virtual Deserializer& Read(const MetaInfo& meta, double& value) = 0;
    virtual Deserializer& Read(const MetaInfo& meta, std::uint32_t& value) = 0;
    virtual Deserializer& Read(const MetaInfo& meta, std::u16string& value) = 0;
    virtual Deserializer& Read(const MetaInfo& meta, Common::Error& value) = 0;
    virtual Deserializer& Read(const MetaInfo& meta, Common::Guid& value) = 0;
    virtual Deserializer& Read(const MetaInfo& meta, std::uint8_t& value) = 0;
    virtual Deserializer& Read(const MetaInfo& meta, bool& value) = 0;

    // A look at the next unread child of the open element (name only, Ordered clear, no
    // traits), or an empty MetaInfo. Nothing is consumed.
    virtual MetaInfo NextMetaInfo() = 0;
    // Enters the element that `meta` names.
    virtual void BeginReadMetaInfo(const MetaInfo& meta) = 0;
    virtual void FinishReadMetaInfo(const MetaInfo& meta) = 0;  // leaves it
    // The version in force for the element just entered.
    virtual std::uint64_t GetSubjectVersion() = 0;

    // Two questions of the library's own, after the slots that every reader has, so that a
    // reader built to the interface above keeps its layout.
    //
    // Whether NextMetaInfo() == meta. Readers answer it without building a MetaInfo, which
    // matters in the loop over a sequence's items.
    virtual bool NextIs(const MetaInfo& meta);
    // How many unread children, from the next one on, answer NextIs(meta) one after the
    // other; 0 when the reader cannot tell without reading them. Only a hint, for reserving
    // room before a sequence is read.
    virtual std::size_t CountNext(const MetaInfo& meta);
};

}  // namespace Serialization
