// Sequences of calls on the managed heap: blocks keep their contents, released ones are used again, misuse is reported
// and harmless, and a system without memory is survived. After each call the heap's counters agree with the model.
#include "fuzz/Target.h"

#include "platform/krMem.h"
#include "trial/SystemCalls.h"

#include <algorithm>
#include <cstring>
#include <functional>
#include <map>
#include <set>

namespace {

std::string printed;                      // on standard output since the last look
std::set<char*> released[KR_MEM_CLASSES]; // blocks that the heap keeps, for as long as the process runs
constexpr size_t header = 16;

class Heap : public SystemCalls {
public:
  explicit Heap(Input& in) : _in(in) { present = this; }
  ~Heap() {
    _noMemory = false;
    while (!_live.empty())
      release();
    check();
    present = _before;
  }

  void* malloc(size_t size) override { return _noMemory ? nullptr : SystemCalls::malloc(size); }

  void check() {
    std::map<int, uint32_t> inUse;
    for (const auto& [at, block] : _live)
      ++inUse[block.type];
    FUZZ_CHECK(g_heap->largeInUse == inUse[KR_MEM_NO_CLASS]);
    for (int type = 0; type < KR_MEM_CLASSES; ++type) {
      FUZZ_CHECK(g_heap->inUse[type] == inUse[type]);
      FUZZ_CHECK(g_heap->obtained[type] == inUse[type] + released[type].size());
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
    if (size != 0 && krMemGetType(size) <= block.type && block.type != KR_MEM_NO_CLASS) { // it fits
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
    leave(old);
    if (moved == nullptr) return;
    FUZZ_CHECK(holds(moved, std::min(block.size, size), block.fill));
    enter(moved, size);
  }

  void release() {
    if (_live.empty()) return;
    const auto block = any();
    FUZZ_CHECK(holds(block->first, block->second.size, block->second.fill));
    krFree(block->first);
    FUZZ_CHECK(printed.empty());
    leave(block);
  }

  void releaseAgain() {
    const auto& pool = released[_in.number(0, KR_MEM_CLASSES - 1)];
    if (pool.empty()) return;
    const auto last = static_cast<ptrdiff_t>(std::min<size_t>(pool.size(), 10)) - 1;
    misuse(*std::next(pool.begin(), _in.number<ptrdiff_t>(0, last)), "already deleted");
  }

  void releaseForeign() {
    static char foreign[64];
    char* address = foreign + header + _in.number(0, 32);
    if (_in.once()) address = reinterpret_cast<char*>(_in.number<uintptr_t>(1, 4095));
    if (!_live.empty() && _in.once()) address = any()->first + _in.number(header, 3 * header);
    misuse(address, "Delete invalid block");
  }

  void watch() { krMemEnableWatch(); }

private:
  struct Block {
    size_t size; ///< as requested
    int type;
    char fill;
  };
  using Blocks = std::map<char*, Block>;

  static bool holds(const char* block, size_t size, char fill) {
    return std::all_of(block, block + size, [fill](char c) { return c == fill; });
  }

  size_t pickSize() {
    if (_in.once()) return _in.number<size_t>(0, 40000);
    return g_heap->classSizes[_in.number(0, KR_MEM_CLASSES - 1)] + _in.number<size_t>(0, 2) - 1;
  }

  Blocks::iterator any() {
    return std::next(_live.begin(), _in.number<ptrdiff_t>(0, static_cast<ptrdiff_t>(_live.size()) - 1));
  }

  /// A call that returns a block of that size: a released one, if there is any. Null without memory.
  char* obtain(size_t size, const std::function<void*()>& call) {
    static std::set<char*> none;
    const int type = krMemGetType(size);
    std::set<char*>& pool = type == KR_MEM_NO_CLASS ? none : released[type];
    errno = 0;
    auto* const block = static_cast<char*>(call());
    FUZZ_CHECK((block == nullptr) == (_noMemory && pool.empty()));
    FUZZ_CHECK(pool.empty() || pool.erase(block) == 1);
    return block;
  }

  void enter(char* at, size_t size) {
    FUZZ_CHECK(reinterpret_cast<uintptr_t>(at) % alignof(max_align_t) == 0);
    // Not the bytes of the magic number, of which a forged header would need both.
    const Block block = {size, krMemGetType(size), static_cast<char>(0x80 | (_counter++ & 0x3f))};
    memset(at, block.fill, size);
    _live[at] = block;
  }

  void leave(Blocks::iterator block) {
    if (block->second.type != KR_MEM_NO_CLASS) released[block->second.type].insert(block->first);
    _live.erase(block);
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
  Blocks _live;
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
