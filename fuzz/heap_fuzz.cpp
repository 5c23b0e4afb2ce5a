// Sequences of calls on the managed heap beside a model: blocks are disjoint, keep their contents, come back newest
// first; misuse is told and harmless; a system without memory is survived. After each call all counters and lists of
// the heap are what the model says.
#include "fuzz/Check.h"

#include "platform/krMem.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fuzzer/FuzzedDataProvider.h>
#include <map>
#include <vector>

namespace {

bool noMemory = false; // for the heap
std::string told;      // on standard output since the last look
constexpr size_t header = 16;

} // namespace

// NOLINTBEGIN(bugprone-reserved-identifier): the linker's names
extern "C" void* __real_malloc(size_t size);
extern "C" void* __wrap_malloc(size_t size) { return noMemory ? nullptr : __real_malloc(size); }
// NOLINTEND(bugprone-reserved-identifier)

namespace {

int classOf(size_t size) {
  const auto& sizes = g_heap->classSizes;
  return static_cast<int>(std::lower_bound(std::begin(sizes), std::end(sizes), size) - sizes);
}

char* headerOf(void* block) { return static_cast<char*>(block) - header; }

void* next(void* listed) {
  void* link = nullptr;
  memcpy(&link, static_cast<char*>(listed) + header, sizeof link);
  return link;
}

/// The heap's own figures; the model changes a copy of them.
struct Figures {
  KrHeap heap = *g_heap;

  bool operator==(const Figures& other) const {
    const KrHeap &a = heap, &b = other.heap;
    const auto same = [](const auto& x, const auto& y) {
      return std::equal(std::begin(x), std::end(x), std::begin(y));
    };
    return same(a.freeLists, b.freeLists) && same(a.obtained, b.obtained) && same(a.smallest, b.smallest) &&
           same(a.largest, b.largest) && same(a.requestedBytes, b.requestedBytes) &&
           same(a.allocations, b.allocations) && same(a.inUse, b.inUse) && a.largeInUse == b.largeInUse &&
           a.largeAllocations == b.largeAllocations && a.largeBytes == b.largeBytes && a.debug == b.debug &&
           a.trackedBytes[0] == b.trackedBytes[0] && a.highestSlot == b.highestSlot;
  }

  void allocated(size_t size) {
    const int i = classOf(size);
    if (i == KR_MEM_CLASSES) {
      ++heap.largeInUse;
      ++heap.largeAllocations;
      heap.largeBytes += size;
      return;
    }
    if (heap.freeLists[i] != nullptr)
      heap.freeLists[i] = next(heap.freeLists[i]);
    else
      ++heap.obtained[i];
    const auto requested = static_cast<uint32_t>(size);
    if (heap.allocations[i] == 0 || requested < heap.smallest[i]) heap.smallest[i] = requested;
    heap.largest[i] = std::max(heap.largest[i], requested);
    heap.requestedBytes[i] += size;
    ++heap.allocations[i];
    ++heap.inUse[i];
    track(i, 1);
  }

  void released(void* block, size_t size) {
    const int i = classOf(size);
    if (i == KR_MEM_CLASSES) {
      --heap.largeInUse;
      return;
    }
    heap.freeLists[i] = headerOf(block);
    --heap.inUse[i];
    track(i, -1);
  }

private:
  void track(int i, int sign) {
    if (heap.watch == 0) return;
    heap.highestSlot = 0; // there is one thread
    heap.trackedBytes[0] += sign * static_cast<int64_t>(heap.classSizes[i] + header);
  }
};

class Model {
public:
  explicit Model(FuzzedDataProvider& data) : _data(data) {}

  void step() {
    told.clear();
    noMemory = _data.ConsumeIntegralInRange(0, 15) == 15;
    constexpr void (Model::*calls[])() = {
        &Model::allocate, &Model::allocate, &Model::allocate,     &Model::reallocate,     &Model::reallocate,
        &Model::release,  &Model::release,  &Model::releaseAgain, &Model::releaseForeign, &Model::setting};
    (this->*_data.PickValueInArray(calls))();
  }

