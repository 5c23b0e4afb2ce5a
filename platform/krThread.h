// Real-time threads.
#ifndef TEV_PLATFORM_KRTHREAD_H
#define TEV_PLATFORM_KRTHREAD_H

#include "platform/krTime.h"

#include <cstddef>
#include <cstdint>

/// What a thread runs: ten word-sized arguments, a result that is dropped.
using KrThreadEntry = int (*)(intptr_t, intptr_t, intptr_t, intptr_t, intptr_t, intptr_t, intptr_t, intptr_t, intptr_t,
                              intptr_t);

KrThreadId krThreadSpawn(const char* name, int priority, int stackSize, KrThreadEntry entry, intptr_t a1, intptr_t a2,
                         intptr_t a3, intptr_t a4, intptr_t a5, intptr_t a6, intptr_t a7, intptr_t a8, intptr_t a9,
                         intptr_t a10);
KrThreadId krThreadSpawn_with_attr(const char* name, int priority, const pthread_attr_t* attributes,
                                   KrThreadEntry entry, intptr_t a1, intptr_t a2, intptr_t a3, intptr_t a4, intptr_t a5,
                                   intptr_t a6, intptr_t a7, intptr_t a8, intptr_t a9, intptr_t a10);
KrThreadId krThreadSpawn_joinable(const char* name, int priority, int stackSize, KrThreadEntry entry, intptr_t a1,
                                  intptr_t a2, intptr_t a3, intptr_t a4, intptr_t a5, intptr_t a6, intptr_t a7,
                                  intptr_t a8, intptr_t a9, intptr_t a10);
int krThreadSetPriority(KrThreadId tid, int priority);
int krThreadGetPriority(KrThreadId tid, int* priority);
int krThreadDelete(KrThreadId tid);
int krThreadJoin(KrThreadId tid, void** result);
int krThreadResume(KrThreadId tid);
int krThreadStackAvailable(KrThreadId tid);
void* linuxEntry(void* startBlock);

#endif
