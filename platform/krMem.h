// The tracked heap.
#ifndef TEV_PLATFORM_KRMEM_H
#define TEV_PLATFORM_KRMEM_H

#include "platform/krTime.h"

#include <cstddef>
#include <cstdint>

struct KrHeap;

void krMemInit(int manage, int clear);
void* krMalloc(size_t size);
void* krZalloc(size_t size);
void* krRealloc(void* block, size_t size);
void krFree(void* block);
void krFreeByHeap(KrHeap* heap, void* block);
int krMemGetType(size_t size);
size_t krMemGetMaxSize();
int krMemGetDebug();
void krMemSetDebug(int flag);
void krMemEnableWatch();
void krMemTrackNewUsage(KrHeap* heap, KrThreadId tid, int32_t bytes);

#endif
