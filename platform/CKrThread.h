// A thread that is an object.
#ifndef TEV_PLATFORM_CKRTHREAD_H
#define TEV_PLATFORM_CKRTHREAD_H

#include "platform/kr.h"
#include "platform/krLog.h"

/// Subclass it, supply run(), and start() it.
class CKrThread {
public:
  CKrThread();
  virtual ~CKrThread();
  virtual void run() = 0;

  void start(const char* name, int priority, int stackSize);
  void kill();
  int pause();
  int resume();
  const char* getName();
  int getPriority(int* priority);
  int setPriority(int priority);

private:
  static int entry(intptr_t object, intptr_t, intptr_t, intptr_t, intptr_t, intptr_t, intptr_t, intptr_t, intptr_t,
                   intptr_t);

  KrLogger* _logger;
  KrThreadId _tid;
};

#endif
