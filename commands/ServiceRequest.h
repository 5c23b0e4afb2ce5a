// A command's request to a service task of the appliance.
#ifndef TEV_COMMANDS_SERVICEREQUEST_H
#define TEV_COMMANDS_SERVICEREQUEST_H

#include "log/tevlog.h"
#include "messaging/ProxyCommObj.h"

#include <memory>

/// One request of class `Request`, from the shell's task to a service. Fill it through ->, then send it once:
///
///   ServiceRequest<StreamControlReqMsg> request("tStreamAppTask");
///   request->SetControl(1);
///   auto reply = request.exchange<StreamControlRespMsg>();
template <class Request>
class ServiceRequest {
public:
  explicit ServiceRequest(const char* serviceTask)
      : _service(serviceTask), _shell("tCliAppTask"), _message(new Request(_shell.Tid(), _service.Tid())) {}

  Request* operator->() { return _message.get(); }

  /// Sends the request and waits for its reply, up to 3 seconds. Null if none came.
  template <class Response>
  std::unique_ptr<Response> exchange() {
    _message->SetSync();
    _message->SetRemote();
    return std::unique_ptr<Response>(static_cast<Response*>(_message.release()->Send()));
  }

  /// Sends the request without waiting for anything.
  void post() {
    _message->SetRemote();
    delete _message.release()->Send(); // of a message that does not ask for one there is no reply
  }

private:
  ProxyCommObj _service;
  ProxyCommObj _shell;
  std::unique_ptr<Request> _message;
};

/// Writes a reply to the trace log, under a label.
template <class Response>
void logReply(const char* label, const Response& reply) {
  tev::log << label << tev::endl;
  tev::log << reply << tev::endl;
}

#endif
