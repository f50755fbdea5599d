#pragma once

// Writes small ZIP archives byte by byte, so that tests can make the damaged and unusual
// ones that real tools never write. The positions of every record are kept, so a test can
// patch any field afterwards.

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include <zlib.h>

#include <tessel_link/file/memory_file.h>

namespace test_support {

struct ZipMember {
    std::string Name;
    std::string Data;           // uncompressed
    std::uint16_t Method = 0;   // 8 deflates Data; anything else stores it under that number
    std::uint16_t Flags = 0;    // bit 3 also zeroes the local header's checksum and sizes
};

struct BuiltZip {
    std::string Bytes;
    std::vector<std::size_t> Local;    // local header positions
    std::vector<std::size_t> Central;  // central record positions
    std::size_t End = 0;               // end record position

    void Put16(std::size_t at, std::uint16_t v) {
        Bytes[at] = static_cast<char>(v & 0xff);
        Bytes[at + 1] = static_cast<char>(v >> 8);
    }
    void Put32(std::size_t at, std::uint32_t v) {
        Put16(at, static_cast<std::uint16_t>(v & 0xffff));
        Put16(at + 2, static_cast<std::uint16_t>(v >> 16));
    }
    // The archive as a file object of its own.
    std::unique_ptr<File::memory_file> File() const {
        return std::make_unique<File::memory_file>(
            std::vector<unsigned char>(Bytes.begin(), Bytes.end()));
    }
};

inline std::string RawDeflate(const std::string& data) {
    z_stream z{};
    deflateInit2(&z, 6, Z_DEFLATED, -MAX_WBITS, 8, Z_DEFAULT_STRATEGY);
    std::string out(deflateBound(&z, static_cast<uLong>(data.size())), '\0');
    z.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(data.data()));
    z.avail_in = static_cast<uInt>(data.size());
    z.next_out = reinterpret_cast<Bytef*>(out.data());
    z.avail_out = static_cast<uInt>(out.size());
    deflate(&z, Z_FINISH);
    out.resize(z.total_out);
    deflateEnd(&z);
    return out;
}

inline std::uint32_t Crc32(const std::string& data) {
    return static_cast<std::uint32_t>(
        crc32(0, reinterpret_cast<const Bytef*>(data.data()), static_cast<uInt>(data.size())));
}

// `prefix` goes in front of the archive without being counted in its offsets, as when an
// archive is appended to another file.
inline BuiltZip BuildZip(const std::vector<ZipMember>& members, const std::string& comment = "",
                         const std::string& prefix = "") {
    BuiltZip zip;
    std::string& b = zip.Bytes;
    b = prefix;
    auto put16 = [&b](std::uint32_t v) {
        b += static_cast<char>(v & 0xff);
        b += static_cast<char>((v >> 8) & 0xff);
    };
    auto put32 = [&](std::uint32_t v) {
        put16(v & 0xffff);
        put16(v >> 16);
    };
    std::vector<std::string> packed;
    for (const ZipMember& m : members) {
        packed.push_back(m.Method == 8 ? RawDeflate(m.Data) : m.Data);
        const bool descriptor = (m.Flags & 8) != 0;
        zip.Local.push_back(b.size());
        put32(0x04034b50);
        put16(20);
        put16(m.Flags);
        put16(m.Method);
        put32(0);  // time and date
        put32(descriptor ? 0 : Crc32(m.Data));
        put32(descriptor ? 0 : static_cast<std::uint32_t>(packed.back().size()));
        put32(descriptor ? 0 : static_cast<std::uint32_t>(m.Data.size()));
        put16(static_cast<std::uint32_t>(m.Name.size()));
        put16(0);
        b += m.Name;
        b += packed.back();
        if (descriptor) {
            put32(0x08074b50);
            put32(Crc32(m.Data));
            put32(static_cast<std::uint32_t>(packed.back().size()));
            put32(static_cast<std::uint32_t>(m.Data.size()));
        }
    }
    const std::size_t directory = b.size();
    for (std::size_t i = 0; i < members.size(); ++i) {
        const ZipMember& m = members[i];
        zip.Central.push_back(b.size());
        put32(0x02014b50);
        put16(20);
        put16(20);
        put16(m.Flags);
        put16(m.Method);
        put32(0);
        put32(Crc32(m.Data));
        put32(static_cast<std::uint32_t>(packed[i].size()));
        put32(static_cast<std::uint32_t>(m.Data.size()));
        put16(static_cast<std::uint32_t>(m.Name.size()));
        put16(0);  // extra
        put16(0);  // comment
        put16(0);  // disk
        put16(0);  // internal attributes
        put32(0);  // external attributes
        put32(static_cast<std::uint32_t>(zip.Local[i] - prefix.size()));
        b += m.Name;
    }
    zip.End = b.size();
    put32(0x06054b50);
    put16(0);
    put16(0);
    put16(static_cast<std::uint32_t>(members.size()));
    put16(static_cast<std::uint32_t>(members.size()));
    put32(static_cast<std::uint32_t>(zip.End - directory));
    put32(static_cast<std::uint32_t>(directory - prefix.size()));
    put16(static_cast<std::uint32_t>(comment.size()));
    b += comment;
    return zip;
}

}  // namespace test_support
