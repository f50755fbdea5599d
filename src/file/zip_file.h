#pragma once

// A ZIP archive as a read-only, flat directory: classic archives only (no ZIP64, no
// spanning, no encryption), members stored or deflated, any data in front of the archive.

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "common/mutex.h"
#include <tessel_link/file/dir_object.h>

namespace File {

// The fields of a central directory record that the reader uses.
struct zip_central_entry {
    std::uint16_t Method = 0;
    std::uint32_t Crc32 = 0;
    std::uint32_t CompressedSize = 0;
    std::uint32_t Size = 0;
    std::uint32_t LocalHeaderOffset = 0;
    std::string_view Name;  // the stored bytes, no code page applied

    // Reads the record at `record`, which the archive has checked to lie inside its
    // directory.
    static zip_central_entry At(const unsigned char* record) noexcept;
};

// What the directory object, its copies, its iterators and every open entry share. It lives
// as long as any of them.
struct zip_file_state {
    explicit zip_file_state(std::unique_ptr<ri_file> archive) : file(std::move(archive)) {}

    std::unique_ptr<ri_file> file;
    // Actual position less recorded position: added to every local header offset, so that
    // data in front of the archive needs no other handling.
    std::int64_t base = 0;
    std::uint32_t entry_count = 0;
    std::uint32_t directory_size = 0;
    // The whole central directory, read once and never changed: iterators need no lock.
    std::unique_ptr<unsigned char[]> directory;
    // Where each record starts in `directory`, so that an identifier can be checked.
    std::vector<std::uint32_t> record_offsets;
    // Held for every positioned read of `file`, so that entries of one archive can be read
    // from several threads: each read seeks first, so entries don't disturb each other.
    Common::Mutex lock;

    // True when `record` with `left` records from it to the end is a position of this
    // directory.
    bool IsPosition(const unsigned char* record, std::uint32_t left) const noexcept;
};

// An entry of an archive: its central record and the number of records from it to the end.
class zip_identifier final : public file_identifier {
public:
    zip_identifier(const unsigned char* record, std::uint32_t left) noexcept
        : record_(record), left_(left) {}

    std::unique_ptr<file_identifier> Clone() const override;

    const unsigned char* Record() const noexcept { return record_; }
    std::uint32_t Left() const noexcept { return left_; }
    // The same entry: both the record and the count from it agree.
    bool operator==(const zip_identifier& other) const noexcept {
        return record_ == other.record_ && left_ == other.left_;
    }

private:
    const unsigned char* record_;
    std::uint32_t left_;
};

// Entries in the order of the central directory; no sorting, no hierarchy. Names are the
// stored bytes, each widened to one UTF-16 unit.
class zip_iterator final : public i_dir::iterator {
public:
    zip_iterator(std::shared_ptr<zip_file_state> state, const unsigned char* record,
                 std::uint32_t left);

    bool Next() override;
    // A new zip_identifier, owned by the caller; null when in error.
    file_identifier* GetIdentifier() override;
    const char16_t* GetName() override;
    // An archive keeps neither attributes nor entry classes.
    std::uint32_t GetAttributes() override { return 0; }
    std::uint32_t GetType() override { return 0; }

    const zip_file_state* State() const noexcept { return state_.get(); }
    const unsigned char* Record() const noexcept { return record_; }
    // The central record of the current entry.
    zip_central_entry Entry() const noexcept { return zip_central_entry::At(record_); }
    // The current name as a view, valid until the iterator moves.
    std::u16string_view Name() const noexcept { return name_; }

private:
    void BuildName();

    std::shared_ptr<zip_file_state> state_;
    const unsigned char* record_;
    std::uint32_t left_;
    std::u16string name_;
};

// The archive as a directory. Only the factory makes one from a file, so that nobody sees
// an archive that failed to open; copies share the state.
class zip_file_impl final : public si_dir {
public:
    // Reads the archive's directory. Null, with `error` telling why, when `archive` is not a
    // readable archive; the file is destroyed then.
    static std::unique_ptr<zip_file_impl> Open(std::unique_ptr<ri_file> archive,
                                               Common::Error& error);

    // Opens the entry named by a zip_identifier of this archive; any other identifier
    // records 0x40007. The entry comes back even when its header is found wrong: the
    // failure is recorded in the entry.
    si_file* OpenI(const file_identifier& id) override;
    si_file* OpenI(iterator& position) override;
    // Finds the entry as GetIterator(name) does; null, with 0x40002, when there is none.
    si_file* OpenI(const char16_t* name, std::uint32_t flags) override;
    // The archive is flat: only "." opens, as another object on the same archive.
    i_dir* OpenDir(const file_identifier& id) override;
    i_dir* OpenDir(iterator& position) override;
    i_dir* OpenDir(const char16_t* name) override;
    i_dir* OpenPath(const char16_t*& path) override;
    i_dir* OpenSelf() override;

    iterator* GetIterator(const file_identifier& id) override;
    // Finds an entry by name: ASCII letters match either case, a '\' in `name` matches a '/'
    // in the entry, and an entry whose name holds a '\' is never found. A miss records
    // 0x40002.
    iterator* GetIterator(const char16_t* name) override;
    iterator* GetIterator() override;
    iterator* GetSelfIterator() override;
    // 0 for another object on the same archive, else 2.
    int Compare(i_dir& other) override;
    // 0 when both name the same entry, else 1.
    int Compare(const file_identifier& a, const file_identifier& b) override;

    // The same entries as GetIterator() walks, as zip_iterator for the caller that wants
    // the central records.
    std::unique_ptr<zip_iterator> Entries();

private:
    explicit zip_file_impl(std::shared_ptr<zip_file_state> state) : state_(std::move(state)) {}
    explicit zip_file_impl(std::unique_ptr<ri_file> archive);

    // The position of the end record, found by scanning back from the end; 0 on failure.
    std::uint64_t SearchCentralDir();
    void ReadCentralDir();
    si_file* OpenAt(const unsigned char* record);
    std::unique_ptr<zip_iterator> Find(const char16_t* name);

    std::shared_ptr<zip_file_state> state_;
};

// 0x40001 "Error occurred while reading the file." made at `origin`, with the failure that
// `file` recorded as its cause. The file's error is cleared: the failure now belongs to the
// caller, and the archive stays usable for other entries.
Common::Error TakeReadFailure(const Common::ErrorOrigin& origin, ri_file& file);

}  // namespace File
