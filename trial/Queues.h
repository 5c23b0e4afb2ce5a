// Messages in queues, for trials that disturb the tasks that read them.
#ifndef TEV_TRIAL_QUEUES_H
#define TEV_TRIAL_QUEUES_H

#include "sim/SystemError.h"

#include <cstring>
#include <string>
#include <sys/msg.h>

namespace trial {

/// Puts a message into a queue, unless the queue is full. Returns whether it did.
inline bool sendMessage(int queue, const std::string& text, long type = 1) {
  std::string message(sizeof type, '\0');
  memcpy(message.data(), &type, sizeof type);
  message += text;
  return msgsnd(queue, message.data(), text.size(), IPC_NOWAIT) == 0;
}

/// Whether its task has taken all messages from a queue.
inline bool isEmpty(int queue) {
  msqid_ds about = {};
  sim::check(msgctl(queue, IPC_STAT, &about), "a queue");
  return about.msg_qnum == 0;
}

} // namespace trial

#endif
