// A service task of the board, written with the library for services. It asks the board how to handle each message and
// sends the replies.
#ifndef TEV_SIM_BOARDSERVICE_H
#define TEV_SIM_BOARDSERVICE_H

#include "messaging/Service.h"
#include "sim/Appliance.h"
#include "sim/ServiceFault.h"

#include <cstdint>
#include <vector>

namespace sim {

class BoardService {
public:
  /// Makes the task's queue. Every task handles all messages, so that it can reply to one that was sent to the wrong
  /// task.
  explicit BoardService(const ServiceTask& task);

  /// As in ::Service.
  int Failure() const { return _service.Failure(); }
  int Run() { return _service.Run(); }

private:
  struct Instructions {
    std::vector<uint16_t> words; // the reply's payload
    ServiceFault fault;
  };
  /// Reports a message to the board and returns how to handle it. Throws std::runtime_error if the board does not
  /// answer.
  Instructions report(const MsgObj& message, const MsgLayout& layout) const;
  template <class... Messages>
  void handleAll();
  template <class Message>
  void handle(const Message& message);
  /// Sends the reply with this fault.
  void send(std::unique_ptr<MsgObj> reply, const ServiceFault& fault) const;
  /// Sleeps, at most until SIGTERM.
  void pause(long microseconds) const;

  const char* const _name;
  Service _service;
};

} // namespace sim

#endif
