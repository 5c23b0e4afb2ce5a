// Sequences of calls on the managed heap: blocks are disjoint, keep their contents, come back newest first; misuse is
// reported and harmless; a system without memory is survived. After each call the heap's lists hold what is not in use.
#include "fuzz/Target.h"

#include "platform/krMem.h"
#include "trial/SystemCalls.h"

#include <algorithm>
#include <cstring>
#include <functional>
#include <map>

namespace {

std::string printed; // on standard output since the last look
constexpr size_t header = 16;

int classOf(size_t size) {
  const auto& sizes = g_heap->classSizes;
  return static_cast<int>(std::lower_bound(std::begin(sizes), std::end(sizes), size) - sizes);
}

/// The block of a class that was released before this one.
char* nextOf(const char* block) {
  char* next = nullptr;
  memcpy(&next, block, sizeof next);
  return next != nullptr ? next + header : nullptr;
}

/// The block of a class that was released last; null for none.
char* lastReleased(int type) {
  void* const last = type < KR_MEM_CLASSES ? g_heap->freeLists[type] : nullptr;
  return last != nullptr ? static_cast<char*>(last) + header : nullptr;
}

class Heap : public SystemCalls {
public:
  explicit Heap(Input& in) : _in(in) { present = this; }
  ~Heap() {
    _noMemory = false;
    while (!_live.empty()) {
      release();
      check();
    }
    present = _before;
  }

  void* malloc(size_t size) override { return _noMemory ? nullptr : SystemCalls::malloc(size); }

  void check() {
    size_t inUse[KR_MEM_CLASSES + 1] = {};
    for (const auto& [at, block] : _live)
      ++inUse[classOf(block.owned)];
    FUZZ_CHECK(g_heap->largeInUse == inUse[KR_MEM_CLASSES]);
    for (int i = 0; i < KR_MEM_CLASSES; ++i) {
      FUZZ_CHECK(g_heap->inUse[i] == inUse[i]);
      size_t released = g_heap->obtained[i] - inUse[i];
      for (const char* at = lastReleased(i); at != nullptr; at = nextOf(at))
        FUZZ_CHECK(released-- > 0);
      FUZZ_CHECK(released == 0);
    }
    printed.clear();
    _noMemory = _in.number(0, 15) == 15;
  }

  void allocate() {
    const size_t size = pickSize();
    g_clearBlock = _in.once() ? 1 : 0;
    char* const block = obtain(size, [&] { return _in.once() ? krMalloc(size) : krZalloc(size); });
    FUZZ_CHECK((printed.find("Zero alloc") != printed.npos) == (size == 0));
    FUZZ_CHECK((printed.find("krMallocByHeap - Error") != printed.npos) == (block == nullptr));
    FUZZ_CHECK(block != nullptr || errno == ENOMEM);
    FUZZ_CHECK(block == nullptr || g_clearBlock == 0 || holds(block, size, 0));
    if (block != nullptr) enter(block, size);
  }

  void reallocate() {
    if (_live.empty()) return;
    const auto old = any();
    const auto [at, block] = *old;
    FUZZ_CHECK(holds(at, block.size, block.fill));
    const size_t size = pickSize();
    if (size != 0 && classOf(block.owned) < KR_MEM_CLASSES && classOf(size) <= classOf(block.owned)) {
      FUZZ_CHECK(krRealloc(at, size) == at);
      memset(at, block.fill, size);
      old->second.size = size;
      return;
    }
    char* moved = nullptr;
    if (size == 0) {
      FUZZ_CHECK(krRealloc(at, 0) == nullptr);
    } else {
      moved = obtain(size, [&, from = at] { return krRealloc(from, size); });
    }
    _live.erase(old);
    if (moved == nullptr) return;
    FUZZ_CHECK(holds(moved, std::min(block.size, size), block.fill));
    enter(moved, size);
  }

  void release() {
    if (_live.empty()) return;
    const auto [at, block] = *any();
    FUZZ_CHECK(holds(at, block.size, block.fill));
    krFree(at);
    _live.erase(at);
    FUZZ_CHECK(printed.empty());
    const int type = classOf(block.owned);
    FUZZ_CHECK(type == KR_MEM_CLASSES || lastReleased(type) == at);
  }

