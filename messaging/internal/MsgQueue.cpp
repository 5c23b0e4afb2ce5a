#include "messaging/internal/MsgQueue.h"

#include "messaging/internal/Blocking.h"
#include "platform/Descriptor.h"
#include "platform/internal/Uncancelled.h"

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <pthread.h>
#include <sys/ipc.h>
#include <sys/msg.h>
#include <unistd.h>

namespace {

// A message as the kernel wants it.
struct KernelMsg {
  long type;
  char text[msgTextMax];
};

constexpr int ownerAndGroup = 0660;

// Whether the effective user owns and created a queue, and only he and the group can use it.
bool isOwn(int queueId) {
  struct msqid_ds about {};
  if (msgctl(queueId, IPC_STAT, &about) != 0) return false;
  const uid_t self = geteuid();
  return about.msg_perm.uid == self && about.msg_perm.cuid == self &&
         (about.msg_perm.mode & 0777U & ~static_cast<unsigned>(ownerAndGroup)) == 0;
}

constexpr int idTriesMax = 10; // while others choose an id, too

// Chooses the id of the next queue. Returns 0 or an errno.
int chooseNextId(int id) {
  const kr::Descriptor next(open("/proc/sys/kernel/msg_next_id", O_WRONLY | O_CLOEXEC));
  if (!next) return errno;
  char number[16];
  const int length = std::snprintf(number, sizeof number, "%d", id);
  return write(next.get(), number, static_cast<size_t>(length)) == length ? 0 : errno;
}

} // namespace

int obtainQueueWithId(int id, key_t key) {
  if (key == IPC_PRIVATE) {
    errno = EINVAL;
    return -1;
  }
  int found = msgget(key, ownerAndGroup);
  if (found < 0 && errno != ENOENT) return -1;
  if (found == id) return 0;
  errno = EEXIST;
  if (found >= 0) return -1;
  for (int tries = 0; tries < idTriesMax; ++tries) {
    const int refusal = chooseNextId(id);
    found = msgget(key, IPC_CREAT | IPC_EXCL | ownerAndGroup);
    if (found == id) return 0;
    if (found < 0) return -1;
    if (msgctl(found, IPC_RMID, nullptr) != 0) return -1;
    errno = refusal != 0 ? refusal : EEXIST;
    if (refusal != 0) return -1;
  }
  return -1;
}

size_t messagesInQueue(int queueId) {
  struct msqid_ds about {};
  return msgctl(queueId, IPC_STAT, &about) == 0 ? about.msg_qnum : 0;
}

int obtainQueue(key_t key, bool ownOnly, QueueOrigin& origin) {
  origin = key != IPC_PRIVATE ? QueueOrigin::keyed : QueueOrigin::unkeyed;
  int id = msgget(key, IPC_CREAT | ownerAndGroup);
  if (ownOnly && (id >= 0 ? !isOwn(id) : errno == EACCES)) {
    origin = QueueOrigin::replaced;
    const int others = msgget(key, 0); // asks for no permission
    const bool removed = others >= 0 && msgctl(others, IPC_RMID, nullptr) == 0;
    id = removed ? msgget(key, IPC_CREAT | IPC_EXCL | ownerAndGroup) : -1;
    if (id < 0) { // it stays, or is there again
      origin = QueueOrigin::unkeyed;
      id = msgget(IPC_PRIVATE, ownerAndGroup);
    }
  }
  if (id < 0) origin = QueueOrigin::none;
  return id;
}

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
  int result = msgsnd(queueId, &message, textSize, IPC_NOWAIT);
  while (result != 0 && (errno == EAGAIN || errno == EINTR))
    result = BlockingState::block([&] { return msgsnd(queueId, &message, textSize, 0); });
  return result;
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