  void end() {
    noMemory = false;
    told.clear();
    while (!_live.empty())
      release();
    for (int i = 0; i < KR_MEM_CLASSES; ++i)
      FUZZ_CHECK(listLength(i) == g_heap->obtained[i]);
  }

private:
  struct Block {
    size_t size;  ///< as requested; a block that was shrunk in its place has a smaller one
    size_t owned; ///< the size that its class came from
    char fill;
  };
  using Live = std::map<char*, Block>;

  size_t size() {
    constexpr size_t edges[] = {48, 128, 512, 1024, 2304, 4352, 10240, 18432, 26624, 34816};
    if (_data.ConsumeBool()) return _data.ConsumeIntegralInRange<size_t>(0, 40000);
    return _data.PickValueInArray(edges) + _data.ConsumeIntegralInRange<size_t>(0, 2) - 1;
  }

  Live::iterator any() {
    return std::next(_live.begin(),
                     _data.ConsumeIntegralInRange<ptrdiff_t>(0, static_cast<ptrdiff_t>(_live.size()) - 1));
  }

  static size_t listLength(int i) {
    size_t length = 0;
    for (void* at = g_heap->freeLists[i]; at != nullptr; at = next(at))
      FUZZ_CHECK(++length <= g_heap->obtained[i]);
    return length;
  }

  static void checkContents(Live::const_iterator block) {
    const auto& [at, about] = *block;
    const char fill = about.fill;
    FUZZ_CHECK(std::all_of(at, at + about.size, [fill](char c) { return c == fill; }));
  }

  void check(const Figures& expected) const {
    FUZZ_CHECK(Figures() == expected);
    for (int i = 0; i < KR_MEM_CLASSES; ++i)
      FUZZ_CHECK(listLength(i) == g_heap->obtained[i] - g_heap->inUse[i]);
  }

  /// Whether the next block of that size needs the system.
  static bool needsSystem(const Figures& figures, size_t size) {
    return classOf(size) == KR_MEM_CLASSES || figures.heap.freeLists[classOf(size)] == nullptr;
  }

  void enter(void* block, size_t size) {
    auto* const at = static_cast<char*>(block);
    FUZZ_CHECK(reinterpret_cast<uintptr_t>(at) % alignof(max_align_t) == 0);
    const int i = classOf(size);
    const size_t room = i < KR_MEM_CLASSES ? g_heap->classSizes[i] : size;
    const auto after = _live.lower_bound(at);
    FUZZ_CHECK(after == _live.end() || at + room + header <= after->first);
    if (after != _live.begin()) {
      const auto& [lower, about] = *std::prev(after);
      const int k = classOf(about.owned);
      FUZZ_CHECK(lower + (k < KR_MEM_CLASSES ? g_heap->classSizes[k] : about.owned) + header <= at);
    }
    // Not the bytes of the magic number, of which a forged header would need both.
    const char fill = static_cast<char>(0x80 | (_counter++ & 0x3f));
    memset(at, fill, size);
    _live[at] = {size, size, fill};
  }

  void allocate() {
    const size_t size = this->size();
    Figures figures;
    const bool fails = noMemory && needsSystem(figures, size);
    if (!fails) figures.allocated(size); // before the call, which takes the links of the lists away
    g_clearBlock = _data.ConsumeBool() ? 1 : 0;
    errno = 0;
    void* const block = _data.ConsumeBool() ? krMalloc(size) : krZalloc(size);
    FUZZ_CHECK((block == nullptr) == fails);
    FUZZ_CHECK((told.find("Zero alloc") != told.npos) == (size == 0));
    FUZZ_CHECK((told.find("krMallocByHeap - Error") != told.npos) == fails);
    if (fails) {
      FUZZ_CHECK(errno == ENOMEM);
      return check(figures);
    }
    if (g_clearBlock == 1) {
      const auto* const bytes = static_cast<const char*>(block);
      FUZZ_CHECK(std::all_of(bytes, bytes + size, [](char c) { return c == 0; }));
    }
    enter(block, size);
    check(figures);
  }

