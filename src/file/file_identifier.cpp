#include <tessel_link/file/file_identifier.h>

#include <atomic>
#include <cstring>
#include <new>

namespace File {

// The name and the blob follow the record in the same allocation.
struct the_identifier::Record {
    std::atomic<std::uint32_t> References;
    std::size_t NameSize;
    std::size_t BlobSize;

    const char16_t* Name() const { return reinterpret_cast<const char16_t*>(this + 1); }
    const unsigned char* Blob() const {
        return reinterpret_cast<const unsigned char*>(Name() + NameSize);
    }
};

namespace {

using Record = the_identifier::Record;

// Starts with one reference that is never given back, so it is never freed.
Record gEmptyRecord{{1}, 0, 0};

Record* Acquire(Record* record) noexcept {
    record->References.fetch_add(1, std::memory_order_relaxed);
    return record;
}

void Release(Record* record) noexcept {
    if (record->References.fetch_sub(1, std::memory_order_acq_rel) == 1) {
        record->~Record();
        ::operator delete(record);
    }
}

Record* MakeRecord(std::u16string_view name, const void* blob, std::size_t blobSize) noexcept {
    if (name.empty() && blobSize == 0) {
        return Acquire(&gEmptyRecord);
    }
    const std::size_t bytes = sizeof(Record) + name.size() * sizeof(char16_t) + blobSize;
    void* memory = ::operator new(bytes, std::nothrow);
    if (memory == nullptr) {
        return Acquire(&gEmptyRecord);
    }
    auto* record = new (memory) Record{{1}, name.size(), blobSize};
    if (!name.empty()) {
        std::memcpy(const_cast<char16_t*>(record->Name()), name.data(),
                    name.size() * sizeof(char16_t));
    }
    if (blobSize != 0) {
        std::memcpy(const_cast<unsigned char*>(record->Blob()), blob, blobSize);
    }
    return record;
}

}  // namespace

file_identifier::~file_identifier() = default;

the_identifier::the_identifier() noexcept : record_(Acquire(&gEmptyRecord)) {}

the_identifier::the_identifier(std::u16string_view name, const void* blob,
                               std::size_t blobSize) noexcept
    : record_(MakeRecord(name, blob, blobSize)) {}

the_identifier::the_identifier(const the_identifier& other) noexcept
    : record_(Acquire(other.record_)) {}

the_identifier& the_identifier::operator=(const the_identifier& other) noexcept {
    Record* incoming = Acquire(other.record_);
    Release(record_);
    record_ = incoming;
    return *this;
}

the_identifier::~the_identifier() {
    Release(record_);
}

std::unique_ptr<file_identifier> the_identifier::Clone() const {
    return std::make_unique<the_identifier>(*this);
}

std::u16string_view the_identifier::Name() const noexcept {
    return {record_->Name(), record_->NameSize};
}

const unsigned char* the_identifier::Blob() const noexcept {
    return record_->BlobSize != 0 ? record_->Blob() : nullptr;
}

std::size_t the_identifier::BlobSize() const noexcept {
    return record_->BlobSize;
}

std::uint32_t the_identifier::UseCount() const noexcept {
    return record_->References.load(std::memory_order_relaxed);
}

}  // namespace File
