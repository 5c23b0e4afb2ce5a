#include "sim/Appliance.h"
#include "sim/ColourBars.h"

#include <algorithm>
#include <cstring>

namespace sim {

namespace {

constexpr const char* FORMATS[] = {"", "svideo", "composite", "component", "vga", "svga", "xga", "wxga", "dvi", "hdmi"};
constexpr const char* AUDIO_SOURCES[] = {"", "digital", "analog"};
constexpr const char* STREAMS[] = {"off", "audio", "video", "both"};
constexpr unsigned SLOTS = 16;
constexpr unsigned FULL_SCALE = 8;
constexpr unsigned ALL_COMPONENTS = 255;

// Whether `number` is that of a name other than the first.
template <size_t N>
bool isNamed(unsigned number, const char* const (&)[N]) {
  return number >= 1 && number < N;
}

unsigned valueOf(const Fields& fields, const char* name) {
  const auto field = std::find_if(fields.begin(), fields.end(), [&](const Field& f) { return f.name == name; });
  return field != fields.end() ? field->value : 0;
}

} // namespace

std::string textOf(const Fields& fields) {
  std::string text;
  for (const Field& field : fields)
    text += " " + field.name + "=" + std::to_string(field.value);
  return text;
}

std::string Resolution::text() const {
  return std::to_string(horizontal) + "x" + std::to_string(vertical) + (qualifier == 1 ? "p@" : "i@") +
         std::to_string(hertz);
}

bool Resolution::isPossible() const {
  const bool picture = horizontal >= 1 && horizontal <= 1920 && vertical >= 1 && vertical <= 1200;
  return picture && (qualifier == 1 || qualifier == 2) && hertz >= 1 && hertz <= 60;
}

unsigned Resolution::standard() const {
  if (horizontal != 720) return 0;
  return vertical == 480 || vertical == 488 ? 1 : vertical == 576 ? 2 : 0;
}

struct Appliance::Request {
  const char* task;
  const char* name;
  Status (Appliance::*serve)(const Fields&);
};

const std::vector<Appliance::Request>& Appliance::requests() {
  static const std::vector<Request> all = {
      {"tVideoPhalTask", "SetVideoModeReqMsg", &Appliance::setVideoMode},
      {"tVideoPhalTask", "GetVideoResolutionReqMsg", &Appliance::getVideoResolution},
      {"tVideoPhalTask", "SetVideoResolutionReqMsg", &Appliance::setVideoResolution},
      {"tVideoPhalTask", "TakeSnapshotReqMsg", &Appliance::takeSnapshot},
      {"tVideoPhalTask", "SetAudioSourceReqMsg", &Appliance::setAudioSource},
      {"tStreamAppTask", "StreamControlReqMsg", &Appliance::controlStream},
      {"tAdminAppTask", "AdminControlReqMsg", &Appliance::controlAdmin},
      {"tAdminAppTask", "SetLoggingModeReqMsg", &Appliance::setLogging},
  };
  return all;
}

Fields Appliance::serve(const std::string& task, const std::string& name, const Fields& fields) {
  const auto& known = requests();
  const auto request = std::find_if(known.begin(), known.end(), [&](const Request& r) { return name == r.name; });
  if (request == known.end()) return {}; // a reply that nobody has asked for
  const Status status = task == request->task ? (this->*request->serve)(fields) : Status::NOT_MINE;
  if (name == "SetLoggingModeReqMsg") return {};
  Fields reply = {{"status", static_cast<unsigned>(status)}};
  if (name == "GetVideoResolutionReqMsg") {
    const Resolution shown = status == Status::DONE ? _settings.resolution : Resolution{0, 0, 0, 0};
    reply.insert(reply.end(), {{"horizontal", shown.horizontal},
                               {"vertical", shown.vertical},
                               {"qualifier", shown.qualifier},
                               {"hertz", shown.hertz},
                               {"sdp_std", shown.standard()}});
  }
  return reply;
}

// Tells only what is different.
void Appliance::change(const Settings& settings) {
  const Settings before = std::exchange(_settings, settings);
  if (settings.format != before.format) _log.add(std::string("format ") + format());
  if (settings.resolution.text() != before.resolution.text()) _log.add("resolution " + settings.resolution.text());
  if (settings.audioSource != before.audioSource) _log.add(std::string("audio source ") + audioSource());
  if (settings.logging != before.logging) _log.add(settings.logging ? "logging on" : "logging off");
}

void Appliance::restoreDefaults() { change(Settings()); }

const char* Appliance::streamText() const { return STREAMS[_stream]; }
const char* Appliance::format() const { return FORMATS[_settings.format]; }
const char* Appliance::audioSource() const { return AUDIO_SOURCES[_settings.audioSource]; }

// ---- tVideoPhalTask

Status Appliance::setVideoMode(const Fields& fields) {
  Settings settings = _settings;
  settings.format = valueOf(fields, "mode");
  if (!isNamed(settings.format, FORMATS)) return Status::REFUSED;
  change(settings);
  return Status::DONE;
}

Status Appliance::getVideoResolution(const Fields&) { return Status::DONE; }

Status Appliance::setVideoResolution(const Fields& fields) {
  Settings settings = _settings;
  settings.resolution = {valueOf(fields, "horizontal"), valueOf(fields, "vertical"), valueOf(fields, "qualifier"),
                         valueOf(fields, "hertz")};
  if (!settings.resolution.isPossible()) return Status::REFUSED;
  change(settings);
  return Status::DONE;
}

Status Appliance::takeSnapshot(const Fields& fields) {
  const unsigned slot = valueOf(fields, "slot");
  const unsigned scale = valueOf(fields, "scale");
  if (slot < 1 || slot > SLOTS || scale < 1 || scale > FULL_SCALE) return Status::REFUSED;
  const unsigned width = std::max(1U, _settings.resolution.horizontal * scale / FULL_SCALE);
  const unsigned height = std::max(1U, _settings.resolution.vertical * scale / FULL_SCALE);
  const std::string path = _folder + (slot < 10 ? "/slot0" : "/slot") + std::to_string(slot) + ".jpg";
  if (const int error = storeColourBars(path, width, height); error != 0) {
    _log.add("snapshot slot " + std::to_string(slot) + " -> " + strerrorname_np(error));
    return Status::FAILED;
  }
  const Snapshot taken{slot, std::to_string(width) + "x" + std::to_string(height), timeOfDay()};
  const auto same = [slot](const Snapshot& other) { return other.slot == slot; };
  _snapshots.erase(std::remove_if(_snapshots.begin(), _snapshots.end(), same), _snapshots.end());
  _snapshots.insert(_snapshots.begin(), taken);
  _log.add("snapshot slot " + std::to_string(slot) + " " + taken.size);
  return Status::DONE;
}

Status Appliance::setAudioSource(const Fields& fields) {
  Settings settings = _settings;
  settings.audioSource = valueOf(fields, "audiosrc");
  if (!isNamed(settings.audioSource, AUDIO_SOURCES)) return Status::REFUSED;
  change(settings);
  return Status::DONE;
}

// ---- tStreamAppTask

Status Appliance::controlStream(const Fields& fields) {
  const unsigned control = valueOf(fields, "control");
  const unsigned type = valueOf(fields, "type");
  if ((control != 1 && control != 2) || !isNamed(type, STREAMS)) return Status::REFUSED;
  _stream = control == 1 ? _stream | type : _stream & ~type;
  return Status::DONE;
}

// ---- tAdminAppTask

Status Appliance::controlAdmin(const Fields& fields) {
  switch (valueOf(fields, "control")) {
  case 1:
    _restart = Restart::PLAIN;
    return Status::DONE;
  case 4:
    _restart = Restart::CONFIGURATION;
    return Status::DONE;
  case 5:
    _restart = Restart::FIRMWARE;
    return Status::DONE;
  default:
    return Status::REFUSED;
  }
}

Status Appliance::setLogging(const Fields& fields) {
  Settings settings = _settings;
  settings.logging = valueOf(fields, "onoff") != 0;
  if (valueOf(fields, "onoff") > 1 || valueOf(fields, "component") != ALL_COMPONENTS) return Status::REFUSED;
  change(settings);
  return Status::DONE;
}

} // namespace sim