  void reallocate() {
    if (_live.empty()) return;
    const auto old = any();
    char* const at = old->first;
    const Block about = old->second;
    checkContents(old);
    const size_t size = this->size();
    Figures figures;
    const bool pooled = classOf(about.owned) < KR_MEM_CLASSES;
    const bool stays = size != 0 && pooled && classOf(size) <= classOf(about.owned);
    const bool fails = size != 0 && !stays && noMemory && needsSystem(figures, size);
    if (size != 0 && !stays && !fails) figures.allocated(size);
    auto* const moved = static_cast<char*>(krRealloc(at, size));
    FUZZ_CHECK((moved == nullptr) == (fails || size == 0));
    if (stays) {
      FUZZ_CHECK(moved == at);
      memset(at, about.fill, size);
      old->second.size = size;
      return check(figures);
    }
    _live.erase(old);
    if (moved != nullptr) {
      const size_t kept = std::min(about.size, size);
      FUZZ_CHECK(std::all_of(moved, moved + kept, [&](char c) { return c == about.fill; }));
      enter(moved, size);
    }
    figures.released(at, about.owned);
    check(figures);
  }

  void release() {
    if (_live.empty()) return;
    const auto block = any();
    checkContents(block);
    Figures figures;
    figures.released(block->first, block->second.owned);
    krFree(block->first);
    // The model's list ends in the block; the heap's goes on from there.
    _live.erase(block);
    FUZZ_CHECK(told.empty());
    check(figures);
  }

  void releaseAgain() {
    std::vector<void*> released;
    for (void* at : g_heap->freeLists)
      for (; at != nullptr; at = next(at))
        released.push_back(static_cast<char*>(at) + header);
    if (released.empty()) return;
    void* const block = released[_data.ConsumeIntegralInRange<size_t>(0, released.size() - 1)];
    misuse(block, "already deleted");
  }

  void releaseForeign() {
    static char nobodys[64];
    char* address = nobodys + 16 + _data.ConsumeIntegralInRange(0, 32);
    if (!_live.empty() && _data.ConsumeBool()) {
      const auto block = any();
      const size_t inside = _data.ConsumeIntegralInRange<size_t>(0, block->second.size);
      if (inside < header) return;
      address = block->first + inside;
    } else if (_data.ConsumeBool()) {
      address = reinterpret_cast<char*>(_data.ConsumeIntegralInRange<uintptr_t>(1, 4095));
    }
    misuse(address, "Delete invalid block");
  }

  void misuse(void* block, const char* text) {
    Figures figures;
    const size_t size = this->size();
    // A block of that size is what such a krRealloc gives; without memory it gives none.
    const bool gives = _data.ConsumeBool() && size != 0 && !(noMemory && needsSystem(figures, size));
    if (!gives) {
      krFree(block);
    } else {
      figures.allocated(size);
      void* const fresh = krRealloc(block, size);
      FUZZ_CHECK(fresh != nullptr);
      enter(fresh, size);
    }
    FUZZ_CHECK(told.find(text) != told.npos);
    check(figures);
  }

  void setting() {
    Figures figures;
    figures.heap.debug = _data.ConsumeIntegral<int>();
    krMemSetDebug(figures.heap.debug);
    FUZZ_CHECK(krMemGetDebug() == figures.heap.debug);
    if (_data.ConsumeBool() && figures.heap.watch == 0) {
      krMemEnableWatch();
      figures.heap.highestSlot = -1;
    }
    check(figures);
  }

  FuzzedDataProvider& _data;
  Live _live;
  unsigned _counter = 0;
};

void start() {
  cookie_io_functions_t listener = {};
  listener.write = [](void*, const char* text, size_t size) {
    told.append(text, size);
    return static_cast<ssize_t>(size);
  };
  stdout = fopencookie(nullptr, "w", listener);
  FUZZ_CHECK(stdout != nullptr && setvbuf(stdout, nullptr, _IONBF, 0) == 0);
  krMemInit(1, 0);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t size) {
  static const bool started = (start(), true);
  (void)started;
  FuzzedDataProvider data(bytes, size);
  Model model(data);
  while (data.remaining_bytes() > 0)
    model.step();
  model.end();
  return 0;
}
