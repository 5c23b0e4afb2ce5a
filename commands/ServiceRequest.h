// A command's request to a service task of the appliance.
#ifndef TEV_COMMANDS_SERVICEREQUEST_H
#define TEV_COMMANDS_SERVICEREQUEST_H

#include "log/tevlog.h"
#include "messaging/Protocol.h"
#include "messaging/ProxyCommObj.h"

#include <memory>

/// The two ends of a command's requests: the shell's task and a service. A command makes them on entry, for every line:
/// if the shell has no endpoint, each writes its line to the trace log.
struct ServiceProxies {
  explicit ServiceProxies(const char* serviceTask) : service(serviceTask), shell(protocol::consoleTask) {}

  const ProxyCommObj service;
  const ProxyCommObj shell;
};

/// One request of class `Request`, from the shell's task to a service. Fill it through ->, then send it once:
///
///   ServiceRequest<StreamControlReqMsg> request{ServiceProxies(protocol::streamTask)};
///   request->SetControl(1);
///   auto reply = request.exchange();
template <class Request>
class ServiceRequest {
public:
  explicit ServiceRequest(const ServiceProxies& proxies)
      : _message(new Request(proxies.shell.Tid(), proxies.service.Tid())) {}

  Request* operator->() { return _message.get(); }

  /// Sends the request and waits for its reply, up to 3 seconds; besides, for room in the service's queue, without
  /// limit. Null if no reply came.
  std::unique_ptr<typename Request::Response> exchange() {
    using Response = typename Request::Response;
    _message->SetSync();
    _message->SetRemote();
    return std::unique_ptr<Response>(static_cast<Response*>(_message.release()->Send()));
  }

  /// Sends the request without waiting for a reply.
  void post() {
    _message->SetRemote();
    delete _message.release()->Send(); // such a message has no reply
  }

private:
  std::unique_ptr<Request> _message;
};

/// Writes a reply to the trace log, under a label.
template <class Response>
void logReply(const char* label, const Response& reply) {
  tev::log << label << tev::endl;
  tev::log << reply << tev::endl;
}

#endif
