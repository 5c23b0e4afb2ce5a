#include "platform/krMem.h"

#include "platform/Diagnostic.h"
#include "platform/Mutex.h"
#include "platform/Self.h"
#include "platform/Uncancelled.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <malloc.h>
#include <mutex>
#include <sys/mman.h>

std::atomic<int> g_manageHeap{0};
std::atomic<int> g_clearBlock{0};
std::atomic<int> g_iAlreadyInitialized{0};
KrHeap* g_heap = nullptr;

namespace {

constexpr char source[] = "linux/krMem";
constexpr uint32_t classSizes[KR_MEM_CLASSES] = {48, 128, 512, 1024, 2304, 4352, 10240, 18432, 26624, 34816};
constexpr uint16_t magic = 0x4D34;
constexpr uint32_t inUseBit = 0x8000'0000;

/// In front of every managed block. The word `onFreeList` tells a released block of class 0 from a large block: the
/// class word of both is 0.
struct Header {
  uint16_t magic;
  uint16_t onFreeList;
  uint32_t classWord; ///< pooled: class index, with inUseBit while in use; large: 0
  uint32_t creator;
  uint32_t deleter; ///< 0 while in use
};
static_assert(sizeof(Header) == 16);

/// Reckoned as a number: the address may be nobody's block, with nothing in front of it.
Header* headerOf(void* block) {
  // NOLINTNEXTLINE(performance-no-int-to-ptr)
  return reinterpret_cast<Header*>(reinterpret_cast<uintptr_t>(block) - sizeof(Header));
}
void* blockOf(Header* header) { return header + 1; }

/// The link of a released block lies in the block itself, so that its header still tells what it is.
Header*& linkOf(Header* header) { return *static_cast<Header**>(blockOf(header)); }

enum class Kind { foreign, large, pooled, released };

/// Whether a header in front of an address could be read: on the page of the address itself it can, as far as the
/// address is memory at all, and on the page before that if there is one.
bool couldHaveHeader(void* block) {
  constexpr uintptr_t page = 4096; // the smallest there is
  const auto address = reinterpret_cast<uintptr_t>(block);
  if (address % alignof(Header*) != 0 || address < page) return false;
  if (address % page >= sizeof(Header)) return true;
  unsigned char resident = 0;
  // NOLINTNEXTLINE(performance-no-int-to-ptr)
  return mincore(reinterpret_cast<void*>(address / page * page - page), 1, &resident) == 0 || errno != ENOMEM;
}

/// Tells what an address is, whosever it may be, and without the sanitizers' objection that what lies in front of it is
/// somebody else's.
[[gnu::no_sanitize_address, gnu::no_sanitize_thread]] Kind kindOf(void* block) {
  if (!couldHaveHeader(block)) return Kind::foreign;
  const Header* const header = headerOf(block);
  if (header->magic != magic) return Kind::foreign;
  if (header->onFreeList != 0) return Kind::released;
  if (header->classWord == 0) return Kind::large;
  return (header->classWord & inUseBit) != 0 ? Kind::pooled : Kind::released;
}

const char* nameOf(uint32_t tid) { return krThreadName(tid); }
const char* ownName() { return krThreadName(kr::self()); }
unsigned printed(const void* address) { return static_cast<unsigned>(reinterpret_cast<uintptr_t>(address)); }

int classOf(size_t size) {
  for (int i = 0; i < KR_MEM_CLASSES; ++i)
    if (size <= classSizes[i]) return i;
  return KR_MEM_NO_CLASS;
}

class HeapHeld : public kr::Held {
public:
  HeapHeld(KrHeap* heap, int line, const char* function) : kr::Held(heap->mutex, source, line, function) {}
};

KrHeap* makeHeap() {
  auto* const heap = static_cast<KrHeap*>(calloc(1, sizeof(KrHeap)));
  void* const block = calloc(1, sizeof(KrMutex));
  KrMutex* const mutex = heap != nullptr && block != nullptr ? kr::makeMutex(block) : nullptr;
  if (mutex == nullptr) {
    free(block);
    free(heap);
    return nullptr;
  }
  heap->mutex = mutex;
  const HeapHeld held(heap, 95, "krMemInitHeap");
  std::copy(std::begin(classSizes), std::end(classSizes), heap->classSizes);
  heap->classCount = KR_MEM_CLASSES;
  heap->highestSlot = -1;
  return heap;
}

/// Fixes the mode once; false when it was fixed before.
bool initialise(int manage, int clear) {
  static std::mutex once;
  const std::lock_guard<std::mutex> lock(once);
  if (g_iAlreadyInitialized.load(std::memory_order_relaxed) != 0) return false;
  if (manage != 0) g_heap = makeHeap();
  g_manageHeap.store(g_heap != nullptr ? 1 : 0, std::memory_order_relaxed);
  g_clearBlock.store(clear, std::memory_order_relaxed);
  g_iAlreadyInitialized.store(1, std::memory_order_release);
  return true;
}

/// The mode; the first call of all fixes it.
bool unmanaged() {
  if (g_iAlreadyInitialized.load(std::memory_order_acquire) == 0)
    (void)kr::uncancelled([] { return initialise(0, 0); });
  return g_manageHeap.load(std::memory_order_relaxed) == 0;
}

/// Takes a block for a request from the system; null, after a line, when there is none.
Header* obtain(size_t size) {
  void* const memory = size <= SIZE_MAX - sizeof(Header) ? malloc(size + sizeof(Header)) : nullptr;
  if (memory == nullptr) {
    kr::say(stdout, "krMem.krMallocByHeap - Error (Task=%s)\n", ownName());
    errno = ENOMEM;
  }
  return static_cast<Header*>(memory);
}

Header* allocateLarge(KrHeap* heap, size_t size) {
  Header* const header = obtain(size);
  if (header == nullptr) return nullptr;
  *header = Header{magic, 0, 0, kr::shortId(kr::self()), 0};
  ++heap->largeInUse;
  ++heap->largeAllocations;
  heap->largeBytes += size;
  return header;
}

Header* allocatePooled(KrHeap* heap, size_t size, int index) {
  const uint32_t classSize = heap->classSizes[index];
  Header* header = static_cast<Header*>(heap->freeLists[index]);
  if (header != nullptr) {
    heap->freeLists[index] = linkOf(header);
  } else {
    header = obtain(classSize);
    if (header == nullptr) return nullptr;
    ++heap->obtained[index];
  }
  *header = Header{magic, 0, static_cast<uint32_t>(index) | inUseBit, kr::shortId(kr::self()), 0};
  if (heap->watch != 0) krMemTrackNewUsage(heap, kr::self(), static_cast<int32_t>(classSize + sizeof(Header)));
  const auto requested = static_cast<uint32_t>(size);
  if (heap->allocations[index] == 0 || requested < heap->smallest[index]) heap->smallest[index] = requested;
  heap->largest[index] = std::max(heap->largest[index], requested);
  heap->requestedBytes[index] += size;
  ++heap->allocations[index];
  ++heap->inUse[index];
  return header;
}

/// Under the heap mutex.
void* allocate(KrHeap* heap, size_t size) {
  const int index = classOf(size);
  Header* const header = index == KR_MEM_NO_CLASS ? allocateLarge(heap, size) : allocatePooled(heap, size, index);
  if (header == nullptr) return nullptr;
  void* const block = blockOf(header);
  if (g_clearBlock.load(std::memory_order_relaxed) != 0)
    memset(block, 0, index == KR_MEM_NO_CLASS ? size : heap->classSizes[index]);
  return block;
}

void trackDeletedUsage(KrHeap* heap, uint32_t creator, uint32_t bytes) {
  uint32_t* const end = heap->trackedIds + (heap->highestSlot + 1);
  const uint32_t* const slot = std::find(heap->trackedIds, end, creator);
  // A thread that was never counted has nothing to take off.
  if (slot == end) return;
  int64_t& usage = heap->trackedBytes[slot - heap->trackedIds];
  usage -= bytes;
  if (usage < 0)
    kr::say(stdout, "krMemTrackDeleteUsage - usage < 0 for %s, deleting task was %s", nameOf(creator), ownName());
}

void releaseLarge(KrHeap* heap, Header* header) {
  // Written through a volatile so that it is not dropped as dead: a second release must not find the magic.
  *static_cast<volatile uint16_t*>(&header->magic) = 0;
  free(header);
  --heap->largeInUse;
}

void releasePooled(KrHeap* heap, Header* header) {
  const uint32_t index = header->classWord & ~inUseBit;
  header->classWord = index;
  header->onFreeList = 1;
  header->deleter = kr::shortId(kr::self());
  if (index >= heap->classCount) {
    kr::say(stdout, "krFree - BlockSize too large (%d >= %d) (CurrentTask=%s)\n", static_cast<int>(index),
            heap->classCount, ownName());
    return;
  }
  if (heap->watch != 0)
    trackDeletedUsage(heap, header->creator, heap->classSizes[index] + static_cast<uint32_t>(sizeof(Header)));
  linkOf(header) = static_cast<Header*>(heap->freeLists[index]);
  heap->freeLists[index] = header;
  --heap->inUse[index];
}

/// Says why an address is no block in use.
void reportMisuse(Header* header, Kind kind) {
  if (kind == Kind::foreign)
    kr::say(stdout, "krFree - Delete invalid block %08X (Task=%s)\n", printed(header), ownName());
  else
    kr::say(stdout, "krFree - Block %08X already deleted (Creator=%s) (Deleted by=%s) (CurrentTask=%s)\n",
            printed(header), nameOf(header->creator), nameOf(header->deleter), ownName());
}

void release(KrHeap* heap, void* block) {
  const HeapHeld held(heap, 446, "krFreeByHeap");
  if (block == nullptr) {
    kr::say(stdout, "krFree(NULL) - Task=%s\n", ownName());
    return;
  }
  Header* const header = headerOf(block);
  switch (const Kind kind = kindOf(block)) {
  case Kind::large:
    return releaseLarge(heap, header);
  case Kind::pooled:
    return releasePooled(heap, header);
  case Kind::foreign:
  case Kind::released:
    return reportMisuse(header, kind);
  }
}

void* reallocate(KrHeap* heap, void* block, size_t size) {
  Header* const header = headerOf(block);
  Kind kind = Kind::foreign;
  void* moved = nullptr;
  {
    const HeapHeld held(heap, 540, "krReallocByHeap");
    kind = kindOf(block);
    size_t kept = 0;
    if (kind == Kind::pooled) {
      const uint32_t index = header->classWord & ~inUseBit;
      if (classOf(size) <= static_cast<int>(index)) return block;
      kept = index < heap->classCount ? heap->classSizes[index] : 0;
    } else if (kind == Kind::large) {
      // The header does not keep the size; the system allocator knows it, rounded up.
      kept = malloc_usable_size(header) - sizeof(Header);
    } else {
      reportMisuse(header, kind);
    }
    moved = allocate(heap, size);
    if (moved != nullptr) memcpy(moved, block, std::min(kept, size));
  }
  if (kind == Kind::pooled || kind == Kind::large) release(heap, block);
  return moved;
}

} // namespace

