#include "tests/Threads.h"

#include "platform/krMem.h"

#include <cstdlib>
#include <cstring>
#include <vector>

namespace {

uint32_t word(const void* block, int offset) {
  uint32_t value;
  memcpy(&value, static_cast<const char*>(block) - 16 + offset, sizeof value);
  return value;
}

unsigned headerOf(const void* block) { return static_cast<unsigned>(reinterpret_cast<uintptr_t>(block) - 16); }
std::string invalid(const void* block) {
  return format("krFree - Delete invalid block %08X (Task=)\n", headerOf(block));
}
std::string deleted(const void* block) {
  return format("krFree - Block %08X already deleted (Creator=) (Deleted by=) (CurrentTask=)\n", headerOf(block));
}

/// An address the compiler cannot follow, for releases that it would rightly object to.
void* hidden(void* block) {
  void* volatile copy = block;
  return copy;
}

} // namespace

TEST(Heap, IsUnmanagedUnlessAskedOtherwise) {
  auto* const block = static_cast<char*>(krMalloc(300));
  EXPECT_EQ(std::string(block, 300), std::string(300, '\0'));
  EXPECT_EQ(printed([] { krMemInit(1, 0); }), "krMemInit: already initialized, managHeap=0, clearMem=0\n");
  block[299] = 'x';
  auto* const moved = static_cast<char*>(krRealloc(block, 30'000));
  EXPECT_EQ(moved[299], 'x');
  krFree(moved);
  krMemSetDebug(7);
  krMemEnableWatch();
  EXPECT_EQ(krMemGetDebug(), 0);
  EXPECT_EQ(krMemGetType(1), 65535);
  EXPECT_EQ(krMemGetMaxSize(), 34816u);
}

TEST(Heap, ClassesHeadersClearingAndCounters) {
  krMemInit(1, 1);
  EXPECT_EQ(printed([] { krMemInit(0, 0); }), "krMemInit: already initialized, managHeap=1, clearMem=1\n");
  const struct {
    size_t size;
    int type;
  } table[] = {{0, 0},     {48, 0},    {49, 1},    {128, 1},   {129, 2},   {512, 2},   {513, 3},
               {1024, 3},  {1025, 4},  {2304, 4},  {2305, 5},  {4352, 5},  {4353, 6},  {10240, 6},
               {10241, 7}, {18432, 7}, {18433, 8}, {26624, 8}, {26625, 9}, {34816, 9}, {34817, 65535}};
  const auto self = static_cast<uint32_t>(krThreadIdSelf());
  for (const auto& [size, type] : table) {
    SCOPED_TRACE(size);
    const bool large = type == 65535;
    EXPECT_EQ(krMemGetType(size), type);
    void* block = nullptr;
    EXPECT_EQ(printed([&, bytes = size] { block = krZalloc(bytes); }),
              size == 0 ? "krMallocByHeap - Zero alloc (Task=)\n" : "");
    EXPECT_EQ(reinterpret_cast<uintptr_t>(block) % alignof(std::max_align_t), 0u);
    const size_t usable = large ? size : g_heap->classSizes[type];
    EXPECT_EQ(std::string(static_cast<char*>(block), usable), std::string(usable, '\0'));
    memset(block, 0xA5, usable);
    EXPECT_EQ(word(block, 0) & 0xFFFF, 0x4D34u);
    EXPECT_EQ(word(block, 4), large ? 0u : 0x80000000u + static_cast<uint32_t>(type));
    EXPECT_EQ(word(block, 8), self);
    EXPECT_EQ(word(block, 12), 0u);
    EXPECT_EQ(large ? g_heap->largeInUse : g_heap->inUse[type], 1u);
    krFree(block);
    EXPECT_EQ(large ? g_heap->largeInUse : g_heap->inUse[type], 0u);
    if (large) continue;
    EXPECT_EQ(word(block, 4), static_cast<uint32_t>(type));
    EXPECT_EQ(word(block, 12), self);
    EXPECT_EQ(g_heap->obtained[type], 1u); // the second request of the class got the first one's block
    EXPECT_EQ(g_heap->largest[type], size);
  }
  EXPECT_EQ(g_heap->smallest[9], 26625u);
  EXPECT_EQ(g_heap->requestedBytes[9], 26625u + 34816u);
  EXPECT_EQ(g_heap->allocations[9], 2u);
  EXPECT_EQ(g_heap->largeAllocations, 1u);
  EXPECT_EQ(g_heap->largeBytes, 34817u);
}

TEST(Heap, DoubleReleaseIsReportedAndHarmless) {
  krMemInit(1, 0);
  for (int type = 0; type < 10; ++type) {
    const size_t size = g_heap->classSizes[type];
    void *const a = krMalloc(size), *const b = krMalloc(size);
    krFree(a);
    krFree(b);
    for (void* const block : {a, b, a})
      EXPECT_EQ(printed([&] { krFree(hidden(block)); }), deleted(block)) << type;
    EXPECT_EQ(krMalloc(size), b); // last released, first reused
    EXPECT_EQ(krMalloc(size), a);
    void* const c = krMalloc(size);
    EXPECT_NE(c, a);
    EXPECT_NE(c, b);
    EXPECT_EQ(g_heap->inUse[type], 3u);
    for (void* const block : {a, b, c})
      krFree(block);
  }
  auto* const block = static_cast<char*>(krMalloc(48));
  const uint32_t classTen = 0x8000000A;
  memcpy(block - 12, &classTen, sizeof classTen);
  EXPECT_EQ(printed([&] { krFree(block); }), "krFree - BlockSize too large (10 >= 10) (CurrentTask=)\n");
  EXPECT_EQ(g_heap->inUse[0], 1u);
  EXPECT_NE(g_heap->freeLists[0], block - 16);
  free(block - 16);
}

TEST(Heap, ForeignAddressesAreReported) {
  krMemInit(1, 0);
  alignas(16) char buffer[64] = {};
  void* const fromSystem = malloc(48);
  for (void* const address : {static_cast<void*>(buffer + 16), static_cast<void*>(buffer + 17), fromSystem,
                              reinterpret_cast<void*>(uintptr_t{8})}) {
    EXPECT_EQ(printed([&] { krFree(hidden(address)); }), invalid(address));
    void* fresh = nullptr;
    EXPECT_EQ(printed([&] { fresh = krRealloc(hidden(address), 100); }), invalid(address));
    EXPECT_EQ(word(fresh, 4), 0x80000001u);
    krFree(fresh);
    EXPECT_EQ(printed([&] { krFree(krRealloc(hidden(fresh), 48)); }), deleted(fresh));
  }
  free(fromSystem);
  EXPECT_EQ(printed([] { krFreeByHeap(g_heap, nullptr); }), "krFree(NULL) - Task=\n");
  krFree(nullptr);
}

// The system takes the memory of most of these back at once, header and all.
TEST(Heap, ASecondReleaseOfALargeBlockIsReported) {
  krMemInit(1, 0);
  std::vector<void*> blocks(600);
  for (size_t i = 0; i < blocks.size(); ++i)
    blocks[i] = krMalloc(40'000 + 1000 * i);
  for (const size_t first : {0u, 1u})
    for (size_t i = first; i < blocks.size(); i += 2)
      krFree(blocks[i]);
  EXPECT_EQ(g_heap->largeInUse, 0u);
  for (void* const block : blocks) {
    EXPECT_EQ(printed([&] { krFree(hidden(block)); }), invalid(block));
    EXPECT_EQ(printed([&] { krFree(krRealloc(hidden(block), 48)); }), invalid(block));
  }
}

TEST(Heap, SizesNearTheLargestFail) {
  krMemInit(1, 0);
  for (const size_t size : {SIZE_MAX, SIZE_MAX - 15, SIZE_MAX - 16, SIZE_MAX / 2 + 1}) {
    for (const size_t old : {size_t{0}, size_t{10}, size_t{40'000}}) {
      void* const block = old != 0 ? krMalloc(old) : nullptr; // released, although there is no new one
      errno = 0;
      EXPECT_EQ(printed([&] { EXPECT_EQ(krRealloc(block, size), nullptr); }), "krMem.krMallocByHeap - Error (Task=)\n");
      EXPECT_EQ(errno, ENOMEM);
    }
    EXPECT_EQ(g_heap->inUse[0], 0u);
    EXPECT_EQ(g_heap->largeInUse, 0u);
  }
  EXPECT_EQ(g_heap->largeBytes, 4 * 40'000u);
}

TEST(Heap, WatchingCountsPooledBytesPerThread) {
  krMemInit(1, 0);
  krMemSetDebug(7);
  EXPECT_EQ(krMemGetDebug(), 7);
  void* const before = krMalloc(512);
  krMemEnableWatch();
  krFree(krMalloc(40'000)); // large: not counted
  EXPECT_EQ(g_heap->highestSlot, -1);
  void* const block = krMalloc(48);
  krMemEnableWatch(); // already on: changes nothing
  EXPECT_EQ(g_heap->trackedIds[0], static_cast<uint32_t>(krThreadIdSelf()));
  EXPECT_EQ(g_heap->trackedBytes[0], 64);
  std::thread([&] { krFree(block); }).join(); // counts for the creator, whoever releases
  EXPECT_EQ(g_heap->trackedBytes[0], 0);
  EXPECT_EQ(g_heap->highestSlot, 0);
  EXPECT_EQ(printed([&] { krFree(before); }), "krMemTrackDeleteUsage - usage < 0 for , deleting task was ");
  EXPECT_EQ(g_heap->trackedBytes[0], -528);

  std::vector<std::thread> threads(200);
  std::atomic<int> done{0};
  EXPECT_EQ(printed([&] {
              for (auto& thread : threads)
                thread = std::thread([&] {
                  krFree(krMalloc(600));
                  ++done;
                  waitUntil([&] { return done == 200; }); // keeps its id taken
                });
              for (auto& thread : threads)
                thread.join();
            }),
            "krMemTrackNewUsage -Exceeded thread tracking count");
  EXPECT_EQ(g_heap->highestSlot, 199);
}
