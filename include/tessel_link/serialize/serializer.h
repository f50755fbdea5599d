#pragma once

// The writing end of value transport, which every packet writer implements.

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

// The writing end of all value transport: fifteen value forms, element begin and finish,
// and the subject version. Failures are thrown as Common::Error.
class TL_API Serializer : public Common::DynamicCasterImpl {
public:
    ~Serializer() override;

    // Writes `value` under the element that `meta` names.
    virtual Serializer& Write(const MetaInfo& meta, const Blob& value) = 0;
    virtual Serializer& Write(const MetaInfo& meta, const std::vector<unsigned char>& value) = 0;
    virtual Serializer& Write(const MetaInfo& meta, const std::uint16_t& value) = 0;
    virtual Serializer& Write(const MetaInfo& meta, const std::int16_t& value) = 0;
    virtual Serializer& Write(const MetaInfo& meta, const std::string& value) = 0;
    virtual Serializer& Write(const MetaInfo& meta, const std::int64_t& value) = 0;
    virtual Serializer& Write(const MetaInfo& meta, const std::int32_t& value) = 0;
    virtual Serializer& Write(const MetaInfo& meta, const std::uint64_t& value) = 0;
    virtual Serializer& Write(const MetaInfo& meta, const double& value) = 0;
    virtual Serializer& Write(const MetaInfo& meta, const std::uint32_t& value) = 0;
    virtual Serializer& Write(const MetaInfo& meta, const std::u16string& value) = 0;
    virtual Serializer& Write(const MetaInfo& meta, const Common::Error& value) = 0;
    virtual Serializer& Write(const MetaInfo& meta, Common::Guid value) = 0;
    virtual Serializer& Write(const MetaInfo& meta, std::uint8_t value) = 0;
    virtual Serializer& Write(const MetaInfo& meta, bool value) = 0;

    // Closes the packet and hands its bytes out.
    virtual void Finish(std::vector<unsigned char>& bytes) = 0;
    virtual Blob Finish() = 0;
    // Only the name of the innermost open element, or an empty MetaInfo.
    virtual MetaInfo CurrentMetaInfo() = 0;
    // Opens the element that `meta` names.
    virtual void BeginWriteMetaInfo(const MetaInfo& meta) = 0;
    // Must be given the name and traits that begin was given.
    virtual void FinishWriteMetaInfo(const MetaInfo& meta) = 0;
    // The version in force for the elements written from now on.
    virtual void SetSubjectVersion(std::uint64_t version) = 0;
    // 0 for a new serializer.
    virtual std::uint64_t GetSubjectVersion() = 0;
};

}  // namespace Serialization
