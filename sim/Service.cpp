#include "sim/Service.h"

#include "messaging/MsgOf.h"
#include "messaging/ReplyPipe.h"
#include "platform/Descriptor.h"
#include "sim/Appliance.h"
#include "sim/BoardSocket.h"

#include <algorithm>
#include <csignal>
#include <cstring>
#include <ctime>
#include <stdexcept>
#include <sys/ioctl.h>
#include <sys/msg.h>

namespace sim {

namespace {

constexpr int splitChecks = 10000;  // times splitPause: 3 s, as long as a sender waits for a reply
constexpr long splitPause = 300000; // nanoseconds
constexpr int garbageByte = 0xa5;

// Sleeps for `time`, or until SIGTERM, which is blocked in a task.
void pauseFor(const timespec& time) {
  sigset_t term;
  (void)sigemptyset(&term); // neither this nor the next can fail
  (void)sigaddset(&term, SIGTERM);
  if (sigtimedwait(&term, nullptr, &time) == SIGTERM) (void)raise(SIGTERM); // ends later pauses, too
}

// Writes a reply to the pipe in parts, which MsgObj::Send() does not.
class RawReply {
public:
  explicit RawReply(const MsgObj& reply)
      : _pipe(openReplyPipe(reply.GetDstTid())), _bytes(static_cast<const char*>(reply.image()), reply.size()) {}

  void writeHalf() const { write(0, half()); }
  void writeRest() const { write(half(), _bytes.size()); }
  void writeGarbage() {
    std::fill(_bytes.begin(), _bytes.end(), static_cast<char>(garbageByte));
    write(0, _bytes.size());
  }
  // Returns a moment after the pipe has been emptied. By then the reader has tried to read more; it finds the rest when
  // it drains the pipe before its next request.
  void waitForReader() const {
    int unread = 1;
    for (int i = 0; i < splitChecks && unread > 0; ++i) {
      if (ioctl(_pipe.get(), FIONREAD, &unread) != 0) return;
      pauseFor({0, splitPause});
    }
  }

private:
  size_t half() const { return _bytes.size() / 2; }
  void write(size_t from, size_t to) const {
    // Fails if the reader has ended or the pipe is full. Either way no reader would notice the fault.
    const ssize_t written = ::write(_pipe.get(), _bytes.data() + from, to - from);
    (void)written;
  }

  kr::Descriptor _pipe;
  std::string _bytes;
};

class EndMsg : public MsgOf<EndMsg> {
public:
  static const MsgLayout layout;
  using MsgOf::MsgOf;
  // The receive loop returns when the queue is removed.
  int InvokeHandler(CommObj* receiver) override { return msgctl(receiver->GetMsgQId(), IPC_RMID, nullptr); }
  MsgObj* CreateResponse() override { return nullptr; }
};
const MsgLayout EndMsg::layout = {"EndMsg", endMessageId, PipeForm::none, false, false, {}};

} // namespace

Service::Service(const char* name) : CommObj(name), _name(name) {
  registerVideoPhalMessages();
  registerStreamAppMessages();
  registerAdminAppMessages();
  registerMessages<EndMsg>();
}

Service::Instructions Service::report(const MsgObj& message, const MsgLayout& layout) const {
  std::string flags = message.IsSyncMsg() ? "sync" : "";
  if (message.IsRemoteMsg()) flags += flags.empty() ? "remote" : " remote";
  SocketMessage question = {
      "message", _name, std::to_string(layout.id), layout.name, std::to_string(message.GetSrcTid()), flags};
  const auto* image = static_cast<const MsgImage*>(message.image());
  for (size_t i = 0; i < layout.fieldCount(); ++i)
    question.push_back(std::string(layout.fields[i].name) + "=" + std::to_string(image->words[i]));
  const SocketMessage answer = askBoard(question);
  if (answer.size() < 2) throw std::runtime_error("the board does not know messages");
  tev::log << (answer[0] == "on" ? tev::enable : tev::disable);
  Instructions instructions{{}, ServiceFault::parse(answer[1]).value_or(ServiceFault())};
  for (size_t i = 2; i < answer.size(); ++i)
    instructions.words.push_back(static_cast<uint16_t>(std::stoul(answer[i])));
  return instructions;
}

void Service::send(MsgObj* reply, const ServiceFault& fault) {
  if (fault.kind == ServiceFault::late) pauseFor({fault.delay / 1000, fault.delay % 1000 * 1000000L});
  if (fault.kind == ServiceFault::late || fault.kind == ServiceFault::none) {
    (void)reply->Send(); // Send() returns null for a reply
    return;
  }
  RawReply raw(*reply);
  delete reply;
  switch (fault.kind) {
  case ServiceFault::truncated:
    raw.writeHalf();
    break;
  case ServiceFault::split:
    raw.writeHalf();
    raw.waitForReader();
    raw.writeRest();
    break;
  case ServiceFault::garbage:
    raw.writeGarbage();
    break;
  case ServiceFault::dies:
    raw.writeHalf();
    _exit(injectedDeathStatus);
  default: // the others send nothing
    break;
  }
}

} // namespace sim
