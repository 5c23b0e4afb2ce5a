#ifndef TEV_MESSAGING_QUEUEORIGIN_H
#define TEV_MESSAGING_QUEUEORIGIN_H

/// How an endpoint came by its queue.
enum class QueueOrigin {
  none,     ///< it has none
  keyed,    ///< made with its key, or found under it
  replaced, ///< made with its key, in place of another user's
  unkeyed,  ///< made without a key: none was given (IPC_PRIVATE), or another user's queue has it
};

#endif
