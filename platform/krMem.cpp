#include "platform/krMem.h"

#include "platform/internal/Diagnostic.h"
#include "platform/internal/Mutex.h"
#include "platform/internal/Self.h"
#include "platform/internal/Uncancelled.h"

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <malloc.h>
#include <mutex>

std::atomic<int> g_manageHeap{0};
std::atomic<int> g_clearBlock{0};
std::atomic<int> g_iAlreadyInitialized{0};
KrHeap* g_heap = nullptr;

namespace {

constexpr char source[] = "linux/krMem";
constexpr uint32_t classSizes[KR_MEM_CLASSES] = {48, 128, 512, 1024, 2304, 4352, 10240, 18432, 26624, 34816};
constexpr uint16_t magic = 0x4D34;
constexpr uint32_t inUseBit = 0x8000'0000;
constexpr char tooManyThreads[] = "krMemTrackNewUsage -Exceeded thread tracking count";

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

/// Reckoned as a number: the address may be that of no block, with nothing in front of it.
Header* headerOf(void* block) {
  // NOLINTNEXTLINE(performance-no-int-to-ptr)
  return reinterpret_cast<Header*>(reinterpret_cast<uintptr_t>(block) - sizeof(Header));
}
void* blockOf(Header* header) { return header + 1; }

/// The link of a released block lies in the block itself, so that its header still tells what it is.
Header*& linkOf(Header* header) { return *static_cast<Header**>(blockOf(header)); }

enum class Kind { foreign, large, pooled, released };

/// The headers of all blocks: pooled ones for good, large ones while they are in use. What an address is shows here
/// before anything in front of it is read: it may be anybody's, or that of a large block whose memory went back to the
/// system. Guarded by the heap's mutex.
class Headers {
public:
  /// False without memory.
  bool add(Header* header) {
    if (_count >= _size / 2 && !grow()) return false;
    _slots[placeOf(header)] = header;
    ++_count;
    return true;
  }

  void remove(const Header* header) {
    size_t hole = placeOf(header);
    // Those behind it that were pushed on by it move up, so that no search ends early.
    for (size_t i = next(hole); _slots[i] != nullptr; i = next(i)) {
      if (distance(home(_slots[i]), i) < distance(hole, i)) continue;
      _slots[hole] = _slots[i];
      hole = i;
    }
    _slots[hole] = nullptr;
    --_count;
  }

