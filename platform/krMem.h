// The tracked heap, from which all objects of the library come.
//
// It runs in one of two modes, fixed by the first krMemInit (or, without one, by the first other call, which chooses
// unmanaged):
//  - unmanaged: every call goes to the system allocator, and new blocks are zero-filled;
//  - managed: blocks carry a 16-byte header in front of the address handed out. Requests of up to 34816 bytes are
//    served from ten size classes whose released blocks are kept for reuse, last released first; larger ones come from
//    the system and return to it. Counters are kept, and misuse of krFree is reported on standard output and does no
//    harm.
//
// Blocks are aligned like those of malloc. All calls are safe from any thread, also from one that may be cancelled; a
// managed operation takes the heap mutex. Cancellation is off meanwhile; a thread whose report the console does not
// take can be cancelled, and leaves no block behind. Texts name threads by krThreadName and print the low 32 bits of
// addresses.
#ifndef TEV_PLATFORM_KRMEM_H
#define TEV_PLATFORM_KRMEM_H

#include "platform/krThreadId.h"

#include <atomic>
#include <cstddef>
#include <cstdint>

struct KrMutex;

constexpr int KR_MEM_CLASSES = 10;
constexpr int KR_MEM_NO_CLASS = 65535; ///< the class of a large block
constexpr int KR_MEM_TRACKED_THREADS = 200;

/// State of the managed heap: for reading, and consistent only under `mutex` or while no other thread allocates.
struct KrHeap {
  uint32_t classSizes[KR_MEM_CLASSES]; ///< usable bytes of a block of the class
  void* freeLists[KR_MEM_CLASSES];     ///< released blocks, newest first
  uint16_t classCount;
  KrMutex* mutex;
  int debug;                               ///< krMemSetDebug; means nothing to the heap
  uint32_t obtained[KR_MEM_CLASSES];       ///< blocks obtained from the system
  uint32_t smallest[KR_MEM_CLASSES];       ///< smallest requested size; 0 until the first request
  uint32_t largest[KR_MEM_CLASSES];        ///< largest requested size
  uint64_t requestedBytes[KR_MEM_CLASSES]; ///< sum of the requested sizes
  uint32_t allocations[KR_MEM_CLASSES];
  uint32_t inUse[KR_MEM_CLASSES];
  uint32_t largeInUse;
  uint32_t largeAllocations;
  uint64_t largeBytes;                          ///< sum of the requested sizes
  uint32_t trackedIds[KR_MEM_TRACKED_THREADS];  ///< low 32 bits of thread ids; 0 in a free slot
  int64_t trackedBytes[KR_MEM_TRACKED_THREADS]; ///< pooled bytes the thread allocated and nobody released yet
  int watch;                                    ///< 1 from krMemEnableWatch on
  int highestSlot;                              ///< highest tracking slot in use, -1 for none
};

extern std::atomic<int> g_manageHeap;          ///< 1 in managed mode
extern std::atomic<int> g_clearBlock;          ///< 1 when managed blocks are zero-filled before they are handed out
extern std::atomic<int> g_iAlreadyInitialized; ///< 1 once the mode is fixed
extern KrHeap* g_heap;                         ///< null in unmanaged mode

/// Fixes the mode. A later call changes nothing and prints the mode in force on standard output. When a managed heap
/// cannot get its own state from the system, the heap is unmanaged.
void krMemInit(int manage, int clear);

/// A block of at least `size` bytes, the caller's until krFree; null with errno ENOMEM when there is no memory.
/// Zero-filled when unmanaged or clearing. A size of 0 gives a block too (managed, with a line on standard output).
void* krMalloc(size_t size);

/// The same as krMalloc: in managed mode without clearing the block is NOT zero-filled.
void* krZalloc(size_t size);

/// Grows or shrinks a block; returns its address, which may be a new one, or null. Contents are kept up to the smaller
/// of both sizes. A null block is a krMalloc, a size of 0 a krFree that returns null. Managed: a block that still fits
/// its class stays where it is; when there is no memory for a new one, the old block is released as well (unlike the
/// system's realloc, which serves unmanaged mode). An address that is no block in use is reported like a wrong krFree
/// and gets a fresh block without its contents.
void* krRealloc(void* block, size_t size);

/// Releases a block. Null does nothing. Managed: an address that did not come from krMalloc, and a block released
/// before, are reported and left alone, for any address and size.
void krFree(void* block);

/// krFree on a given heap, g_heap. Reports also a null block. A null heap does nothing.
void krFreeByHeap(KrHeap* heap, void* block);

/// Index of the class that serves `size`; KR_MEM_NO_CLASS when none does and in unmanaged mode.
int krMemGetType(size_t size);

/// The largest size served from a class: 34816.
size_t krMemGetMaxSize();

/// The debug flag, a number that is only kept. Unmanaged: reads as 0, and setting it does nothing.
int krMemGetDebug();
void krMemSetDebug(int flag);

/// Starts counting, per allocating thread, the pooled bytes in use (class size and header). Managed mode only.
void krMemEnableWatch();

/// Adds to a thread's count. The 201st distinct thread is not counted, with a line on standard output. Done by every
/// pooled allocation while watching; a caller of its own holds the heap's mutex if other threads allocate.
void krMemTrackNewUsage(KrHeap* heap, KrThreadId tid, int32_t bytes);

#endif
