// System V message queues for 32-bit and 64-bit processes alike.
//
// The queue form of a message begins with four bytes that the kernel takes as its message type. The kernel's own type
// is a `long`; these two functions are the only place that knows how wide that is.
#ifndef TEV_MESSAGING_MSGQUEUE_H
#define TEV_MESSAGING_MSGQUEUE_H

#include "messaging/QueueOrigin.h"

#include <cstddef>
#include <sys/types.h>

constexpr size_t msgTypeSize = 4;  ///< bytes in front of the text of a queue form
constexpr size_t msgTextMax = 512; ///< longest text that is received

/// Sends the queue form in `buffer`: four type bytes, read as a native signed 32-bit number, and `textSize` (at most
/// msgTextMax) bytes of text. Blocks while the queue is full, and can be cancelled there as Blocking.h says. Returns 0,
/// or -1 with msgsnd's errno; EINVAL for a type that is not positive. Signals do not end the wait.
[[nodiscard]] int sendToQueue(int queueId, const void* buffer, size_t textSize);

/// Receives the next message of any type into `buffer`, which has room for msgTypeSize + msgTextMax bytes. Blocks while
/// the queue is empty; that is the one moment at which a thread that has cancellation disabled can be cancelled. What
/// the message does not fill of the buffer is zeroed. Returns the length of the text, or -1 with msgrcv's errno, in
/// which case the buffer is untouched.
[[nodiscard]] ssize_t receiveFromQueue(int queueId, void* buffer);

/// Makes or finds the queue with that key, mode 0660. With `ownOnly`, one that another user owns or created, or that is
/// open to more than its owner and group, is not used: it is removed, where that is permitted, or else a queue without
/// a key is made. Returns the queue's id, or -1 with msgget's errno.
[[nodiscard]] int obtainQueue(key_t key, bool ownOnly, QueueOrigin& origin);

/// Makes the queue with that key and that id, mode 0660, unless it exists. The id is chosen by
/// /proc/sys/kernel/msg_next_id. Returns 0, or -1 with errno: EEXIST if another queue has the id or the key; EINVAL for
/// IPC_PRIVATE; that of opening or writing msg_next_id if that failed and the queue got another id; or msgget's.
[[nodiscard]] int obtainQueueWithId(int id, key_t key);

/// Number of messages in a queue; 0 for one that is gone or cannot be read. For signal handlers, too.
[[nodiscard]] size_t messagesInQueue(int queueId);

/// Removes the next message, of any length, from the queue. Does not block. Returns 0, or -1
/// with msgrcv's errno.
[[nodiscard]] int dropFromQueue(int queueId);

#endif