  bool has(const Header* header) const { return _count != 0 && header != nullptr && _slots[placeOf(header)] == header; }

private:
  size_t home(const Header* header) const {
    return static_cast<size_t>((reinterpret_cast<uintptr_t>(header) * uint64_t{0x9E37'79B9'7F4A'7C15}) >> _shift);
  }
  size_t next(size_t slot) const { return (slot + 1) & (_size - 1); }
  size_t distance(size_t from, size_t to) const { return (to - from) & (_size - 1); }

  /// Where the header is, or else would be.
  size_t placeOf(const Header* header) const {
    size_t slot = home(header);
    while (_slots[slot] != nullptr && _slots[slot] != header)
      slot = next(slot);
    return slot;
  }

  bool grow() {
    Headers larger;
    larger._size = _size != 0 ? _size * 2 : 256;
    larger._shift = _size != 0 ? _shift - 1 : 64 - 8;
    // NOLINTNEXTLINE(bugprone-sizeof-expression): an array of pointers
    larger._slots = static_cast<Header**>(calloc(larger._size, sizeof(Header*)));
    if (larger._slots == nullptr) return false;
    for (size_t i = 0; i < _size; ++i)
      if (_slots[i] != nullptr) (void)larger.add(_slots[i]); // there is room
    free(_slots);
    *this = larger;
    return true;
  }

  Header** _slots = nullptr; ///< at most half of them taken; null in a free one
  size_t _size = 0;          ///< a power of two
  size_t _count = 0;
  int _shift = 0;
};
Headers headers;

/// What an address is, whosever it may be.
Kind kindOf(void* block) {
  const Header* const header = headerOf(block);
  if (!headers.has(header) || header->magic != magic) return Kind::foreign;
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

/// What a call reports. It is printed once the heap's mutex is free: the console may not take it for long.
class Report {
public:
  __attribute__((format(printf, 2, 3))) void add(const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    // A call reports at most three lines, for which there is room.
    const int added = vsnprintf(_text + _length, sizeof _text - _length, format, arguments);
    va_end(arguments);
    _length = std::min(_length + static_cast<size_t>(std::max(added, 0)), sizeof _text - 1);
  }
  bool empty() const { return _length == 0; }
  void print(int cancelState) const { kr::say(cancelState, stdout, "%.*s", static_cast<int>(_length), _text); }

private:
  size_t _length = 0;
  char _text[512];
};

/// Where the calls lock the heap, as the reports of long waits name it. The numbers are part of the reports' text: they
/// never change, wherever the calls are in this file.
constexpr kr::Place initHeapPlace{source, 95, "krMemInitHeap", ""};
constexpr kr::Place enableWatchPlace{source, 151, "krMemEnableWatch", ""};
constexpr kr::Place setDebugPlace{source, 171, "krMemSetDebug", ""};
constexpr kr::Place getDebugPlace{source, 185, "krMemGetDebug", ""};
constexpr kr::Place mallocByHeapPlace{source, 292, "krMallocByHeap", ""};
constexpr kr::Place freeByHeapPlace{source, 446, "krFreeByHeap", ""};
constexpr kr::Place reallocByHeapPlace{source, 540, "krReallocByHeap", ""};

class HeapHeld : public kr::Held {
public:
  // NOLINTNEXTLINE(clang-analyzer-core.NullDereference): g_heap is not null in managed mode
  HeapHeld(KrHeap* heap, const kr::Place& place) : kr::Held(heap->mutex, place) {}
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
  const HeapHeld held(heap, initHeapPlace);
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

/// Takes a block for a request from the system; null when there is none.
Header* obtain(size_t size, Report& report) {
  auto* const header =
      static_cast<Header*>(size <= SIZE_MAX - sizeof(Header) ? malloc(size + sizeof(Header)) : nullptr);
  if (header != nullptr && headers.add(header)) return header;
  free(header);
  report.add("krMem.krMallocByHeap - Error (Task=%s)\n", ownName());
  errno = ENOMEM;
  return nullptr;
}

Header* allocateLarge(KrHeap* heap, size_t size, Report& report) {
  Header* const header = obtain(size, report);
  if (header == nullptr) return nullptr;
  *header = Header{magic, 0, 0, kr::shortId(kr::self()), 0};
  ++heap->largeInUse;
  ++heap->largeAllocations;
  heap->largeBytes += size;
  return header;
}

/// False when there is no slot left for the thread.
bool trackNewUsage(KrHeap* heap, KrThreadId tid, int32_t bytes) {
  const uint32_t id = kr::shortId(tid);
  const uint32_t* const end = heap->trackedIds + (heap->highestSlot + 1);
  const auto slot = std::find(static_cast<const uint32_t*>(heap->trackedIds), end, id) - heap->trackedIds;
  if (slot > heap->highestSlot) {
    if (heap->highestSlot >= KR_MEM_TRACKED_THREADS - 1) return false;
    heap->trackedIds[slot] = id;
    heap->highestSlot = static_cast<int>(slot);
  }
  heap->trackedBytes[slot] += bytes;
  return true;
}

Header* allocatePooled(KrHeap* heap, size_t size, int index, Report& report) {
  const uint32_t classSize = heap->classSizes[index];
  Header* header = static_cast<Header*>(heap->freeLists[index]);
  if (header != nullptr) {
    heap->freeLists[index] = linkOf(header);
  } else {
    header = obtain(classSize, report);
    if (header == nullptr) return nullptr;
    ++heap->obtained[index];
  }
  *header = Header{magic, 0, static_cast<uint32_t>(index) | inUseBit, kr::shortId(kr::self()), 0};
  if (heap->watch != 0 && !trackNewUsage(heap, kr::self(), static_cast<int32_t>(classSize + sizeof(Header))))
    report.add(tooManyThreads);
  const auto requested = static_cast<uint32_t>(size);
  if (heap->allocations[index] == 0 || requested < heap->smallest[index]) heap->smallest[index] = requested;
  heap->largest[index] = std::max(heap->largest[index], requested);
  heap->requestedBytes[index] += size;
  ++heap->allocations[index];
  ++heap->inUse[index];
  return header;
}

/// Under the heap mutex.
void* allocate(KrHeap* heap, size_t size, Report& report) {
  const int index = classOf(size);
  Header* const header =
      index == KR_MEM_NO_CLASS ? allocateLarge(heap, size, report) : allocatePooled(heap, size, index, report);
  if (header == nullptr) return nullptr;
  void* const block = blockOf(header);
  if (g_clearBlock.load(std::memory_order_relaxed) != 0)
    memset(block, 0, index == KR_MEM_NO_CLASS ? size : heap->classSizes[index]);
  return block;
}

void trackDeletedUsage(KrHeap* heap, uint32_t creator, uint32_t bytes, Report& report) {
  uint32_t* const end = heap->trackedIds + (heap->highestSlot + 1);
  const uint32_t* const slot = std::find(heap->trackedIds, end, creator);
  // A thread that was never counted has nothing to take off.
  if (slot == end) return;
  int64_t& usage = heap->trackedBytes[slot - heap->trackedIds];
  usage -= bytes;
  if (usage < 0)
    report.add("krMemTrackDeleteUsage - usage < 0 for %s, deleting task was %s", nameOf(creator), ownName());
}

void releaseLarge(KrHeap* heap, Header* header) {
  headers.remove(header);
  free(header);
  --heap->largeInUse;
}

void releasePooled(KrHeap* heap, Header* header, Report& report) {
  const uint32_t index = header->classWord & ~inUseBit;
  header->classWord = index;
  header->onFreeList = 1;
  header->deleter = kr::shortId(kr::self());
  if (index >= heap->classCount) {
    report.add("krFree - BlockSize too large (%d >= %d) (CurrentTask=%s)\n", static_cast<int>(index), heap->classCount,
               ownName());
    return;
  }
  if (heap->watch != 0)
    trackDeletedUsage(heap, header->creator, heap->classSizes[index] + static_cast<uint32_t>(sizeof(Header)), report);
  linkOf(header) = static_cast<Header*>(heap->freeLists[index]);
  heap->freeLists[index] = header;
  --heap->inUse[index];
}

/// Why an address is no block in use.
void reportMisuse(Header* header, Kind kind, Report& report) {
  if (kind == Kind::foreign)
    report.add("krFree - Delete invalid block %08X (Task=%s)\n", printed(header), ownName());
  else
    report.add("krFree - Block %08X already deleted (Creator=%s) (Deleted by=%s) (CurrentTask=%s)\n", printed(header),
               nameOf(header->creator), nameOf(header->deleter), ownName());
}

void release(KrHeap* heap, void* block, Report& report) {
  const HeapHeld held(heap, freeByHeapPlace);
  if (block == nullptr) return report.add("krFree(NULL) - Task=%s\n", ownName());
  Header* const header = headerOf(block);
  switch (const Kind kind = kindOf(block)) {
  case Kind::large:
    return releaseLarge(heap, header);
  case Kind::pooled:
    return releasePooled(heap, header, report);
  case Kind::foreign:
  case Kind::released:
    return reportMisuse(header, kind, report);
  }
}

void* reallocate(KrHeap* heap, void* block, size_t size, Report& report) {
  Header* const header = headerOf(block);
  Kind kind = Kind::foreign;
  void* moved = nullptr;
  {
    const HeapHeld held(heap, reallocByHeapPlace);
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
      reportMisuse(header, kind, report);
    }
    moved = allocate(heap, size, report);
    if (moved != nullptr) memcpy(moved, block, std::min(kept, size));
  }
  if (kind == Kind::pooled || kind == Kind::large) release(heap, block, report);
  return moved;
}

/// Prints a report; a thread that is cancelled meanwhile gives up the block it was about to get.
[[gnu::noinline]] void print(const Report& report, int cancelState, void* block) {
  kr::OnCancel onCancel{[block] {
    Report none;
    if (block != nullptr) release(g_heap, block, none);
  }};
  report.print(cancelState);
  onCancel.armed = false;
}

/// Runs a call of the managed heap, prints what it reports and returns its block, or null.
template <class Call>
void* reporting(int cancelState, Call call) {
  Report report;
  void* const block = call(report);
  if (!report.empty()) print(report, cancelState, block);
  return block;
}

void* allocateReporting(KrHeap* heap, size_t size, int cancelState) {
  return reporting(cancelState, [=](Report& report) {
    const HeapHeld held(heap, mallocByHeapPlace);
    if (size == 0) report.add("krMallocByHeap - Zero alloc (Task=%s)\n", ownName());
    return allocate(heap, size, report);
  });
}

void releaseReporting(KrHeap* heap, void* block, int cancelState) {
  (void)reporting(cancelState, [=](Report& report) {
    release(heap, block, report);
    return nullptr;
  });
}

} // namespace

void krMemInit(int manage, int clear) {
  kr::uncancelled([=](int cancelState) {
    if (!initialise(manage, clear))
      kr::say(cancelState, stdout, "krMemInit: already initialized, managHeap=%d, clearMem=%d\n", g_manageHeap.load(),
              g_clearBlock.load());
  });
}

void* krMalloc(size_t size) {
  return kr::uncancelledIfAsynchronous(
      [size](int cancelState) { return unmanaged() ? calloc(1, size) : allocateReporting(g_heap, size, cancelState); });
}

void* krZalloc(size_t size) { return krMalloc(size); }

void* krRealloc(void* block, size_t size) {
  return kr::uncancelledIfAsynchronous([=](int cancelState) {
    if (unmanaged()) return realloc(block, size);
    if (block == nullptr) return allocateReporting(g_heap, size, cancelState);
    if (size != 0)
      return reporting(cancelState, [=](Report& report) { return reallocate(g_heap, block, size, report); });
    releaseReporting(g_heap, block, cancelState);
    return static_cast<void*>(nullptr);
  });
}

void krFree(void* block) {
  if (block == nullptr) return;
  kr::uncancelledIfAsynchronous([block](int cancelState) {
    if (unmanaged())
      free(block);
    else
      releaseReporting(g_heap, block, cancelState);
  });
}

void krFreeByHeap(KrHeap* heap, void* block) {
  if (heap == nullptr) return;
  kr::uncancelledIfAsynchronous([=](int cancelState) { releaseReporting(heap, block, cancelState); });
}

int krMemGetType(size_t size) { return unmanaged() ? KR_MEM_NO_CLASS : classOf(size); }

size_t krMemGetMaxSize() { return classSizes[KR_MEM_CLASSES - 1]; }

int krMemGetDebug() {
  return kr::uncancelledIfAsynchronous([] {
    if (unmanaged()) return 0;
    const HeapHeld held(g_heap, getDebugPlace);
    return g_heap->debug;
  });
}

void krMemSetDebug(int flag) {
  kr::uncancelledIfAsynchronous([flag] {
    if (unmanaged()) return;
    const HeapHeld held(g_heap, setDebugPlace);
    g_heap->debug = flag;
  });
}

void krMemEnableWatch() {
  kr::uncancelledIfAsynchronous([] {
    if (unmanaged()) return;
    const HeapHeld held(g_heap, enableWatchPlace);
    if (g_heap->watch != 0) return;
    g_heap->watch = 1;
    g_heap->highestSlot = -1;
    std::fill(std::begin(g_heap->trackedIds), std::end(g_heap->trackedIds), 0);
    std::fill(std::begin(g_heap->trackedBytes), std::end(g_heap->trackedBytes), 0);
  });
}

void krMemTrackNewUsage(KrHeap* heap, KrThreadId tid, int32_t bytes) {
  if (heap == nullptr) return;
  kr::uncancelledIfAsynchronous([=](int cancelState) {
    if (!trackNewUsage(heap, tid, bytes)) kr::say(cancelState, stdout, tooManyThreads);
  });
}
