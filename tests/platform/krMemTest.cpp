#include "platform/krMem.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <thread>
#include <vector>

namespace {

using testing::internal::CaptureStdout;
using testing::internal::GetCapturedStdout;

const struct {
  size_t size;
  int type;
} boundaries[] = {{0, 0},     {1, 0},     {48, 0},    {49, 1},        {128, 1},         {129, 2},
                  {512, 2},   {513, 3},   {1024, 3},  {1025, 4},      {2304, 4},        {2305, 5},
                  {4352, 5},  {4353, 6},  {10240, 6}, {10241, 7},     {18432, 7},       {18433, 8},
                  {26624, 8}, {26625, 9}, {34816, 9}, {34817, 65535}, {SIZE_MAX, 65535}};

uint32_t word(const void* block, int offset) {
  uint32_t value;
  memcpy(&value, static_cast<const char*>(block) - 16 + offset, sizeof value);
  return value;
}

std::string headerAddress(const void* block) {
  char text[16];
  (void)snprintf(text, sizeof text, "%08X", static_cast<unsigned>(reinterpret_cast<uintptr_t>(block) - 16));
  return text;
}

std::string invalid(const void* block) {
  return "krFree - Delete invalid block " + headerAddress(block) + " (Task=)\n";
}
std::string deleted(const void* block) {
  return "krFree - Block " + headerAddress(block) + " already deleted (Creator=) (Deleted by=) (CurrentTask=)\n";
}

template <class Work>
std::string printed(Work work) {
  CaptureStdout();
  work();
  return GetCapturedStdout();
}

/// The address the compiler cannot follow, for releases that it would rightly object to.
void* hidden(void* block) {
  void* volatile copy = block;
  return copy;
}

} // namespace

