#ifndef TEV_CTL_CALLTASK_H
#define TEV_CTL_CALLTASK_H

#include "platform/Descriptor.h"

#include <cstddef>

class MsgObj;

/// The sender of one request: a task of the appliance that has no thread, a queue that no other program has, for its
/// id, and the reply pipe of that id. A reply on it can only belong to that request.
///
/// The queue has a mode that no other program gives its queues, and the pipe is locked (flock) until its owner
/// ends. That distinguishes what a killed call left behind from what is in use.
class CallTask {
public:
  /// Makes queue and pipe, and guards them (Ending.h). isMade() is false if that fails, with errno.
  CallTask();

  /// Removes them.
  ~CallTask();

  CallTask(const CallTask&) = delete;
  CallTask& operator=(const CallTask&) = delete;

  bool isMade() const { return static_cast<bool>(_pipe); }

  /// Sends `request` from this task to the queue that it names. Returns 0 or msgsnd's errno. Waits while the queue is
  /// full.
  [[nodiscard]] int send(MsgObj& request) const;

  /// Waits for `size` bytes of a reply, as long as senders do. Returns 0; ETIMEDOUT if nothing came in time; EBADMSG if
  /// not all of it came; or an errno of the system.
  [[nodiscard]] int receive(void* reply, size_t size) const;

  /// Whether `reply`, which was received, is one with the message id `id` to this task.
  bool isReply(const MsgObj& reply, unsigned short id) const;

  /// Removes queues and pipes that calls of this user left behind when they were killed.
  static void removeLeftovers();

private:
  int _id = -1;
  kr::Descriptor _pipe;
};

#endif
