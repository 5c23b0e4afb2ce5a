// A service task of the appliance: what receives the requests of the console and answers them.
//
//   Service service(protocol::streamTask, protocol::streamQueueId, protocol::streamQueueKey);
//   service.Handle<StreamControlReqMsg>([](const StreamControlReqMsg& request, StreamControlRespMsg& response) {
//     response.SetStatus(control(request.GetControl(), request.GetType()));
//   });
//   return service.Run() == 0 ? EXIT_SUCCESS : EXIT_FAILURE; // until SIGTERM
//
// Replies. Send() writes the response to a synchronous request into the pipe of the console, "/tmp/tCliAppTask.<id of
// the requester>"; the response to any other request goes to the requester's queue. This rules out:
//
//  - synchronous requests between services: the reply would be written to a console's pipe that does not exist, and the
//    requester would wait in vain for 3 seconds. Services send each other asynchronous requests, and get the response
//    as a message that they handle;
//  - asynchronous requests from a service whose task id has bit 15 set, as that of the video service: they read as
//    synchronous;
//  - late replies: the console waits for 3 seconds, and may take what comes later for the reply to its next request
//    (docs/exchange.md). A handler that needs longer responds at once and works on another thread.
//
// Threads. All handlers run on the thread that calls Run(), one at a time, each to its end. Construction, Handle(),
// Run() and destruction belong to one thread. Any thread may call the const functions, and may Send() messages whose
// source is this service's task id, while Run() runs.
//
// Standard descriptors must be open when the program starts, if only on /dev/null: else one of the files that it opens
// gets their number.
#ifndef TEV_MESSAGING_SERVICE_H
#define TEV_MESSAGING_SERVICE_H

#include "messaging/MsgOf.h"

#include <cerrno>
#include <functional>
#include <map>
#include <memory>
#include <sys/types.h>
#include <type_traits>
#include <utility>

/// There is at most one in a process. It must not be destroyed in a handler.
class Service {
public:
  /// Makes the queue with that id and key, mode 0660, or takes over the one that an earlier process left, with what is
  /// in it; and the pipe "/tmp/<task name>.<queue id>". From here on SIGTERM and SIGINT end Run(), not the process.
  /// Both are unblocked: who starts a service with them blocked can end it at any moment. `taskName` is cut to 23
  /// characters, `queueKey` must not be IPC_PRIVATE. Throws std::bad_alloc.
  ///
  /// The id of a new queue is chosen by /proc/sys/kernel/msg_next_id, which takes CAP_CHECKPOINT_RESTORE or root.
  /// Where that is missing, the order decides in which all queues since the boot are made.
  Service(const char* taskName, int queueId, key_t queueKey);

  /// Removes queue and pipe, if Run() has not done so.
  ~Service();

  Service(const Service&) = delete;
  Service& operator=(const Service&) = delete;

  /// 0 if the service has its queue. Otherwise an errno: EEXIST if another queue has the id or this key; EBUSY if the
  /// process has a service already; EINVAL for IPC_PRIVATE; EACCES if the queue under the key is another user's;
  /// EACCES, EPERM or ENOENT if msg_next_id cannot be set and the queue got another id (it is removed again); or what
  /// the system reported.
  [[nodiscard]] int Failure() const { return _failure; }

  /// The service's queue id.
  unsigned long GetTaskId() const { return static_cast<unsigned long>(_queueId); }

  /// Has messages of the class `Message` handled by `handler`, in place of the handler set before. Messages of other
  /// classes are dropped, with a line in the trace log. Not while Run() runs. The handler is one of
  ///
  ///   void (const Message& request, Message::Response& response)   sends `response`, which MakeResponse() made, when
  ///   it
  ///                                                                returns
  ///   void (const Message& message)                                sends none, or one of its own
  ///
  /// What a handler throws of std::exception goes to the trace log; no response is sent then.
  template <class Message, class Handler>
  void Handle(Handler handler);

  /// A response to `request`, addressed to its sender, with its fields on their defaults. Send() it once, at any time
  /// before Run() returns: response.release()->Send().
  template <class Request>
  [[nodiscard]] std::unique_ptr<typename Request::Response> MakeResponse(const Request& request) const;

  /// Handles messages until SIGTERM or SIGINT; then those that are in the queue by now; then removes queue and pipe,
  /// and ends all other endpoints of the process (CommObj::StopAll()). To be called once. Returns 0; or -1 with errno:
  /// that of Failure(), or EIDRM if the queue was removed by others.
  int Run();

  /// Whether SIGTERM or SIGINT has arrived: a handler that takes long can give up.
  [[nodiscard]] bool Ending() const;

private:
  template <class Message>
  friend class Served;
  class Endpoint;
  using Handlers = std::map<unsigned short, std::function<void(const MsgObj&)>>;

  /// Calls the handler that `receiver` has for the message. Returns 0, or -1 if there is none or if it throws.
  static int handleBy(CommObj* receiver, const MsgObj& message);
  explicit Service(int queueId);
  void end();

  const int _queueId;
  int _failure = 0;
  bool _active = false; ///< handles the signals
  Handlers _handlers;
  Endpoint* _endpoint = nullptr; ///< StopAll() deletes it
};

/// A received message of the class `Message` in a service: calls its handler.
template <class Message>
class Served : public Message {
public:
  explicit Served(Exemplar exemplar) : Message(exemplar) {}
  explicit Served(const Message& message) : Message(message) {}

  /// Has messages of the class decoded to objects of this one. The prototype lives as long as the process, like the
  /// registry that it enters.
  static void registerPrototype() {
    static const auto* const prototype = new Served(Exemplar());
    (void)prototype;
  }

  MsgObj* Create(const void* buffer) override {
    const std::unique_ptr<MsgObj> decoded(Message::Create(buffer));
    return decoded != nullptr ? new (std::nothrow) Served(static_cast<const Message&>(*decoded)) : nullptr;
  }
  int InvokeHandler(CommObj* receiver) override { return Service::handleBy(receiver, *this); }
};

template <class Message, class Handler>
void Service::Handle(Handler handler) {
  Served<Message>::registerPrototype();
  _handlers[Message::layout.id] = [this, handler = std::move(handler)](const MsgObj& received) mutable {
    const auto& message = static_cast<const Message&>(received);
    if constexpr (std::is_invocable_v<Handler&, const Message&>) {
      handler(message);
    } else {
      auto response = MakeResponse(message);
      handler(message, *response);
      (void)response.release()->Send(); // which returns null for a response
    }
  };
}

template <class Request>
std::unique_ptr<typename Request::Response> Service::MakeResponse(const Request& request) const {
  auto response = std::make_unique<typename Request::Response>(GetTaskId(), request.GetSrcTid());
  response->SetRemote();
  if (request.IsSyncMsg()) response->SetSync();
  return response;
}

#endif
