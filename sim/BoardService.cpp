#include "sim/BoardService.h"

#include "messaging/Messages.h"
#include "messaging/ReplyPipe.h"
#include "platform/Descriptor.h"
#include "sim/BoardSocket.h"

#include <algorithm>
#include <ctime>
#include <stdexcept>
#include <string>
#include <sys/ioctl.h>

namespace sim {

namespace {

constexpr int splitChecks = 10000; // times splitPause: 3 s, as long as a sender waits for a reply
constexpr long splitPause = 300;   // microseconds
constexpr int garbageByte = 0xa5;

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
  // Whether the reader has not emptied the pipe yet.
  bool isUnread() const {
    int unread = 0;
    return ioctl(_pipe.get(), FIONREAD, &unread) == 0 && unread > 0;
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

} // namespace

BoardService::BoardService(const ServiceTask& task)
    : _name(task.name), _service(task.name, task.queueId, task.queueKey) {
  handleAll<SetVideoModeReqMsg, SetVideoModeRespMsg, GetVideoResolutionReqMsg, GetVideoResolutionRespMsg,
            SetVideoResolutionReqMsg, SetVideoResolutionRespMsg, TakeSnapshotReqMsg, TakeSnapshotRespMsg,
            SetAudioSourceReqMsg, SetAudioSourceRespMsg, StreamControlReqMsg, StreamControlRespMsg, AdminControlReqMsg,
            AdminControlRespMsg, SetLoggingModeReqMsg>();
}

template <class... Messages>
void BoardService::handleAll() {
  (_service.Handle<Messages>([this](const Messages& message) { handle(message); }), ...);
}

template <class Message>
void BoardService::handle(const Message& message) {
  const Instructions instructions = report(message, Message::layout);
  tev::log << message;
  using Response = typename Message::Response;
  if constexpr (!std::is_void_v<Response>) {
    auto response = _service.MakeResponse(message);
    for (size_t i = 0; i < std::min(instructions.words.size(), Response::layout.fieldCount()); ++i)
      response->setWord(i, instructions.words[i]);
    tev::log << *response;
    send(std::move(response), instructions.fault);
  }
}

BoardService::Instructions BoardService::report(const MsgObj& message, const MsgLayout& layout) const {
  std::string flags = message.IsSyncMsg() ? "sync" : "";
  if (message.IsRemoteMsg()) flags += flags.empty() ? "remote" : " remote";
  SocketMessage question = {
      "message", _name, std::to_string(layout.id), layout.name, std::to_string(message.GetSrcTid()), flags};
  for (size_t i = 0; i < layout.fieldCount(); ++i)
    question.push_back(std::string(layout.fields[i].name) + "=" + std::to_string(message.word(i)));
  const SocketMessage answer = askBoard(question);
  if (answer.size() < 2) throw std::runtime_error("the board does not know messages");
  tev::log << (answer[0] == "on" ? tev::enable : tev::disable);
  Instructions instructions{{}, ServiceFault::parse(answer[1]).value_or(ServiceFault())};
  for (size_t i = 2; i < answer.size(); ++i)
    instructions.words.push_back(static_cast<uint16_t>(std::stoul(answer[i])));
  return instructions;
}

void BoardService::send(std::unique_ptr<MsgObj> reply, const ServiceFault& fault) const {
  if (fault.kind == ServiceFault::late) pause(fault.delay * 1000L);
  if (fault.kind == ServiceFault::late || fault.kind == ServiceFault::none) {
    (void)reply.release()->Send(); // Send() returns null for a reply
    return;
  }
  RawReply raw(*reply);
  switch (fault.kind) {
  case ServiceFault::truncated:
    raw.writeHalf();
    break;
  case ServiceFault::split:
    raw.writeHalf();
    // A moment after it has emptied the pipe, the reader has tried to read more; it finds the rest when it drains the
    // pipe before its next request.
    for (int checks = 0, wasUnread = 1; checks < splitChecks && wasUnread != 0; ++checks) {
      wasUnread = raw.isUnread() ? 1 : 0;
      pause(splitPause);
    }
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

void BoardService::pause(long microseconds) const {
  constexpr long slice = 20000;
  for (long left = microseconds; left > 0 && !_service.Ending(); left -= slice) {
    const timespec time{0, std::min(left, slice) * 1000};
    (void)nanosleep(&time, nullptr); // a signal that ends it may be SIGTERM
  }
}

} // namespace sim
