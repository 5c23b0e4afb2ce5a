#include "messaging/CommObj.h"

#include "log/tevlog.h"
#include "messaging/MsgObj.h"
#include "messaging/Protocol.h"
#include "messaging/ReplyPipe.h"
#include "messaging/internal/Blocking.h"
#include "messaging/internal/FloodGate.h"
#include "messaging/internal/Immortal.h"
#include "messaging/internal/MsgQueue.h"
#include "platform/internal/Uncancelled.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <memory>
#include <poll.h>
#include <sys/ipc.h>
#include <sys/msg.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

constexpr int drainCheckMs = 1;
constexpr int readsMax = 3; // calls made to get a reply, or to drain the pipe

// Stale pipe data is read into this. Shared by all endpoints and threads, and never read.
char sinkbuffer[1024];

int64_t monotonicMs() {
  timespec now{};
  (void)clock_gettime(CLOCK_MONOTONIC, &now); // cannot fail for this clock
  return int64_t{now.tv_sec} * 1000 + now.tv_nsec / 1'000'000;
}

// Waits until `fd` can be read, through signals: 1, or 0 when the time ran out, or -1 with errno. The number of the
// descriptor has no limit, as it would with select().
int waitReadable(int fd, int milliseconds) {
  if (fd < 0) {
    errno = EBADF;
    return -1;
  }
  pollfd wait = {fd, POLLIN, 0};
  const int64_t deadline = monotonicMs() + milliseconds;
  int ready = poll(&wait, 1, milliseconds);
  while (ready < 0 && errno == EINTR)
    ready = poll(&wait, 1, static_cast<int>(std::max<int64_t>(deadline - monotonicMs(), 0)));
  if (ready > 0 && (wait.revents & POLLNVAL) != 0) {
    errno = EBADF;
    return -1;
  }
  return ready;
}

// Reads up to `size` bytes from a descriptor that never blocks, in at most readsMax calls. Returns how many came.
size_t readAvailable(int fd, void* buffer, size_t size) {
  size_t got = 0;
  for (int calls = 0; got < size && calls < readsMax; ++calls) {
    const ssize_t count = read(fd, static_cast<char*>(buffer) + got, size - got);
    if (count > 0) got += static_cast<size_t>(count); // 0 and errors only count as calls
  }
  return got;
}

// Holds the sync lock of an endpoint for a scope.
class SyncHeld {
public:
  explicit SyncHeld(CommObj& endpoint) : _endpoint(endpoint) { _endpoint.SyncLock(); }
  ~SyncHeld() { _endpoint.SyncUnLock(); }
  SyncHeld(const SyncHeld&) = delete;
  SyncHeld& operator=(const SyncHeld&) = delete;

private:
  CommObj& _endpoint;
};

// Whether one more message that is dropped gets a line in the log. A line with the count of those without one comes
// before it.
bool mayLog(FloodGate& unusable) {
  if (!unusable.passes(monotonicMs() / 1000)) return false;
  if (const long held = unusable.takeHeld(); held > 0)
    tev::log << "CommObj::run() - messages dropped without a line: " << held << tev::endl;
  return true;
}

} // namespace

int CommObj::_sNextMsgQKey = 87654;

std::map<unsigned long, CommObj*>& CommObj::_sTid2CommObj() {
  static Immortal<std::map<unsigned long, CommObj*>> endpoints;
  return *endpoints;
}

std::map<std::string, unsigned long>& CommObj::_sTaskName2Tid() {
  static Immortal<std::map<std::string, unsigned long>> ids;
  return *ids;
}

void CommObj::SetKey(int key) { _sNextMsgQKey = key; }

int CommObj::NextMsgQKey() { return ++_sNextMsgQKey; }

// ---- Life

CommObj::CommObj(const char* taskName, bool ownQueueOnly)
    : _queueKey(NextMsgQKey()), _queueId(obtainQueue(_queueKey, ownQueueOnly, _queueOrigin)) {
  if (_queueId < 0) {
    tev::log << "error: cannot create msgQ: " << _queueId << tev::endl;
    return;
  }
  _taskId = static_cast<unsigned long>(_queueId);
  (void)std::snprintf(_taskName, sizeof _taskName, "%s", taskName); // cut on purpose
  _queueOut = MsgQOutStream(_queueId);
  tev::log << "Creating Task: " << _taskName << "(" << static_cast<unsigned int>(_taskId) << ")"
           << " with msgqid: " << _queueId << tev::endl;
  enterTables();
  openPipe();
  _syncMutex = krMutexCreate();
  if (_syncMutex == nullptr) {
    tev::log << "error: cannot create mutex for tid: " << static_cast<unsigned int>(_taskId) << tev::endl;
  }
}

// In both tables or, when memory runs out, in none.
void CommObj::enterTables() {
  std::map<unsigned long, CommObj*> endpoint{{_taskId, this}};
  std::map<std::string, unsigned long> id{{_taskName, _taskId}};
  // From here on nothing can fail. The newest entry counts.
  _sTid2CommObj().erase(_taskId);
  _sTid2CommObj().merge(endpoint);
  _sTaskName2Tid().erase(_taskName);
  _sTaskName2Tid().merge(id);
}

