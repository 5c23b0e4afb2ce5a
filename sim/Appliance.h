// What requests to the service tasks do: video input, snapshots, stream, administration. The tasks themselves only
// forward messages to this class and send its replies.
#ifndef TEV_SIM_APPLIANCE_H
#define TEV_SIM_APPLIANCE_H

#include "messaging/Protocol.h"
#include "sim/BoardLog.h"

#include <array>
#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace sim {

struct ServiceTask {
  const char* name;
  int queueId; // fixed, and known to all senders
  int queueKey;
};
inline constexpr std::array<ServiceTask, 3> serviceTasks = {
    {{protocol::videoTask, protocol::videoQueueId, protocol::videoQueueKey},
     {protocol::streamTask, protocol::streamQueueId, protocol::streamQueueKey},
     {protocol::adminTask, protocol::adminQueueId, protocol::adminQueueKey}}};

/// The exit status of a task that ends because of ServiceFault::dies.
constexpr int injectedDeathStatus = 42;

inline constexpr char snapshotPath[] = "/opt/tev/user/snapshots";
inline constexpr char firmwareVersion[] = "v" TEV_SIM_FIRMWARE;

/// One word of a message's payload.
struct PayloadWord {
  std::string name;
  unsigned value;
};
using Payload = std::vector<PayloadWord>;

/// Returns " name=value" for each word.
std::string textOf(const Payload& payload);

/// The first word of a reply.
enum class RequestStatus { done = 0, refused = 1, notMine = 2, failed = 3 };

struct VideoResolution {
  unsigned horizontal = 1280;
  unsigned vertical = 720;
  unsigned qualifier = protocol::qualifier::progressive;
  unsigned hertz = 30;

  std::string text() const;
  bool isSupported() const;
  /// The television standard with this many lines: 1 NTSC, 2 PAL, 0 none.
  unsigned standard() const;
};

struct Snapshot {
  unsigned slot;
  std::string size;
  std::string time; // of day
};

enum class Restart { none, plain, configuration, firmware };

class Appliance {
public:
  /// Logs changes to `log`, which must outlive the appliance, and stores snapshots in `directory`.
  Appliance(BoardLog& log, std::string directory) : _log(log), _snapshotDirectory(std::move(directory)) {}

  /// Handles a message that a service task received; `id` is its protocol::MessageId. Returns the payload of the reply,
  /// which is empty for a message without a reply.
  Payload serve(std::string_view task, uint16_t id, const Payload& payload);

  /// Returns the restart that the last request asked for, and forgets it. The caller restarts after it has
  /// logged the reply.
  [[nodiscard]] Restart takeRestart() { return std::exchange(_restart, Restart::none); }

  /// Sets all settings to their defaults.
  void restoreDefaults();

  /// The bits of protocol::streamType.
  unsigned stream() const { return _stream; }
  void stopStream() { _stream = 0; }
  const char* streamText() const;

  const char* format() const;
  const char* audioSource() const;
  const VideoResolution& resolution() const { return _settings.resolution; }
  bool logging() const { return _settings.logging; }
  /// The stored snapshots, latest first; one per slot.
  const std::vector<Snapshot>& snapshots() const { return _snapshots; }

private:
  struct Settings {
    unsigned format = protocol::videoMode::hdmi;
    VideoResolution resolution;
    unsigned audioSource = protocol::audioSource::digital;
    bool logging = true;
  };
  struct Handler;
  static const std::vector<Handler>& handlers();

  RequestStatus setVideoMode(const Payload& payload);
  RequestStatus getVideoResolution(const Payload& payload);
  RequestStatus setVideoResolution(const Payload& payload);
  RequestStatus takeSnapshot(const Payload& payload);
  RequestStatus setAudioSource(const Payload& payload);
  RequestStatus controlStream(const Payload& payload);
  RequestStatus controlAdmin(const Payload& payload);
  RequestStatus setLogging(const Payload& payload);
  void change(const Settings& settings);

  BoardLog& _log;
  std::string _snapshotDirectory;
  Settings _settings;
  unsigned _stream = 0;
  Restart _restart = Restart::none;
  std::vector<Snapshot> _snapshots;
};

} // namespace sim

#endif
