#include "por/node_arena.h"

#include <atomic>
#include <cstdint>
#include <cstdlib>

#if defined(__SANITIZE_ADDRESS__)
#define TL_POR_ARENA_OFF 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define TL_POR_ARENA_OFF 1
#endif
#endif

namespace Por::Detail {

#if defined(TL_POR_ARENA_OFF)

void* ArenaAllocate(std::size_t size) {
    return ::operator new(size);
}

void ArenaFree(void* object) noexcept {
    ::operator delete(object);
}

#else

namespace {

// The head of a chunk, at its aligned start. `live` is the number of objects in the chunk
// that are not destroyed yet, plus kOpen while the chunk still hands out memory: the owner
// counts what it hands out without atomics and settles the difference when it lets the
// chunk go.
struct Chunk {
    std::atomic<std::int64_t> live;
};

constexpr std::int64_t kOpen = std::int64_t{1} << 40;
constexpr std::size_t kHead = 16;  // keeps the objects 16-byte aligned
constexpr std::size_t kGrain = 8;

static_assert((kArenaChunkSize & (kArenaChunkSize - 1)) == 0, "chunks are found by masking");

Chunk* ChunkOf(void* object) {
    return reinterpret_cast<Chunk*>(reinterpret_cast<std::uintptr_t>(object) &
                                    ~(std::uintptr_t{kArenaChunkSize} - 1));
}

Chunk* NewChunk(std::size_t bytes, std::int64_t live) {
    void* memory = std::aligned_alloc(kArenaChunkSize, bytes);
    if (memory == nullptr) {
        throw std::bad_alloc();
    }
    return new (memory) Chunk{{live}};
}

// The chunk that one thread cuts objects from. Trivially destructible, so that it can be
// reached without a guard; the Retirer lets the chunk go when the thread ends.
struct ThreadArena {
    Chunk* chunk;
    char* next;
    char* end;
    std::int64_t made;  // objects handed out from `chunk`
    bool ended;         // the thread is past its arena's end
};

thread_local ThreadArena t_arena{nullptr, nullptr, nullptr, 0, false};

void Release(Chunk* chunk, std::int64_t count) {
    if (chunk->live.fetch_sub(count, std::memory_order_acq_rel) == count) {
        chunk->~Chunk();
        std::free(chunk);
    }
}

void Retire(ThreadArena& arena) {
    if (arena.chunk != nullptr) {
        Chunk* chunk = arena.chunk;
        const std::int64_t unused = kOpen - arena.made;
        arena.chunk = nullptr;
        arena.next = arena.end = nullptr;
        arena.made = 0;
        Release(chunk, unused);
    }
}

struct Retirer {
    ~Retirer() {
        Retire(t_arena);
        t_arena.ended = true;
    }
};

thread_local Retirer t_retirer;

// An object in a chunk of its own: too large to share one, or made after the thread's arena
// has ended.
void* Single(std::size_t size) {
    const std::size_t bytes = (kHead + size + kArenaChunkSize - 1) & ~(kArenaChunkSize - 1);
    return reinterpret_cast<char*>(NewChunk(bytes, 1)) + kHead;
}

void* Refill(ThreadArena& arena, std::size_t size) {
    if (arena.ended) {
        return Single(size);
    }
    if (arena.chunk != nullptr &&
        arena.chunk->live.load(std::memory_order_acquire) == kOpen - arena.made) {
        // Everything cut from the chunk is gone again: start it over. No other thread can
        // reach it any more, since only its live objects lead there.
        arena.next = reinterpret_cast<char*>(arena.chunk) + kHead;
        arena.chunk->live.store(kOpen, std::memory_order_relaxed);
        arena.made = 0;
    } else {
        Retire(arena);
        (void)&t_retirer;  // the first chunk of a thread registers its end
        arena.chunk = NewChunk(kArenaChunkSize, kOpen);
        arena.next = reinterpret_cast<char*>(arena.chunk) + kHead;
        arena.end = reinterpret_cast<char*>(arena.chunk) + kArenaChunkSize;
    }
    void* object = arena.next;
    arena.next += size;
    ++arena.made;
    return object;
}

}  // namespace

void* ArenaAllocate(std::size_t size) {
    size = (size + kGrain - 1) & ~(kGrain - 1);
    if (size > kArenaLargestObject) {
        return Single(size);
    }
    ThreadArena& arena = t_arena;
    if (static_cast<std::size_t>(arena.end - arena.next) < size) {
        return Refill(arena, size);
    }
    void* object = arena.next;
    arena.next += size;
    ++arena.made;
    return object;
}

void ArenaFree(void* object) noexcept {
    if (object != nullptr) {
        Release(ChunkOf(object), 1);
    }
}

#endif

}  // namespace Por::Detail