void krMemInit(int manage, int clear) {
  kr::uncancelled([=] {
    if (!initialise(manage, clear))
      kr::say(stdout, "krMemInit: already initialized, managHeap=%d, clearMem=%d\n", g_manageHeap.load(),
              g_clearBlock.load());
  });
}

void* krMalloc(size_t size) {
  return kr::uncancelledIfAsynchronous([size]() -> void* {
    if (unmanaged()) return calloc(1, size);
    const HeapHeld held(g_heap, 292, "krMallocByHeap");
    if (size == 0) kr::say(stdout, "krMallocByHeap - Zero alloc (Task=%s)\n", ownName());
    return allocate(g_heap, size);
  });
}

void* krZalloc(size_t size) { return krMalloc(size); }

void* krRealloc(void* block, size_t size) {
  return kr::uncancelledIfAsynchronous([=]() -> void* {
    if (unmanaged()) return realloc(block, size);
    if (block == nullptr) return krMalloc(size);
    if (size != 0) return reallocate(g_heap, block, size);
    krFree(block);
    return nullptr;
  });
}

void krFree(void* block) {
  if (block == nullptr) return;
  kr::uncancelledIfAsynchronous([block] {
    if (unmanaged())
      free(block);
    else
      release(g_heap, block);
  });
}

