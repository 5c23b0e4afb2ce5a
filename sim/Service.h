// A service task of the board: an endpoint like the console's, built from the same units. It decodes what arrives,
// tells the board, which decides, and sends the reply.
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
  /// Makes all messages known, and the endpoint. `name` must stay.
  explicit Service(const char* name);

  struct Instructions {
    std::vector<uint16_t> words; // of the reply's payload
    ServiceFault fault;
  };
  /// Tells the board of a message and returns what to do. Throws std::runtime_error when the board does not answer.
  Instructions report(const MsgObj& message, const MsgLayout& layout) const;

  /// Sends the reply, which goes with the call, as well or badly as `fault` says.
  static void send(MsgObj* reply, const ServiceFault& fault);

private:
  const char* _name;
};

/// Makes messages decodable: for each class there is a prototype from the first call on. Not before main, because the
/// trace log, which is told of it, need not exist then.
template <class... Messages>
void registerMessages() {
  const auto makeOne = [](auto* type) { static std::remove_pointer_t<decltype(type)> prototype{Exemplar()}; };
  (makeOne(static_cast<Messages*>(nullptr)), ...);
}

// The messages of each service. All services know all of them, so that one which reaches the wrong service is answered.
void registerVideoPhalMessages();
void registerStreamAppMessages();
void registerAdminAppMessages();

/// What the handler of a request does that has a reply. Returns 0, or -1 if the board was of no help.
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

/// What the handler of a message does that nothing answers.
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
