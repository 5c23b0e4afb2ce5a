// Sequences of calls on the managed heap: blocks keep their contents, released ones are used again, and a system
// without memory is survived. After each call the heap's counters agree with the model.
#include "fuzz/Target.h"

#include "platform/krMem.h"
#include "trial/SystemCalls.h"

#include <algorithm>
#include <cstring>
#include <functional>
#include <map>
#include <set>

namespace {

std::set<char*> released[KR_MEM_CLASSES]; // blocks that the heap keeps, for as long as the process runs

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
    _noMemory = _in.number(0, 15) == 15;
  }

  void allocate() {
    const size_t size = pickSize();
    g_clearBlock = _in.once() ? 1 : 0;
    char* const block = obtain(size, [size] { return krMalloc(size); });
    if (block == nullptr) return;
    FUZZ_CHECK(g_clearBlock == 0 || holds(block, size, 0));
    enter(block, size);
  }

  void reallocate() {
    if (_live.empty()) return;
    const auto old = any();
    const auto [at, block] = *old;
    const size_t size = pickSize();
    if (krMemGetType(size) <= block.type && block.type != KR_MEM_NO_CLASS) { // it fits
      FUZZ_CHECK(krRealloc(at, size) == at);
      FUZZ_CHECK(holds(at, std::min(block.size, size), block.fill));
      memset(at, block.fill, size);
      old->second.size = size;
      return;
    }
    char* const moved = obtain(size, [&, from = at] { return krRealloc(from, size); });
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
    leave(block);
  }

private:
  struct Block {
    size_t size; ///< as requested
    int type;
    char fill;
  };
  using Blocks = std::map<char*, Block>;

  static bool holds(const char* block, size_t size, char fill) {
    return size == 0 || (block[0] == fill && memcmp(block, block + 1, size - 1) == 0);
  }

  size_t pickSize() {
    if (_in.once()) return _in.number<size_t>(1, 40000);
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

  SystemCalls* const _before = present;
  Input& _in;
  bool _noMemory = false; // for the heap
  Blocks _live;
  unsigned _counter = 0;
};

} // namespace

static void start() {
  FUZZ_CHECK(freopen("/dev/null", "w", stdout) != nullptr); // for the heap's lines about missing memory
  krMemInit(1, 0);
}

static void fuzz(Input& in) {
  Heap heap(in);
  in.play(heap, {&Heap::allocate, &Heap::reallocate, &Heap::release});
}
