#include <tessel_link/common/messages.h>

#include <atomic>
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <vector>

#include "common/message_table_source.h"

namespace Common {
namespace Detail {
extern const std::uint32_t kBuiltInMessageBlock[];
extern const std::size_t kBuiltInMessageBlockSize;
}  // namespace Detail

namespace {

std::once_flag g_loadOnce;
MessageTableBlock g_table;
std::atomic<const MessageTableBlock*> g_published{nullptr};
// Set while this thread loads the table. Reading the replacement goes through the file
// layer, which makes errors with texts of their own on the way; those texts come from the
// built-in table, since waiting for the load in progress would never end.
thread_local bool t_loading = false;

std::uint32_t ReadWord(const unsigned char* p) {
    std::uint32_t v;
    std::memcpy(&v, p, sizeof v);
    return v;
}

void LoadTable() {
    // A lookup must not disturb the thread's pending error value.
    const int savedErrno = errno;
    // An accepted replacement is kept for the life of the process and never freed.
    static std::vector<unsigned char> replacement;
    std::vector<unsigned char> block;
    t_loading = true;
    const bool replaced = Detail::ReadReplacementMessageTable(block);
    t_loading = false;
    if (replaced && IsValidMessageTable(block.data(), block.size())) {
        replacement = std::move(block);
        g_table = {replacement.data(), replacement.size()};
    } else {
        g_table = GetBuiltInMessageTable();
        if (g_table.Data == nullptr) {
            std::abort();
        }
    }
    g_published.store(&g_table, std::memory_order_release);
    errno = savedErrno;
}

}  // namespace

MessageTableBlock Detail::PeekLoadedMessageTable() noexcept {
    const MessageTableBlock* table = g_published.load(std::memory_order_acquire);
    return table != nullptr ? *table : MessageTableBlock{};
}

bool IsValidMessageTable(const void* data, std::size_t size) {
    if (data == nullptr || size < 8) {
        return false;
    }
    const auto* p = static_cast<const unsigned char*>(data);
    return ReadWord(p) == size && ReadWord(p + 4) == kMessageSignature;
}

MessageTableBlock GetBuiltInMessageTable() {
    return {reinterpret_cast<const unsigned char*>(Detail::kBuiltInMessageBlock),
            Detail::kBuiltInMessageBlockSize};
}

MessageTableBlock GetMessageTable() {
    if (t_loading) {
        return GetBuiltInMessageTable();
    }
    std::call_once(g_loadOnce, LoadTable);
    return g_table;
}

const char16_t* GetMessageText(std::uint32_t id) {
    const MessageTableBlock table = GetMessageTable();
    if (table.Data == nullptr) {
        return nullptr;
    }
    // The entry is an offset relative to its own position. Nothing is bounds-checked: the
    // identifier and the table come from the same build, which the signature stands for.
    const unsigned char* entry = table.Data + id;
    const auto offset = static_cast<std::int32_t>(ReadWord(entry));
    return reinterpret_cast<const char16_t*>(entry + offset);
}

const char16_t* GetMessageRow(std::uint32_t row) {
    if (row >= kMessageRowCount) {
        return nullptr;
    }
    return GetMessageText(MessageId(row));
}

}  // namespace Common
