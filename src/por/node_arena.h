#pragma once

// Memory for the small objects of in-memory trees (units, properties, traits, trait sets).
//
// A tree is made of many objects of a few dozen bytes that are made together and usually
// die together. Each thread cuts them one after the other from a chunk of its own; a chunk
// counts the objects that still live in it and goes back to the heap when the last one is
// destroyed, on whichever thread that happens. Making an object costs a pointer bump, and
// destroying one an atomic decrement, where the heap would cost a search of its free lists
// for each of them.
//
// The price is that a chunk lives as long as any object in it: one unit kept from a tree
// that is otherwise gone keeps its chunk (kArenaChunkSize bytes).
//
// Under AddressSanitizer every object comes from the ordinary heap instead, so that the
// sanitizer still sees each object's own lifetime.

#include <cstddef>
#include <new>

namespace Por::Detail {

inline constexpr std::size_t kArenaChunkSize = 32 * 1024;
// The largest object the arena takes; larger ones come from the heap.
inline constexpr std::size_t kArenaLargestObject = 512;

void* ArenaAllocate(std::size_t size);
void ArenaFree(void* object) noexcept;

// Gives a class the arena as its memory. Objects are deleted through virtual destructors, so
// the operator delete of the most derived class, this one, is the one that runs.
#define TL_POR_ARENA_ALLOCATED                                                          \
    static void* operator new(std::size_t size) {                                      \
        return ::Por::Detail::ArenaAllocate(size);                                     \
    }                                                                                   \
    static void operator delete(void* object) noexcept {                               \
        ::Por::Detail::ArenaFree(object);                                              \
    }

// An allocator for the lists of in-memory units (the elements of an array, the properties of
// a composite). The lists of records are short and made together with the units they point
// to: they are cut from the arena too, and only the longer ones come from the heap.
template <class T>
struct ArenaAllocator {
    using value_type = T;

    ArenaAllocator() noexcept = default;
    template <class U>
    ArenaAllocator(const ArenaAllocator<U>&) noexcept {}

    T* allocate(std::size_t count) {
        const std::size_t bytes = count * sizeof(T);
        return static_cast<T*>(bytes <= kArenaLargestObject ? ArenaAllocate(bytes)
                                                            : ::operator new(bytes));
    }
    void deallocate(T* items, std::size_t count) noexcept {
        if (count * sizeof(T) <= kArenaLargestObject) {
            ArenaFree(items);
        } else {
            ::operator delete(items);
        }
    }

    template <class U>
    bool operator==(const ArenaAllocator<U>&) const noexcept {
        return true;
    }
};

}  // namespace Por::Detail
