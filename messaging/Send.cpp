// How a message travels: MsgObj::Send().
#include "messaging/CommObj.h"
#include "messaging/MsgObj.h"
#include "messaging/ReplyPipe.h"
#include "messaging/internal/Blocking.h"
#include "messaging/internal/ErrorTrace.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <memory>
#include <unistd.h>

namespace {

MsgObj* sendLocally(MsgObj& message, CommObj& src, CommObj& dst) {
  if (message.IsReqMsg() && message.IsSyncMsg()) return src.Exchange(message, &dst);
  const int size = static_cast<int>(message.size());
  if (message.IsSyncMsg())
    dst.ReceiveSync(message.GetSrcTid(), &message, size);
  else
    dst.ReceiveAsync(message.GetSrcTid(), &message, size);
  return nullptr;
}

// A reply always goes to the pipe of the console's task, the only task that sends synchronous requests to other
// processes.
void replyRemotely(const MsgObj& message) {
  const int fd = openReplyPipe(message.GetDstTid());
  if (fd <= 0) {
    const int reason = errno;
    char buffer[128];
    traceError("bad pipefd!? pipefd=%d, errno=%d, %s", fd, reason, strerror_r(reason, buffer, sizeof buffer));
    if (fd == 0) (void)close(fd);
  } else {
    // size() of a class may exceed the image.
    const size_t size = std::min<size_t>(message.size(), sizeof(MsgImage));
    // Fails when the pipe is full of replies that were not read. The task that waits for this one runs into its
    // time-out.
    const ssize_t written = write(fd, message.image(), size);
    (void)written;
    tev::log << "MsgObj::send()[isRespSyncMsg/remote] - bytes to pipe: " << static_cast<unsigned int>(size)
             << tev::endl;
    for (size_t i = 0; i < size; i += 4) {
      uint32_t value = 0;
      std::memcpy(&value, static_cast<const char*>(message.image()) + i, sizeof value);
      tev::log << "word_s@" << static_cast<unsigned int>(i) << " [" << static_cast<unsigned int>(value) << "]"
               << tev::endl;
    }
    (void)close(fd); // nothing was buffered that a failing close could lose
  }
  tev::log << "MsgObj::send()[isRespSyncMsg/remote] - after pipe write() call" << tev::endl;
}

MsgObj* sendRemotely(MsgObj& message, CommObj& src) {
  if (message.IsReqMsg() && message.IsSyncMsg()) return src.Exchange(message, nullptr);
  if (message.IsSyncMsg()) {
    replyRemotely(message);
  } else {
    MsgQOutStream queue(static_cast<int>(message.GetDstTid()));
    message.stream(queue);
  }
  return nullptr;
}

MsgObj* sendAndDelete(MsgObj* message) {
  const std::unique_ptr<MsgObj> consumed(message);
  CommObj* const dst = CommObj::TaskId2CommObj(message->GetDstTid());
  CommObj* const src = CommObj::TaskId2CommObj(message->GetSrcTid());
  if (src != nullptr && dst != nullptr) return sendLocally(*message, *src, *dst);
  if (src != nullptr && message->IsRemoteMsg()) return sendRemotely(*message, *src);
  tev::log << "MsgObj::send() - not calling pTargetCommObj->receive(...)" << tev::endl;
  return nullptr;
}

} // namespace

MsgObj* MsgObj::Send() {
  // A thread that was cancelled anywhere would keep the sync lock, and the message. The wait for a reply is short.
  return kr::uncancelled([this](int cancelState) {
    const BlockingState waits(cancelState);
    return sendAndDelete(this);
  });
}
