#include "messaging/MsgQueue.h"

#include "platform/Uncancelled.h"

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <pthread.h>
#include <sys/ipc.h>
#include <sys/msg.h>

namespace {

// A message as the kernel wants it.
struct KernelMsg {
  long type;
  char text[msgTextMax];
};

} // namespace

int sendToQueue(int queueId, const void* buffer, size_t textSize) {
  if (textSize > msgTextMax) {
    errno = EINVAL;
    return -1;
  }
  const char* bytes = static_cast<const char*>(buffer);
  int32_t type = 0;
  std::memcpy(&type, bytes, sizeof type);
  KernelMsg message;
  message.type = type; // sign-extended where a long is wider
  std::memcpy(message.text, bytes + msgTypeSize, textSize);
  return msgsnd(queueId, &message, textSize, 0);
}

KR_UNWOUND_BY_CANCELLATION ssize_t receiveFromQueue(int queueId, void* buffer) {
  KernelMsg message;
  int state = PTHREAD_CANCEL_DISABLE;
  (void)pthread_setcancelstate(PTHREAD_CANCEL_ENABLE, &state); // fails only for a state that does not exist
  const ssize_t length = msgrcv(queueId, &message, msgTextMax, 0, 0);
  const int reason = errno;
  (void)pthread_setcancelstate(state, nullptr);
  errno = reason;
  if (length < 0) return -1;

  char* bytes = static_cast<char*>(buffer);
  const auto type = static_cast<int32_t>(message.type);
  std::memcpy(bytes, &type, sizeof type);
  std::memcpy(bytes + msgTypeSize, message.text, static_cast<size_t>(length));
  std::memset(bytes + msgTypeSize + length, 0, msgTextMax - static_cast<size_t>(length));
  return length;
}

int dropFromQueue(int queueId) {
  KernelMsg message;
  return msgrcv(queueId, &message, 0, 0, IPC_NOWAIT | MSG_NOERROR) < 0 ? -1 : 0;
}
