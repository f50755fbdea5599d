// A walk of a directory makes no heap allocation for an entry. Every allocation of this
// test program goes through the counting operators below, which is why it is a program of
// its own: the others keep the sanitizer's own operators and their checks.

#include <atomic>
#include <cstdlib>
#include <memory>
#include <new>
#include <string>

#include <gtest/gtest.h>

#include "file/dir_test_tree.h"
#include "file/nt_dir.h"

namespace {
std::atomic<std::size_t> allocations{0};

void* Allocate(std::size_t size) noexcept {
    allocations.fetch_add(1, std::memory_order_relaxed);
    return std::malloc(size == 0 ? 1 : size);
}
}  // namespace

// Kept out of line, so that the compiler does not pair a caller's new with the free inside.
[[gnu::noinline]] void* operator new(std::size_t size) {
    if (void* p = Allocate(size)) {
        return p;
    }
    throw std::bad_alloc();
}
[[gnu::noinline]] void* operator new[](std::size_t size) {
    return operator new(size);
}
[[gnu::noinline]] void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
    return Allocate(size);
}
[[gnu::noinline]] void* operator new[](std::size_t size, const std::nothrow_t&) noexcept {
    return Allocate(size);
}
[[gnu::noinline]] void operator delete(void* p) noexcept {
    std::free(p);
}
[[gnu::noinline]] void operator delete[](void* p) noexcept {
    std::free(p);
}
[[gnu::noinline]] void operator delete(void* p, std::size_t) noexcept {
    std::free(p);
}
[[gnu::noinline]] void operator delete[](void* p, std::size_t) noexcept {
    std::free(p);
}
[[gnu::noinline]] void operator delete(void* p, const std::nothrow_t&) noexcept {
    std::free(p);
}
[[gnu::noinline]] void operator delete[](void* p, const std::nothrow_t&) noexcept {
    std::free(p);
}

namespace {

using test_support::TempTree;

TEST(DirIterator, AWalkAllocatesNothingForAnEntry) {
    TempTree tree;
    for (int i = 0; i < 3000; ++i) {
        // Names short and long, some beyond what a string keeps without the heap.
        tree.Write("entry_" + std::to_string(i) + std::string(i % 40, 'x'), "");
    }
    tree.MakeDir("sub");
    Common::Error error;
    auto dir = File::nt_dir::Open(Platform::SystemDirIo(), tree.Wide(), error);
    ASSERT_TRUE(dir != nullptr) << error.Code();
    std::unique_ptr<File::i_dir::iterator> it(dir->GetIterator());
    std::size_t entries = 0;
    std::size_t inLoop = 0;
    std::uint64_t sizes = 0;
    for (;;) {
        const std::size_t before = allocations.load();
        File::dir_entry_info info;
        ASSERT_TRUE(it->GetEntryInfo(info));
        ASSERT_NE(it->GetName(), nullptr);
        sizes += info.Size + info.NameLength + it->GetSize() + static_cast<std::uint64_t>(it->GetWriteTime() != 0) +
                 it->GetType() + it->GetAttributes() + it->GetLinkCount() +
                 std::char_traits<char16_t>::length(it->GetFullPath());
        ++entries;
        // The last step records the end of the directory, which is allowed its allocation.
        if (!it->Next()) {
            break;
        }
        inLoop += allocations.load() - before;
    }
    EXPECT_EQ(entries, 3001u);
    EXPECT_GT(sizes, 0u);
    EXPECT_EQ(inLoop, 0u);
}

}  // namespace