void CommObj::openPipe() {
  (void)std::snprintf(_pipeName, sizeof _pipeName, protocol::replyPipeFormat, _taskName, static_cast<int>(_taskId));
  // An earlier process may have left its pipe, another user may have created something. If it cannot be removed, mkfifo
  // fails.
  if (unlink(_pipeName) != 0 && errno == EISDIR) (void)rmdir(_pipeName);
  if (mkfifo(_pipeName, 0660) != 0) {
    tev::log << "error: cannot create named pipe: " << _pipeName << tev::endl;
    return;
  }
  // For reading and writing: the open waits for no peer, and the pipe always has a writer.
  const int fd = ::openPipe(_pipeName);
  if (fd < 0) {
    tev::log << "error: cannot open named pipe: " << _pipeName << tev::endl;
    return;
  }
  _pipeFd = fd;
  _pipeOut = PipeOutStream(fd);
}

CommObj::~CommObj() {
  kill(); // the thread must have left this object before any of it is destroyed
  if (_queueId > 0 && msgctl(_queueId, IPC_RMID, nullptr) != 0) {
    tev::log << "error: cannot remove msgQ: " << _queueId << tev::endl;
  }
  if (_pipeFd > 0) {
    (void)close(_pipeFd); // nothing to lose: the pipe is removed as well
    if (unlink(_pipeName) != 0) tev::log << "error: cannot remove named pipe: " << _pipeName << tev::endl;
  }
  krMutexDestroy(_syncMutex);
}

void CommObj::go(int priority, int stackSize) { start(_taskName, priority, stackSize); }

void CommObj::StopAll() {
  // A thread may still use the tables and, by them, any endpoint.
  for (const auto& [taskId, endpoint] : _sTid2CommObj())
    endpoint->kill();
  for (const auto& [taskId, endpoint] : _sTid2CommObj())
    delete endpoint;
  _sTid2CommObj().clear();
  _sTaskName2Tid().clear();
}

// ---- Receiving

void CommObj::run() { runWhile(nullptr); }

// Nothing with a destructor in this frame: the thread arrives here with asynchronous cancellation enabled.
KR_UNWOUND_BY_CANCELLATION void CommObj::runWhile(bool (*goOn)()) {
  const kr::CancelSetting before = kr::disableCancellation();
  receiveLoop(before.state, goOn);
  kr::restoreCancellation(before);
}

[[gnu::noinline]] KR_UNWOUND_BY_CANCELLATION void CommObj::receiveLoop(int cancelState, bool (*goOn)()) {
  const BlockingState handlers(cancelState);
  _pid = static_cast<uint16_t>(getpid());
  FloodGate unusable; // messages without a use
  char buffer[msgTypeSize + msgTextMax] = {};
  while (goOn == nullptr || goOn()) {
    if (receiveFromQueue(_queueId, buffer) < 0) {
      if (!handleReceiveFailure(errno, unusable)) return;
      continue;
    }
    const std::unique_ptr<MsgObj> message(MsgObj::Decode(buffer));
    if (message != nullptr)
      message->InvokeHandler(this);
    else if (mayLog(unusable))
      MsgObj::LogUndecodable(buffer);
  }
}

// Returns whether to go on receiving. Whatever happens, the loop does not spin.
bool CommObj::handleReceiveFailure(int reason, FloodGate& unusable) {
  switch (reason) {
  case EINTR:
    return true;
  case E2BIG: // it would stay at the head of the queue
    if (mayLog(unusable))
      tev::log << "CommObj::run() - dropping an oversized message from msgQ: " << _queueId << tev::endl;
    (void)dropFromQueue(_queueId); // fails only if the queue is gone, which the next receive reports
    return true;
  case EIDRM:
  case EINVAL:
    tev::log << "CommObj::run() - msgQ is gone: " << _queueId << tev::endl;
    return false;
  default:
    tev::log << "CommObj::run() - cannot receive from msgQ: " << _queueId << ", errno= " << reason << tev::endl;
    (void)krThreadSuspend(1000); // an interrupted pause only makes the next try earlier
    return true;
  }
}

int CommObj::ReceiveAsync(unsigned long srcTid, MsgObj* message, int) {
  if (TaskId2CommObj(srcTid) != nullptr) message->stream(_queueOut);
  return 0;
}

int CommObj::ReceiveSync(unsigned long srcTid, MsgObj* message, int) {
  if (TaskId2CommObj(srcTid) != nullptr) message->stream(_pipeOut);
  return 0;
}

// ---- Synchronous exchanges

