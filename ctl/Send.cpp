// How messages travel here: MsgObj::Send(), in place of that of messaging/Send.cpp, which is for endpoints with
// threads.
//
// A request fails where the console's would wait, and the answer is looked at.

#include "commands/Report.h"
#include "ctl/CallReport.h"
#include "ctl/CallTask.h"
#include "messaging/MsgObj.h"
#include "messaging/Protocol.h"

#include <cerrno>
#include <cstring>
#include <memory>
#include <sys/msg.h>

namespace {

const char* serviceWith(unsigned long taskId) {
  switch (taskId) {
  case protocol::videoQueueId:
    return protocol::videoTask;
  case protocol::streamQueueId:
    return protocol::streamTask;
  default:
    return protocol::adminTask;
  }
}

void notSent(CallReport& report, const std::string& service, int reason) {
  if (reason == EINVAL || reason == EIDRM)
    report.fail(exitNotThere, service, service + " is not there", "errno", reason);
  else
    report.fail(exitRefused, service, service + " cannot be asked: " + std::strerror(reason), "errno", reason);
}

void notAnswered(CallReport& report, const std::string& service, int reason) {
  report.fail(exitNoAnswer, service,
              service + (reason == ETIMEDOUT ? " did not answer within " : " did not answer in full within ") +
                  std::to_string(protocol::replyTimeoutMs / 1000) + " seconds");
}

void send(CallReport& report, MsgObj& request, MsgObj* reply) {
  const std::string service = serviceWith(request.GetDstTid());
  // A service that is not there may want the id that a new queue would get.
  msqid_ds about{};
  if (msgctl(static_cast<int>(request.GetDstTid()), IPC_STAT, &about) != 0 && errno != EACCES)
    return notSent(report, service, errno);
  const CallTask task;
  if (!task.isMade())
    return report.fail(exitInternal, "", std::string("no queue and reply pipe: ") + std::strerror(errno), "errno",
                       errno);
  if (const int reason = task.send(request); reason != 0) return notSent(report, service, reason);
  if (reply == nullptr) return;
  const unsigned short replyId = reply->GetMsgType();
  if (const int reason = task.receive(reply->image(), reply->size()); reason != 0)
    return notAnswered(report, service, reason);
  if (!task.isReply(*reply, replyId)) return report.fail(exitNoAnswer, service, service + " answered something else");
  const int status = static_cast<const MsgImage*>(reply->image())->words[0]; // every reply begins with it
  if (status != 0)
    report.fail(exitRefused, service, service + " refused with status " + std::to_string(status), "status", status);
}

} // namespace

// Throws std::bad_alloc.
MsgObj* MsgObj::Send() {
  const std::unique_ptr<MsgObj> consumed(this);
  std::unique_ptr<MsgObj> reply(IsSyncMsg() ? CreateResponse() : nullptr);
  if (IsSyncMsg() && reply == nullptr) throw std::bad_alloc();
  auto& report = static_cast<CallReport&>(*Report::present);
  send(report, *this, reply.get());
  return report.status() == exitDone ? reply.release() : nullptr;
}
