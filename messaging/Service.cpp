#include "messaging/Service.h"

#include "log/tevlog.h"
#include "messaging/CommObj.h"
#include "messaging/internal/MsgQueue.h"

#include <atomic>
#include <csignal>
#include <cstdint>
#include <exception>
#include <iterator>
#include <sys/ipc.h>
#include <sys/msg.h>

namespace {

// For the handler of signals.
std::atomic<int> servedQueue{-1};
std::atomic<bool> ending{false};

constexpr size_t uncounted = SIZE_MAX;
size_t left = uncounted; // messages to handle before the end

constexpr int endingSignals[] = {SIGTERM, SIGINT};
struct sigaction actionsBefore[std::size(endingSignals)];

// An empty message, so that the thread that waits for one looks whether it is to end.
class WakeMsg : public MsgOf<WakeMsg> {
public:
  static const MsgLayout layout;
  using MsgOf::MsgOf;
  int InvokeHandler(CommObj*) override { return 0; }
};
const MsgLayout WakeMsg::layout = {"WakeMsg", /*id*/ 0, PipeForm::none, false, false, {}};

void endServing(int) {
  const int reason = errno;
  ending = true;
  const long type = 1;
  // If the queue is full, nothing waits for a message in it.
  (void)msgsnd(servedQueue, &type, 0, IPC_NOWAIT);
  errno = reason;
}

// Before each message. After a signal, those are still handled that are in the queue then. Another process may take
// some of them away.
bool goOn() {
  if (!ending) return true;
  const size_t queued = messagesInQueue(servedQueue);
  if (left == uncounted) left = queued;
  return queued > 0 && left-- > 0;
}

} // namespace

class Service::Endpoint : public CommObj {
public:
  Endpoint(const char* taskName, const Handlers& handlers) : CommObj(taskName), _handlers(handlers) {}

  void run() override { runWhile(goOn); }

  int handle(const MsgObj& message) const {
    const auto found = _handlers.find(message.GetMsgType());
    if (found == _handlers.end()) return -1;
    try {
      found->second(message);
      return 0;
    } catch (const std::exception& error) {
      tev::log << "error: " << error.what() << tev::endl;
      return -1;
    }
  }

private:
  const Handlers& _handlers;
};

Service::Service(int queueId) : _queueId(queueId) {}

Service::Service(const char* taskName, int queueId, key_t queueKey) : Service(queueId) {
  if (servedQueue != -1) {
    _failure = EBUSY;
    return;
  }
  ending = false;
  left = uncounted;
  servedQueue = queueId;
  struct sigaction action {};
  action.sa_handler = endServing;
  action.sa_flags = SA_RESTART;
  // Before the queue exists: a process that finds it may end the service. This fails only for unknown signals.
  for (size_t i = 0; i < std::size(endingSignals); ++i)
    (void)sigaction(endingSignals[i], &action, &actionsBefore[i]);
  sigset_t unblocked;
  (void)sigemptyset(&unblocked);
  for (const int number : endingSignals)
    (void)sigaddset(&unblocked, number);
  (void)pthread_sigmask(SIG_UNBLOCK, &unblocked, nullptr);
  _active = true;

  if (obtainQueueWithId(queueId, queueKey) != 0) {
    _failure = errno;
    tev::log << "error: cannot make msgQ " << queueId << " of " << taskName << ", errno= " << _failure << tev::endl;
    end();
    return;
  }
  static const auto* const wake = new WakeMsg(Exemplar());
  (void)wake;
  CommObj::SetKey(queueKey - 1);
  _endpoint = new Endpoint(taskName, _handlers);
  if (_endpoint->GetMsgQId() == queueId) return;
  _failure = EIDRM; // removed by another process since
  end();
}

Service::~Service() { end(); }

void Service::end() {
  if (!_active) return;
  _active = false;
  for (size_t i = 0; i < std::size(endingSignals); ++i)
    (void)sigaction(endingSignals[i], &actionsBefore[i], nullptr); // as above
  servedQueue = -1;
  if (_endpoint == nullptr) return;
  const bool listed = CommObj::TaskId2CommObj(_endpoint->GetTaskId()) == _endpoint;
  if (!listed) delete _endpoint;
  _endpoint = nullptr;
  CommObj::StopAll();
  // The destructor of an endpoint leaves the queue 0, for which a queue id of a task that has none is taken.
  if (listed && _queueId == 0) (void)msgctl(_queueId, IPC_RMID, nullptr); // fails only if it is gone
}

int Service::Run() {
  if (_failure != 0 || _endpoint == nullptr) {
    errno = _failure != 0 ? _failure : EIDRM;
    return -1;
  }
  _endpoint->run();
  const bool asked = ending;
  end();
  if (asked) return 0;
  errno = EIDRM;
  return -1;
}

bool Service::Ending() const { return _active && ending; }

int Service::handleBy(CommObj* receiver, const MsgObj& message) {
  const auto* const endpoint = dynamic_cast<Endpoint*>(receiver);
  return endpoint != nullptr ? endpoint->handle(message) : -1;
}
