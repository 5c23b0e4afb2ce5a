// The stream service of the appliance, in small. It answers `stream start` and `stream stop` of the console, shows on
// GPIO 26 whether anything is streamed, which is what `stream` asks for, and logs through a tree of loggers.
//
// SIGTERM ends it: it answers what is in its queue, and removes the queue and its pipe.
#include "log/tevlog.h"
#include "messaging/Protocol.h"
#include "messaging/Service.h"
#include "messaging/StreamControlReqMsg.h"
#include "platform/krFile.h"
#include "platform/krLog.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {

constexpr char traceLog[] = "/tmp/stream.log";
constexpr char gpio[] = "/sys/class/gpio/gpio26/value";

/// What the responses say.
constexpr unsigned short done = 0;
constexpr unsigned short refused = 1;
constexpr unsigned short failed = 3;

/// Printers get every message of their logger and of all loggers below it.
void printToTraceLog(const char* message) { tev::log << message << tev::endl; }

/// The loggers "stream", "stream.audio" and "stream.video". What the first one has, the others inherit.
struct Loggers {
  Loggers() {
    krLogAddPrinter(stream, "trace", printToTraceLog);
    krLogSetLevel(video, KR_LOG_DEBUG);
  }
  KrLogger* const stream = krLogGetLogger("stream");
  KrLogger* const audio = krLogGetLogger("stream.audio");
  KrLogger* const video = krLogGetLogger("stream.video");
};

class Streamer {
public:
  /// Starts or stops some of the streams. Returns the status of the response.
  unsigned short control(unsigned control, unsigned types) {
    using namespace protocol;
    const bool starts = control == streamControl::start;
    if ((!starts && control != streamControl::stop) || types == 0 || (types & ~unsigned{streamType::both}) != 0) {
      krWarn(_loggers.stream, "control %u of streams %u: there is no such request", control, types);
      return refused;
    }
    if ((types & streamType::audio) != 0) krDebug(_loggers.audio, "audio %s", starts ? "starts" : "stops");
    if ((types & streamType::video) != 0) krDebug(_loggers.video, "video %s", starts ? "starts" : "stops");
    _running = starts ? _running | types : _running & ~types;
    return show() ? done : failed;
  }

  /// Shows on the GPIO whether a stream runs. False if that fails.
  bool show() const {
    const char* const value = _running != 0 ? "1" : "0";
    if (krWriteToSysFile(gpio, value) > 0) return true;
    krError(_loggers.stream, "%s cannot be set to %s: %s", gpio, value, std::strerror(errno));
    return false;
  }

private:
  Loggers _loggers;
  unsigned _running = 0; ///< bits of protocol::streamType
};

} // namespace

int main() {
  tev::initlog(traceLog);
  tev::log << tev::enable;

  Service service(protocol::streamTask, protocol::streamQueueId, protocol::streamQueueKey);
  if (service.Failure() != 0) {
    std::fprintf(stderr, "%s cannot have its queue: %s\n", protocol::streamTask, std::strerror(service.Failure()));
    return EXIT_FAILURE;
  }
  Streamer streamer;
  service.Handle<StreamControlReqMsg>([&](const StreamControlReqMsg& request, StreamControlRespMsg& response) {
    response.SetStatus(streamer.control(request.GetControl(), request.GetType()));
  });
  if (service.Run() != 0) {
    std::fprintf(stderr, "%s has lost its queue: %s\n", protocol::streamTask, std::strerror(errno));
    return EXIT_FAILURE;
  }
  streamer.control(protocol::streamControl::stop, protocol::streamType::both);
  return EXIT_SUCCESS;
}
