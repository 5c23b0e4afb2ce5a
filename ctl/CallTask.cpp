#include "ctl/CallTask.h"

#include "ctl/Ending.h"
#include "messaging/MsgObj.h"
#include "messaging/Protocol.h"
#include "messaging/ReplyPipe.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <ctime>
#include <poll.h>
#include <sys/file.h>
#include <sys/msg.h>
#include <sys/stat.h>
#include <vector>

namespace {

// Only the owner can use the queue. The bits for execution mean nothing to the kernel; they are the mark.
constexpr int queueMode = 0711;
constexpr int queueTries = 200;   // more than there are ids in a row that cannot be used
constexpr int taskTries = 16;     // others may have put something where the pipe belongs
constexpr time_t makingTime = 10; // seconds after which a queue without a pipe is not in the making any more

// The low byte of the sender's id is the sign of a request's type, which the kernel wants positive; and 0 is the id of
// a service.
bool isUsable(int id) { return id > 0 && (id & 0x80) == 0; }

// The kernel gives the lowest free place, so those that cannot be used are kept until there is one that can.
int makeQueue() {
  std::vector<int> others;
  int id = msgget(IPC_PRIVATE, queueMode);
  while (id >= 0 && !isUsable(id) && others.size() < queueTries) {
    others.push_back(id);
    id = msgget(IPC_PRIVATE, queueMode);
  }
  const int reason = errno;
  for (const int other : others)
    (void)msgctl(other, IPC_RMID, nullptr); // it is ours
  errno = reason;
  return id;
}

bool isQueueOfOwnCall(const msqid_ds& about) {
  return about.msg_perm.__key == IPC_PRIVATE && (about.msg_perm.mode & 0777) == queueMode &&
         about.msg_perm.uid == geteuid() && about.msg_perm.cuid == geteuid();
}

struct PipePath {
  char text[32]; // 27 at most

  explicit PipePath(int id) {
    (void)std::snprintf(text, sizeof text, protocol::replyPipeFormat, protocol::consoleTask, id);
  }
};

// Locks a pipe. False if another process has the lock, or has removed the pipe meanwhile.
bool lockPipe(int fd) {
  struct stat found {};
  return flock(fd, LOCK_EX | LOCK_NB) == 0 && fstat(fd, &found) == 0 && found.st_nlink > 0 && found.st_uid == geteuid();
}

// Removes a queue and its pipe if no process has the lock of the pipe.
void removeIfDead(int id, const msqid_ds& about) {
  const PipePath path(id);
  const kr::Descriptor pipe(openPipe(path.text));
  if (pipe ? !lockPipe(pipe.get()) : errno != ENOENT || std::time(nullptr) - about.msg_ctime < makingTime) return;
  (void)unlink(path.text); // there may be none, or another process does the same
  (void)msgctl(id, IPC_RMID, nullptr);
}

int64_t monotonicMs() {
  timespec now{};
  (void)clock_gettime(CLOCK_MONOTONIC, &now); // cannot fail for this clock
  return int64_t{now.tv_sec} * 1000 + now.tv_nsec / 1'000'000;
}

} // namespace

CallTask::CallTask() {
  const ending::SignalsBlocked blocked;
  for (int i = 0; i < taskTries && !isMade(); ++i) {
    _id = makeQueue();
    if (_id < 0) return;
    const PipePath path(_id);
    ending::guard(_id, path.text);
    (void)unlink(path.text); // of an earlier owner of the id; if it is another user's, it stays, and mkfifo fails
    if (mkfifo(path.text, 0660) == 0) _pipe = kr::Descriptor(openPipe(path.text));
    if (_pipe && lockPipe(_pipe.get())) return;
    const int reason = errno;
    _pipe = kr::Descriptor();
    ending::removeGuarded();
    errno = reason;
  }
}

CallTask::~CallTask() {
  const ending::SignalsBlocked blocked;
  ending::removeGuarded();
}

int CallTask::send(MsgObj& request) const {
  auto* const image = static_cast<MsgImage*>(request.image());
  image->srcTid = static_cast<uint32_t>(_id);
  image->mtype |= image->srcTid; // was made with the task id 0
  MsgQOutStream queue(static_cast<int>(request.GetDstTid()));
  request.stream(queue);
  return queue.GetFailure();
}

int CallTask::receive(void* reply, size_t size) const {
  const int64_t deadline = monotonicMs() + protocol::replyTimeoutMs;
  size_t got = 0;
  while (got < size) {
    pollfd wait = {_pipe.get(), POLLIN, 0};
    const int ready = poll(&wait, 1, static_cast<int>(std::max<int64_t>(deadline - monotonicMs(), 0)));
    if (ready == 0) return got == 0 ? ETIMEDOUT : EBADMSG;
    const ssize_t count = ready > 0 ? read(_pipe.get(), static_cast<char*>(reply) + got, size - got) : -1;
    if (count < 0 && errno != EINTR && errno != EAGAIN) return errno;
    if (count > 0) got += static_cast<size_t>(count);
  }
  return 0;
}

bool CallTask::isReply(const MsgObj& reply, unsigned short id) const {
  return reply.GetMsgType() == id && reply.GetDstTid() == static_cast<unsigned long>(_id);
}

void CallTask::removeLeftovers() {
  msginfo queues{};
  const int highest = msgctl(0, MSG_INFO, reinterpret_cast<msqid_ds*>(&queues));
  for (int place = 0; place <= highest; ++place) {
    msqid_ds about{};
    const int id = msgctl(place, MSG_STAT, &about); // fails for free places and for queues of others
    if (id >= 0 && isQueueOfOwnCall(about)) removeIfDead(id, about);
  }
}
