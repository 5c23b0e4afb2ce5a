// A task in another process.
#ifndef TEV_MESSAGING_PROXYCOMMOBJ_H
#define TEV_MESSAGING_PROXYCOMMOBJ_H

#include "messaging/MsgQOutStream.h"

class MsgObj;

/// Stands for a task, bound to the id of its queue. Lives on the stack for the length of one command.
class ProxyCommObj {
public:
  /// Binds to the task of that name: one that begins with "tCli" to the local task "tCliAppTask", the services of the
  /// appliance to their fixed queue ids, any other name to 0. Tells services apart by their first 12 characters.
  explicit ProxyCommObj(const char* taskName);

  /// Binds to the queue of `queue`.
  explicit ProxyCommObj(MsgQOutStream& queue);

  virtual ~ProxyCommObj() = default;

  /// The bound queue id, which is the task's id.
  unsigned long Tid() const { return static_cast<unsigned long>(_queue.GetMsgQId()); }

  /// Writes `message`, which stays the caller's and may be null, to the task's queue. Returns 0.
  virtual int Receive(MsgObj* message);

private:
  MsgQOutStream _queue;
};

#endif