void krFreeByHeap(KrHeap* heap, void* block) {
  if (heap == nullptr) return;
  kr::uncancelledIfAsynchronous([=] { release(heap, block); });
}

int krMemGetType(size_t size) { return unmanaged() ? KR_MEM_NO_CLASS : classOf(size); }

size_t krMemGetMaxSize() { return classSizes[KR_MEM_CLASSES - 1]; }

int krMemGetDebug() {
  return kr::uncancelledIfAsynchronous([] {
    if (unmanaged()) return 0;
    const HeapHeld held(g_heap, 185, "krMemGetDebug");
    return g_heap->debug;
  });
}

void krMemSetDebug(int flag) {
  kr::uncancelledIfAsynchronous([flag] {
    if (unmanaged()) return;
    const HeapHeld held(g_heap, 171, "krMemSetDebug");
    g_heap->debug = flag;
  });
}

void krMemEnableWatch() {
  kr::uncancelledIfAsynchronous([] {
    if (unmanaged()) return;
    const HeapHeld held(g_heap, 151, "krMemEnableWatch");
    if (g_heap->watch != 0) return;
    g_heap->watch = 1;
    g_heap->highestSlot = -1;
    std::fill(std::begin(g_heap->trackedIds), std::end(g_heap->trackedIds), 0);
    std::fill(std::begin(g_heap->trackedBytes), std::end(g_heap->trackedBytes), 0);
  });
}

void krMemTrackNewUsage(KrHeap* heap, KrThreadId tid, int32_t bytes) {
  if (heap == nullptr) return;
  const uint32_t id = kr::shortId(tid);
  const uint32_t* const end = heap->trackedIds + (heap->highestSlot + 1);
  const auto slot = std::find(static_cast<const uint32_t*>(heap->trackedIds), end, id) - heap->trackedIds;
  if (slot > heap->highestSlot) {
    if (heap->highestSlot >= KR_MEM_TRACKED_THREADS - 1) {
      kr::say(stdout, "krMemTrackNewUsage -Exceeded thread tracking count");
      return;
    }
    heap->trackedIds[slot] = id;
    heap->highestSlot = static_cast<int>(slot);
  }
  heap->trackedBytes[slot] += bytes;
}
