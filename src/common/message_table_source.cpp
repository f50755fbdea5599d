#include "common/message_table_source.h"

#include <cstdint>
#include <cstring>

#include "file/module_archive.h"

namespace Common::Detail {

namespace {

constexpr char16_t kMemberName[] = u"tessel_link.msg";

// Where the texts start: behind the size, the signature and the index.
constexpr std::size_t kTextsStart = 4 * std::size_t{kMessageSignature};

std::uint32_t Word(const unsigned char* p) {
    std::uint32_t v;
    std::memcpy(&v, p, sizeof v);
    return v;
}

// A lookup trusts the table: it follows an index entry without any check. Size and
// signature only say that the table was made for this build, not that it is intact, so a
// replacement must also show that every index entry leads, inside the block, to a text
// that ends inside the block. A damaged file then can't make a lookup read outside it.
bool EveryRowLeadsToText(const std::vector<unsigned char>& block) {
    const std::size_t size = block.size();
    if (size < kTextsStart + 2 || Word(block.data()) != size ||
        Word(block.data() + 4) != kMessageSignature) {
        return false;
    }
    // A text starting at an even position p ends inside the block exactly when some zero
    // unit stands at an even position at or after p: find the last one.
    std::size_t lastZero = 0;
    bool anyZero = false;
    for (std::size_t p = (size - 2) & ~std::size_t{1}; p >= kTextsStart; p -= 2) {
        if (block[p] == 0 && block[p + 1] == 0) {
            lastZero = p;
            anyZero = true;
            break;
        }
    }
    if (!anyZero) {
        return false;
    }
    for (std::uint32_t row = 0; row < kMessageRowCount; ++row) {
        const std::size_t entry = MessageId(row);
        const auto offset = static_cast<std::int32_t>(Word(block.data() + entry));
        const std::int64_t text = static_cast<std::int64_t>(entry) + offset;
        // Texts lie behind the index, on even positions: UTF-16 units are read in place.
        if (text < static_cast<std::int64_t>(kTextsStart) || text % 2 != 0 ||
            text > static_cast<std::int64_t>(lastZero)) {
            return false;
        }
    }
    return true;
}

}  // namespace

bool ReadReplacementMessageTable(std::vector<unsigned char>& block) {
    File::si_dir* archive = File::GetModuleArchive();
    if (archive == nullptr || !File::ReadMember(*archive, kMemberName, block)) {
        return false;
    }
    if (!EveryRowLeadsToText(block)) {
        block.clear();
        return false;
    }
    return true;
}

}  // namespace Common::Detail
