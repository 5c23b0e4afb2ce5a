// What the service tasks of the board do: video input, snapshots, stream, administration. The tasks themselves only
// carry the messages here and the answers back.
#ifndef TEV_SIM_APPLIANCE_H
#define TEV_SIM_APPLIANCE_H

#include "messaging/Protocol.h"
#include "sim/BoardLog.h"

#include <array>
#include <string>
#include <vector>

namespace sim {

struct ServiceTask {
  const char* name;
  int queueId; // the number that its users know
  int queueKey;
};
inline constexpr std::array<ServiceTask, 3> serviceTasks = {{{protocol::videoTask, protocol::videoQueueId, 153001},
                                                             {protocol::streamTask, protocol::streamQueueId, 153002},
                                                             {protocol::adminTask, protocol::adminQueueId, 153003}}};

/// The exit status of a task that a ServiceFault::dies has ended.
constexpr int injectedDeathStatus = 42;
/// The id of the message that ends a task: what was sent to it before has been served by then.
constexpr unsigned short endMessageId = 65534;

inline constexpr char snapshotPath[] = "/opt/tev/user/snapshots";
inline constexpr char firmwareVersion[] = "v" TEV_SIM_FIRMWARE;

/// The payload of a message.
struct Field {
  std::string name;
  unsigned value;
};
using Fields = std::vector<Field>;

/// " name=value" for each of them.
std::string textOf(const Fields& fields);

/// The first field of a reply.
enum class Status { done = 0, refused = 1, notMine = 2, failed = 3 };

struct Resolution {
  unsigned horizontal = 1280;
  unsigned vertical = 720;
  unsigned qualifier = protocol::qualifier::progressive;
  unsigned hertz = 30;

  std::string text() const;
  bool isPossible() const;
  /// The television standard that has so many lines: 1 NTSC, 2 PAL, 0 none.
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
  /// Tells what changes in `log`, which must outlive the appliance, and keeps snapshots in `folder`.
  Appliance(BoardLog& log, std::string folder) : _log(log), _folder(std::move(folder)) {}

  /// Acts on a message that reached a service task; `id` is its protocol::MessageId. Returns the fields of the reply,
  /// none where nothing answers.
  Fields serve(const std::string& task, uint16_t id, const Fields& fields);

  /// The restart that the last request asked for. It is to happen once the reply is out.
  Restart takeRestart() { return std::exchange(_restart, Restart::none); }

  /// Puts the settings back to what they were when the board was made.
  void restoreDefaults();

  /// The bits of protocol::streamType.
  unsigned stream() const { return _stream; }
  void stopStream() { _stream = 0; }
  const char* streamText() const;

  const char* format() const;
  const char* audioSource() const;
  const Resolution& resolution() const { return _settings.resolution; }
  bool logging() const { return _settings.logging; }
  /// Those that can be looked at, the latest first.
  const std::vector<Snapshot>& snapshots() const { return _snapshots; }

private:
  struct Settings {
    unsigned format = protocol::videoMode::hdmi;
    Resolution resolution;
    unsigned audioSource = protocol::audioSource::digital;
    bool logging = true;
  };
  struct Request;
  static const std::vector<Request>& requests();

  Status setVideoMode(const Fields& fields);
  Status getVideoResolution(const Fields& fields);
  Status setVideoResolution(const Fields& fields);
  Status takeSnapshot(const Fields& fields);
  Status setAudioSource(const Fields& fields);
  Status controlStream(const Fields& fields);
  Status controlAdmin(const Fields& fields);
  Status setLogging(const Fields& fields);
  void change(const Settings& settings);

  BoardLog& _log;
  std::string _folder;
  Settings _settings;
  unsigned _stream = 0;
  Restart _restart = Restart::none;
  std::vector<Snapshot> _snapshots;
};

} // namespace sim

#endif
