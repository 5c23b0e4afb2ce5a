#include "messaging/ProxyCommObj.h"

#include "messaging/CommObj.h"
#include "messaging/MsgObj.h"

#include <cstring>

namespace {

// The queue ids under which the services of the appliance can be reached.
constexpr int streamAppQueueId = 229383;
constexpr int videoPhalQueueId = 98307;
constexpr int otherQueueId = 0; // the administration service's too

int queueIdOf(const char* taskName) {
  if (std::strncmp(taskName, "tCliAppTask", 4) == 0) return static_cast<int>(CommObj::TaskName2TaskId("tCliAppTask"));
  if (std::strncmp(taskName, "tStreamAppTask", 12) == 0) return streamAppQueueId;
  if (std::strncmp(taskName, "tVideoPhalTask", 12) == 0) return videoPhalQueueId;
  return otherQueueId;
}

} // namespace

ProxyCommObj::ProxyCommObj(const char* taskName) : _queue(queueIdOf(taskName)) {}

ProxyCommObj::ProxyCommObj(MsgQOutStream& queue) : _queue(queue) {}

int ProxyCommObj::Receive(MsgObj* message) {
  if (message != nullptr) message->stream(_queue);
  return 0;
}