  void releaseAgain() {
    char* block = lastReleased(_in.number(0, KR_MEM_CLASSES - 1));
    for (int i = _in.number(0, 9); i > 0 && block != nullptr && nextOf(block) != nullptr; --i)
      block = nextOf(block);
    if (block != nullptr) misuse(block, "already deleted");
  }

  void releaseForeign() {
    static char foreign[64];
    char* address = foreign + 16 + _in.number(0, 32);
    if (!_live.empty() && _in.once()) {
      const auto [at, block] = *any();
      const auto inside = _in.number<size_t>(0, block.size);
      if (inside < header) return;
      address = at + inside;
    } else if (_in.once()) {
      address = reinterpret_cast<char*>(_in.number<uintptr_t>(1, 4095));
    }
    misuse(address, "Delete invalid block");
  }

  void watch() { krMemEnableWatch(); }

private:
  struct Block {
    size_t size;  ///< as requested; a block that was shrunk in its place has a smaller one
    size_t owned; ///< the size that its class came from
    char fill;

    size_t room() const { return classOf(owned) < KR_MEM_CLASSES ? g_heap->classSizes[classOf(owned)] : owned; }
  };

  static bool holds(const char* block, size_t size, char fill) {
    return std::all_of(block, block + size, [fill](char c) { return c == fill; });
  }

  size_t pickSize() {
    constexpr size_t edges[] = {48, 128, 512, 1024, 2304, 4352, 10240, 18432, 26624, 34816};
    if (_in.once()) return _in.number<size_t>(0, 40000);
    return _in.PickValueInArray(edges) + _in.number<size_t>(0, 2) - 1;
  }

  std::map<char*, Block>::iterator any() {
    return std::next(_live.begin(), _in.number<ptrdiff_t>(0, static_cast<ptrdiff_t>(_live.size()) - 1));
  }

  /// A call that gives a block of that size: the one released last, or one of the system's. Null without memory.
  char* obtain(size_t size, const std::function<void*()>& call) {
    char* const released = lastReleased(classOf(size));
    errno = 0;
    auto* const block = static_cast<char*>(call());
    FUZZ_CHECK((block == nullptr) == (_noMemory && released == nullptr));
    FUZZ_CHECK(released == nullptr || block == released);
    return block;
  }

  void enter(char* at, size_t size) {
    FUZZ_CHECK(reinterpret_cast<uintptr_t>(at) % alignof(max_align_t) == 0);
    // Not the bytes of the magic number, of which a forged header would need both.
    const Block block = {size, size, static_cast<char>(0x80 | (_counter++ & 0x3f))};
    const auto after = _live.lower_bound(at);
    FUZZ_CHECK(after == _live.end() || at + block.room() + header <= after->first);
    FUZZ_CHECK(after == _live.begin() || std::prev(after)->first + std::prev(after)->second.room() + header <= at);
    memset(at, block.fill, size);
    _live[at] = block;
  }

  void misuse(void* address, const char* text) {
    const size_t size = pickSize();
    if (_in.once() || size == 0) {
      krFree(address);
    } else if (char* const fresh = obtain(size, [=] { return krRealloc(address, size); }); fresh != nullptr) {
      enter(fresh, size);
    }
    FUZZ_CHECK(printed.find(text) != printed.npos);
  }

  SystemCalls* const _before = present;
  Input& _in;
  bool _noMemory = false; // for the heap
  std::map<char*, Block> _live;
  unsigned _counter = 0;
};

} // namespace

static void start() {
  cookie_io_functions_t listener = {};
  listener.write = [](void*, const char* text, size_t size) {
    printed.append(text, size);
    return static_cast<ssize_t>(size);
  };
  stdout = fopencookie(nullptr, "w", listener);
  FUZZ_CHECK(stdout != nullptr && setvbuf(stdout, nullptr, _IONBF, 0) == 0);
  krMemInit(1, 0);
}

static void fuzz(Input& in) {
  Heap heap(in);
  in.play(heap, {&Heap::allocate, &Heap::allocate, &Heap::allocate, &Heap::reallocate, &Heap::reallocate,
                 &Heap::release, &Heap::release, &Heap::releaseAgain, &Heap::releaseForeign, &Heap::watch});
}
