#pragma once

// Identifiers of directory entries, which stay valid when names change.

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include <tessel_link/export.h>

namespace File {

// An abstract handle of a directory entry.
class TL_API file_identifier {
public:
    virtual ~file_identifier();
    // An owned copy.
    virtual std::unique_ptr<file_identifier> Clone() const = 0;
};

// An identifier made of a wide name and a byte blob, held in a shared record with an atomic
// reference count, so that copies are cheap. Every identifier with an empty name and no
// blob shares one static record, which also stands in when a record cannot be allocated.
class TL_API the_identifier : public file_identifier {
public:
    the_identifier() noexcept;
    // An identifier of `name` and a copy of the blob.
    the_identifier(std::u16string_view name, const void* blob, std::size_t blobSize) noexcept;
    the_identifier(const the_identifier& other) noexcept;  // shares the record
    the_identifier& operator=(const the_identifier& other) noexcept;  // shares the record
    ~the_identifier() override;

    std::unique_ptr<file_identifier> Clone() const override;

    std::u16string_view Name() const noexcept;  // the name
    const unsigned char* Blob() const noexcept;  // the blob; null when none
    std::size_t BlobSize() const noexcept;  // the blob's size in bytes

    // The references to this identifier's record, and whether two identifiers share one.
    std::uint32_t UseCount() const noexcept;
    // Whether the two share one record.
    bool SharesRecordWith(const the_identifier& other) const noexcept {
        return record_ == other.record_;
    }

    struct Record;

private:
    Record* record_;
};

}  // namespace File
