#include "messaging/ProxyCommObj.h"

#include "messaging/CommObj.h"
#include "messaging/MsgObj.h"
#include "messaging/Protocol.h"

#include <cstring>

namespace {

constexpr size_t consolePrefix = 4; // characters of a task name that are compared
constexpr size_t servicePrefix = 12;

int queueIdOf(const char* taskName) {
  using namespace protocol;
  if (std::strncmp(taskName, consoleTask, consolePrefix) == 0)
    return static_cast<int>(CommObj::TaskName2TaskId(consoleTask));
  if (std::strncmp(taskName, streamTask, servicePrefix) == 0) return streamQueueId;
  if (std::strncmp(taskName, videoTask, servicePrefix) == 0) return videoQueueId;
  return adminQueueId; // any other name
}

} // namespace

ProxyCommObj::ProxyCommObj(const char* taskName) : _queue(queueIdOf(taskName)) {}

ProxyCommObj::ProxyCommObj(MsgQOutStream& queue) : _queue(queue) {}

int ProxyCommObj::Receive(MsgObj* message) {
  if (message != nullptr) message->stream(_queue);
  return 0;
}