MsgObj* CommObj::Exchange(MsgObj& request, CommObj* local) {
  MsgObj* reply = nullptr;
  {
    const SyncHeld held(*this);
    SyncClean();
    if (local != nullptr) {
      local->ReceiveAsync(request.GetSrcTid(), &request, static_cast<int>(request.size()));
      return ReadReplyMsg(&request);
    }
    MsgQOutStream queue(static_cast<int>(request.GetDstTid()));
    request.stream(queue);
    tev::log << "MsgObj::send()[isReqSyncMsg/remote] - before pSourceCommObj->ReadReplyMsg(...)" << tev::endl;
    reply = ReadReplyMsg(&request);
    tev::log << "MsgObj::send()[isReqSyncMsg/remote] - pSourceCommObj->ReadReplyMsg(...) returned: " << tev::hex
             << static_cast<void*>(reply) << tev::dec << tev::endl;
  }
  tev::log << "MsgObj::send()[isReqSyncMsg/remote] - after pSourceCommObj->ReadReplyMsg(...)" << tev::endl;
  return reply;
}

void CommObj::SyncLock() {
  const auto lock = [this](int timeoutMs) {
    return krMutexLockDebug(_syncMutex, timeoutMs, "CommObj", 191, "void CommObj::SyncLock()", "");
  };
  if (lock(KR_NO_WAIT) != 0) (void)BlockingState::block([&] { return lock(KR_WAIT_FOREVER); });
}

void CommObj::SyncUnLock() { (void)krMutexUnlock(_syncMutex); }

void CommObj::SyncClean() {
  if (waitReadable(_pipeFd, drainCheckMs) <= 0) return;
  tev::log << "flushing data from pipe: " << _pipeName << tev::endl;
  (void)readAvailable(_pipeFd, sinkbuffer, sizeof sinkbuffer);
}

MsgObj* CommObj::ReadReplyMsg(MsgObj* request) {
  MsgObj* reply = request->CreateResponse();
  if (reply == nullptr) {
    tev::log << "pRespMsg==0" << tev::endl;
  } else if (!readReply(*reply)) {
    delete reply;
    reply = nullptr;
  }
  tev::log << "CommObj::ReadReplyMsg(...) - returning pRespMsg = " << tev::hex << static_cast<void*>(reply) << tev::dec
           << tev::endl
           << tev::endl;
  return reply;
}

// Fills `reply` from the pipe. False if that did not work out, which is logged.
bool CommObj::readReply(MsgObj& reply) {
  const int ready = waitReadable(_pipeFd, protocol::replyTimeoutMs);
  if (ready < 0) {
    const int reason = errno;
    tev::log << "CommObj::ReadReplyMsg(): select(...) error: errno= " << reason << tev::endl;
    return false;
  }
  if (ready == 0) {
    tev::log << "timed out waiting on reply of msgType: " << static_cast<int>(reply.GetMsgType()) << tev::endl;
    return false;
  }
  const size_t size = reply.size();
  // A reply larger than the image of a message cannot be read.
  const size_t got = size <= sizeof(MsgImage) ? readAvailable(_pipeFd, reply.image(), size) : 0;
  const size_t missing = size - got;
  if (missing > 0) {
    tev::log << "couldn't get all the expected data, size=" << static_cast<unsigned int>(size)
             << ", left=" << static_cast<unsigned int>(missing) << tev::endl;
    return false;
  }
  return true;
}

// ---- The tables

CommObj* CommObj::TaskId2CommObj(unsigned long taskId) {
  const auto found = _sTid2CommObj().find(taskId);
  return found != _sTid2CommObj().end() ? found->second : nullptr;
}

unsigned long CommObj::TaskName2TaskId(const char* taskName) {
  const auto found = _sTaskName2Tid().find(taskName);
  if (found != _sTaskName2Tid().end()) return found->second;
  tev::log << "CommObj::TaskName2TaskId(...) - did not find task: " << taskName << tev::endl;
  return 0;
}

CommObj* CommObj::TaskName2Handle(const char* taskName) {
  // An unknown name gives the id 0, which the first queue of a system can have.
  const bool known = _sTaskName2Tid().count(taskName) > 0;
  CommObj* endpoint = TaskId2CommObj(TaskName2TaskId(taskName));
  return known ? endpoint : nullptr;
}

void CommObj::ShowTable() {
  kr::uncancelled([] {
    constexpr const char* doubleRule = "==============================================";
    constexpr const char* rule = "----------------------------------------------";
    constexpr size_t nameColumns = 24;
    tev::log << doubleRule << tev::endl;
    tev::log << "CommObj Task Table: " << tev::endl;
    tev::log << rule << tev::endl;
    tev::log << "TASKNAME                TID/PID     MSGQID    " << tev::endl;
    tev::log << rule << tev::endl;
    for (const auto& [taskId, endpoint] : _sTid2CommObj()) {
      const size_t length = std::strlen(endpoint->_taskName);
      char padding[nameColumns] = {};
      if (length >= 1 && length < nameColumns - 1) std::memset(padding, ' ', nameColumns - length);
      tev::log << endpoint->_taskName << padding << static_cast<unsigned int>(taskId) << "/"
               << static_cast<int>(endpoint->GetPid()) << "       " << endpoint->_queueId << tev::endl;
    }
    tev::log << doubleRule << tev::endl;
  });
}