TEST(Heap, UnmanagedUnlessAskedOtherwise) {
  auto* const block = static_cast<char*>(krMalloc(300));
  ASSERT_NE(block, nullptr);
  for (int i = 0; i < 300; ++i)
    ASSERT_EQ(block[i], 0);
  EXPECT_EQ(printed([] { krMemInit(1, 0); }), "krMemInit: already initialized, managHeap=0, clearMem=0\n");
  block[299] = 'x';
  auto* const moved = static_cast<char*>(krRealloc(block, 30'000));
  EXPECT_EQ(moved[299], 'x');
  krFree(moved);
  krFree(nullptr);
  krMemSetDebug(7);
  EXPECT_EQ(krMemGetDebug(), 0);
  krMemEnableWatch();
  EXPECT_EQ(krMemGetType(1), 65535);
  EXPECT_EQ(krMemGetMaxSize(), 34816u);
  EXPECT_EQ(g_heap, nullptr);
}

TEST(Heap, ModeIsFixedOnce) {
  EXPECT_EQ(printed([] { krMemInit(1, 1); }), "");
  EXPECT_EQ(printed([] { krMemInit(0, 0); }), "krMemInit: already initialized, managHeap=1, clearMem=1\n");
  krMemSetDebug(7);
  EXPECT_EQ(krMemGetDebug(), 7);
}

TEST(Heap, ClassesHeadersAndCounters) {
  krMemInit(1, 0);
  for (const auto& row : boundaries) {
    SCOPED_TRACE(row.size);
    EXPECT_EQ(krMemGetType(row.size), row.type);
    if (row.size == SIZE_MAX) continue;
    void* block = nullptr;
    EXPECT_EQ(printed([&] { block = krZalloc(row.size); }),
              row.size == 0 ? "krMallocByHeap - Zero alloc (Task=)\n" : "");
    ASSERT_NE(block, nullptr);
    EXPECT_EQ(reinterpret_cast<uintptr_t>(block) % alignof(std::max_align_t), 0u);
    memset(block, 0xA5, row.type == 65535 ? row.size : g_heap->classSizes[row.type]);
    EXPECT_EQ(word(block, 0) & 0xFFFF, 0x4D34u);
    EXPECT_EQ(word(block, 4), row.type == 65535 ? 0u : 0x80000000u + static_cast<uint32_t>(row.type));
    EXPECT_EQ(word(block, 8), static_cast<uint32_t>(krThreadIdSelf()));
    EXPECT_EQ(word(block, 12), 0u);
    krFree(block);
    if (row.type == 65535) continue;
    EXPECT_EQ(word(block, 0) & 0xFFFF, 0x4D34u);
    EXPECT_EQ(word(block, 4), static_cast<uint32_t>(row.type));
    EXPECT_EQ(word(block, 12), static_cast<uint32_t>(krThreadIdSelf()));
    EXPECT_EQ(g_heap->inUse[row.type], 0u);
    EXPECT_EQ(g_heap->obtained[row.type], 1u); // the second request of the class got the first one's block
    EXPECT_EQ(g_heap->largest[row.type], row.size);
  }
  EXPECT_EQ(g_heap->classCount, 10);
  EXPECT_EQ(g_heap->smallest[0], 0u);
  EXPECT_EQ(g_heap->smallest[9], 26625u);
  EXPECT_EQ(g_heap->requestedBytes[9], 26625u + 34816u);
  EXPECT_EQ(g_heap->allocations[0], 3u);
  EXPECT_EQ(g_heap->allocations[9], 2u);
  EXPECT_EQ(g_heap->largeInUse, 0u);
  EXPECT_EQ(g_heap->largeAllocations, 1u);
  EXPECT_EQ(g_heap->largeBytes, 34817u);
}

TEST(Heap, LastReleasedIsFirstReused) {
  krMemInit(1, 0);
  void* const a = krMalloc(500);
  void* const b = krMalloc(400);
  EXPECT_EQ(g_heap->inUse[2], 2u);
  krFree(a);
  krFree(b);
  EXPECT_EQ(krMalloc(130), b);
  EXPECT_EQ(krMalloc(512), a);
  EXPECT_EQ(g_heap->obtained[2], 2u);
  krFree(a);
  krFree(b);
}

TEST(Heap, ClearingCoversTheUsablePart) {
  krMemInit(1, 1);
  for (const size_t size : {size_t{1}, size_t{40'000}}) {
    const size_t usable = size == 1 ? 48 : size;
    for (int round = 0; round < 2; ++round) {
      auto* const block = static_cast<unsigned char*>(krMalloc(size));
      for (size_t i = 0; i < usable; ++i)
        ASSERT_EQ(block[i], 0) << i;
      memset(block, 0xFF, usable);
      krFree(block);
    }
  }
}

TEST(Heap, DoubleReleaseOfEveryClassIsReportedAndHarmless) {
  krMemInit(1, 0);
  for (int type = 0; type < 10; ++type) {
    const size_t size = g_heap->classSizes[type];
    void* const a = krMalloc(size);
    void* const b = krMalloc(size);
    krFree(a);
    krFree(b);
    for (void* const block : {a, b, a})
      EXPECT_EQ(printed([&] { krFree(hidden(block)); }), deleted(block)) << type;
    EXPECT_EQ(krMalloc(size), b);
    EXPECT_EQ(krMalloc(size), a);
    void* const c = krMalloc(size);
    EXPECT_TRUE(c != a && c != b);
    EXPECT_EQ(g_heap->inUse[type], 3u);
    for (void* const block : {a, b, c})
      krFree(block);
  }
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
  }
  free(fromSystem);
  void* const large = krMalloc(40'000);
  krFree(large);
  EXPECT_EQ(printed([&] { krFree(hidden(large)); }), invalid(large));
  EXPECT_EQ(g_heap->largeInUse, 0u);
  EXPECT_EQ(printed([] { krFreeByHeap(g_heap, nullptr); }), "krFree(NULL) - Task=\n");
  krFreeByHeap(nullptr, buffer);
}

TEST(Heap, BlockOfNoClassStaysOutOfTheLists) {
  krMemInit(1, 0);
  auto* const block = static_cast<char*>(krMalloc(48));
  const uint32_t classTen = 0x8000000A;
  memcpy(block - 12, &classTen, sizeof classTen);
  EXPECT_EQ(printed([&] { krFree(block); }), "krFree - BlockSize too large (10 >= 10) (CurrentTask=)\n");
  EXPECT_EQ(printed([&] { krFree(hidden(block)); }), deleted(block));
  EXPECT_EQ(g_heap->inUse[0], 1u);
  for (const void* head : g_heap->freeLists)
    EXPECT_EQ(head, nullptr);
  free(block - 16);
}

TEST(Heap, ReallocKeepsWhatBothSizesHold) {
  krMemInit(1, 0);
  const struct {
    size_t from, to;
    bool stays;
  } table[] = {{48, 1, true},       {100, 49, true},         {100, 128, true},        {100, 20, true},
               {48, 49, false},     {100, 34'816, false},    {100, 34'817, false},    {34'816, 300'000, false},
               {40'000, 10, false}, {40'000, 60'000, false}, {400'000, 40'000, false}};
  for (const auto& row : table) {
    SCOPED_TRACE(testing::Message() << row.from << " to " << row.to);
    auto* const block = static_cast<unsigned char*>(krMalloc(row.from));
    for (size_t i = 0; i < row.from; ++i)
      block[i] = static_cast<unsigned char>(i % 251);
    auto* const moved = static_cast<unsigned char*>(krRealloc(block, row.to));
    ASSERT_NE(moved, nullptr);
    EXPECT_EQ(moved == block, row.stays);
    for (size_t i = 0; i < std::min(row.from, row.to); ++i)
      ASSERT_EQ(moved[i], i % 251) << i;
    krFree(moved);
    for (const uint32_t inUse : g_heap->inUse)
      EXPECT_EQ(inUse, 0u);
    EXPECT_EQ(g_heap->largeInUse, 0u);
  }
  EXPECT_EQ(krRealloc(krMalloc(5), 0), nullptr);
  void* const fresh = krRealloc(nullptr, 5);
  krFree(fresh);
  void* other = nullptr;
  EXPECT_EQ(printed([&] { other = krRealloc(hidden(fresh), 200); }), deleted(fresh));
  krFree(other);
  EXPECT_EQ(g_heap->inUse[0], 0u);
}

TEST(Heap, SizesNearTheLargestFail) {
  krMemInit(1, 0);
  const std::string error = "krMem.krMallocByHeap - Error (Task=)\n";
  for (const size_t size : {SIZE_MAX, SIZE_MAX - 15, SIZE_MAX - 16, SIZE_MAX / 2 + 1}) {
    errno = 0;
    EXPECT_EQ(printed([&] { EXPECT_EQ(krMalloc(size), nullptr); }), error);
    EXPECT_EQ(errno, ENOMEM);
    for (const size_t old : {size_t{10}, size_t{40'000}}) {
      void* const block = krMalloc(old);
      EXPECT_EQ(printed([&] { EXPECT_EQ(krRealloc(block, size), nullptr); }), error);
    }
    EXPECT_EQ(g_heap->inUse[0] + g_heap->largeInUse, 0u);
  }
  EXPECT_EQ(g_heap->largeBytes, 40'000u * g_heap->largeAllocations);
}

TEST(Heap, WatchingCountsPooledBytesPerThread) {
  krMemInit(1, 0);
  void* const before = krMalloc(512);
  krMemEnableWatch();
  EXPECT_EQ(g_heap->highestSlot, -1);
  krFree(krMalloc(40'000)); // large: not counted
  EXPECT_EQ(g_heap->highestSlot, -1);
  krFree(krMalloc(512)); // the thread's first slot, balanced
  void* const block = krMalloc(48);
  krMemEnableWatch(); // already on: changes nothing
  ASSERT_EQ(g_heap->highestSlot, 0);
  EXPECT_EQ(g_heap->trackedIds[0], static_cast<uint32_t>(krThreadIdSelf()));
  EXPECT_EQ(g_heap->trackedBytes[0], 64);
  std::thread([&] { krFree(block); }).join(); // counts for the creator, whoever releases
  EXPECT_EQ(g_heap->trackedBytes[0], 0);
  EXPECT_EQ(g_heap->highestSlot, 0);
  EXPECT_EQ(printed([&] { krFree(before); }), "krMemTrackDeleteUsage - usage < 0 for , deleting task was ");
  EXPECT_EQ(g_heap->trackedBytes[0], -528);
  krMemTrackNewUsage(nullptr, krThreadIdSelf(), 1);
}

TEST(Heap, TwoHundredThreadsAreWatched) {
  krMemInit(1, 0);
  krMemEnableWatch();
  std::vector<std::thread> threads;
  std::atomic<bool> open{false};
  std::atomic<int> done{0};
  const std::string text = printed([&] {
    for (int i = 0; i < 201; ++i)
      threads.emplace_back([&] {
        krFree(krMalloc(600));
        ++done;
        while (!open)
          krThreadSuspend(5); // keeps its id taken
      });
    while (done != 201)
      krThreadSuspend(1);
    open = true;
    for (auto& thread : threads)
      thread.join();
  });
  EXPECT_EQ(text, "krMemTrackNewUsage -Exceeded thread tracking count");
  EXPECT_EQ(g_heap->highestSlot, 199);
  for (int i = 0; i < 200; ++i)
    EXPECT_EQ(g_heap->trackedBytes[i], 0);
  EXPECT_EQ(g_heap->allocations[3], 201u);
}
