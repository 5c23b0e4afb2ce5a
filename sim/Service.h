// A service task of the board: an endpoint like the console's, built from the same units. It decodes messages, asks the
// board how to handle them and sends the replies.
#ifndef TEV_SIM_SERVICE_H
#define TEV_SIM_SERVICE_H

#include "messaging/CommObj.h"
#include "messaging/MsgObj.h"
#include "sim/ServiceFault.h"

#include <string>
#include <vector>

namespace sim {

class Service : public CommObj {
public:
  /// Registers all messages and creates the endpoint. `name` must outlive it. `new` only: StopAll() deletes endpoints.
  explicit Service(const char* name);

  struct Instructions {
    std::vector<uint16_t> words; // the reply's payload
    ServiceFault fault;
  };
  /// Reports a message to the board and returns how to handle it. Throws std::runtime_error if the board does not
  /// answer.
  Instructions report(const MsgObj& message, const MsgLayout& layout) const;

  /// Sends the reply with this fault and deletes it.
  static void send(MsgObj* reply, const ServiceFault& fault);

private:
  const char* _name;
};

/// Registers a prototype of each message class on the first call. Not before main(): registering writes to the trace
/// log, which may not exist then.
template <class... Messages>
void registerMessages() {
  const auto makeOne = [](auto* type) { static std::remove_pointer_t<decltype(type)> prototype{Exemplar()}; };
  (makeOne(static_cast<Messages*>(nullptr)), ...);
}

// One per service. Every task registers all messages, so that it can reply to one that was sent to the wrong task.
void registerVideoPhalMessages();
void registerStreamAppMessages();
void registerAdminAppMessages();

/// Handles a request that has a reply. Returns 0, or -1 if the board does not answer.
template <class Request>
int serve(const Request& request, CommObj* receiver) {
  using Response = typename Request::Response;
  try {
    const Service::Instructions instructions = static_cast<Service*>(receiver)->report(request, Request::layout);
    tev::log << request;
    auto* response = new Response(receiver->GetTaskId(), request.GetSrcTid());
    auto* image = static_cast<MsgImage*>(response->image());
    for (size_t i = 0; i < std::min(instructions.words.size(), Response::layout.fieldCount()); ++i)
      image->words[i] = instructions.words[i];
    response->SetRemote();
    if (request.IsSyncMsg()) response->SetSync();
    tev::log << *response;
    Service::send(response, instructions.fault);
    return 0;
  } catch (const std::exception& error) {
    tev::log << "error: " << error.what() << tev::endl;
    return -1;
  }
}

/// Handles a message without a reply. Returns as serve() does.
template <class Message>
int serveUnanswered(const Message& message, CommObj* receiver) {
  try {
    (void)static_cast<Service*>(receiver)->report(message, Message::layout);
    tev::log << message;
    return 0;
  } catch (const std::exception& error) {
    tev::log << "error: " << error.what() << tev::endl;
    return -1;
  }
}

} // namespace sim

#endif
