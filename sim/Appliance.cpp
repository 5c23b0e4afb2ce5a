#include "sim/Appliance.h"
#include "sim/ColourBars.h"

#include <algorithm>
#include <cstring>

namespace sim {

namespace {

// A value of a payload word, and its name on the board.
struct Named {
  unsigned value;
  const char* name;
};
constexpr Named formats[] = {
    {protocol::videoMode::svideo, "svideo"},       {protocol::videoMode::composite, "composite"},
    {protocol::videoMode::component, "component"}, {protocol::videoMode::vga, "vga"},
    {protocol::videoMode::svga, "svga"},           {protocol::videoMode::xga, "xga"},
    {protocol::videoMode::wxga, "wxga"},           {protocol::videoMode::dvi, "dvi"},
    {protocol::videoMode::hdmi, "hdmi"},
};
constexpr Named audioSources[] = {
    {protocol::audioSource::digital, "digital"},
    {protocol::audioSource::analog, "analog"},
};
constexpr unsigned noStream = 0;
constexpr Named streams[] = {
    {noStream, "off"},
    {protocol::streamType::audio, "audio"},
    {protocol::streamType::video, "video"},
    {protocol::streamType::both, "both"},
};

// The name of `value`; null if it has none.
template <size_t N>
const char* nameOf(unsigned value, const Named (&all)[N]) {
  const auto* const found = std::find_if(all, all + N, [&](const Named& named) { return named.value == value; });
  return found != all + N ? found->name : nullptr;
}

bool isWithin(unsigned value, unsigned first, unsigned last) { return value >= first && value <= last; }

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
  return std::to_string(horizontal) + "x" + std::to_string(vertical) +
         (qualifier == protocol::qualifier::progressive ? "p@" : "i@") + std::to_string(hertz);
}

bool Resolution::isPossible() const {
  using namespace protocol::qualifier;
  return isWithin(horizontal, 1, 1920) && isWithin(vertical, 1, 1200) &&
         (qualifier == progressive || qualifier == interlaced) && isWithin(hertz, 1, 60);
}

unsigned Resolution::standard() const {
  if (horizontal != 720) return 0;
  return vertical == 480 || vertical == 488 ? 1 : vertical == 576 ? 2 : 0;
}

struct Appliance::Request {
  uint16_t id;
  const char* task;
  Status (Appliance::*serve)(const Fields&);
};

const std::vector<Appliance::Request>& Appliance::requests() {
  static const std::vector<Request> all = {
      {protocol::setVideoModeReq, protocol::videoTask, &Appliance::setVideoMode},
      {protocol::getVideoResolutionReq, protocol::videoTask, &Appliance::getVideoResolution},
      {protocol::setVideoResolutionReq, protocol::videoTask, &Appliance::setVideoResolution},
      {protocol::takeSnapshotReq, protocol::videoTask, &Appliance::takeSnapshot},
      {protocol::setAudioSourceReq, protocol::videoTask, &Appliance::setAudioSource},
      {protocol::streamControlReq, protocol::streamTask, &Appliance::controlStream},
      {protocol::adminControlReq, protocol::adminTask, &Appliance::controlAdmin},
      {protocol::setLoggingModeReq, protocol::adminTask, &Appliance::setLogging},
  };
  return all;
}

Fields Appliance::serve(const std::string& task, uint16_t id, const Fields& fields) {
  const auto& known = requests();
  const auto request = std::find_if(known.begin(), known.end(), [&](const Request& r) { return id == r.id; });
  if (request == known.end()) return {}; // a reply that nobody has asked for
  const Status status = task == request->task ? (this->*request->serve)(fields) : Status::notMine;
  if (id == protocol::setLoggingModeReq) return {};
  Fields reply = {{"status", static_cast<unsigned>(status)}};
  if (id == protocol::getVideoResolutionReq) {
    const Resolution shown = status == Status::done ? _settings.resolution : Resolution{0, 0, 0, 0};
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

const char* Appliance::streamText() const { return nameOf(_stream, streams); }
const char* Appliance::format() const { return nameOf(_settings.format, formats); }
const char* Appliance::audioSource() const { return nameOf(_settings.audioSource, audioSources); }

// ---- The video task

Status Appliance::setVideoMode(const Fields& fields) {
  Settings settings = _settings;
  settings.format = valueOf(fields, "mode");
  if (nameOf(settings.format, formats) == nullptr) return Status::refused;
  change(settings);
  return Status::done;
}

Status Appliance::getVideoResolution(const Fields&) { return Status::done; }

Status Appliance::setVideoResolution(const Fields& fields) {
  Settings settings = _settings;
  settings.resolution = {valueOf(fields, "horizontal"), valueOf(fields, "vertical"), valueOf(fields, "qualifier"),
                         valueOf(fields, "hertz")};
  if (!settings.resolution.isPossible()) return Status::refused;
  change(settings);
  return Status::done;
}

Status Appliance::takeSnapshot(const Fields& fields) {
  using namespace protocol::snapshot;
  const unsigned slot = valueOf(fields, "slot");
  const unsigned scale = valueOf(fields, "scale");
  if (!isWithin(slot, firstSlot, lastSlot) || !isWithin(scale, smallestScale, fullScale)) return Status::refused;
  const unsigned width = std::max(1U, _settings.resolution.horizontal * scale / fullScale);
  const unsigned height = std::max(1U, _settings.resolution.vertical * scale / fullScale);
  const std::string path = _folder + (slot < 10 ? "/slot0" : "/slot") + std::to_string(slot) + ".jpg";
  if (const int error = storeColourBars(path, width, height); error != 0) {
    _log.add("snapshot slot " + std::to_string(slot) + " -> " + strerrorname_np(error));
    return Status::failed;
  }
  const Snapshot taken{slot, std::to_string(width) + "x" + std::to_string(height), timeOfDay()};
  const auto same = [slot](const Snapshot& other) { return other.slot == slot; };
  _snapshots.erase(std::remove_if(_snapshots.begin(), _snapshots.end(), same), _snapshots.end());
  _snapshots.insert(_snapshots.begin(), taken);
  _log.add("snapshot slot " + std::to_string(slot) + " " + taken.size);
  return Status::done;
}

Status Appliance::setAudioSource(const Fields& fields) {
  Settings settings = _settings;
  settings.audioSource = valueOf(fields, "audiosrc");
  if (nameOf(settings.audioSource, audioSources) == nullptr) return Status::refused;
  change(settings);
  return Status::done;
}

// ---- The stream task

Status Appliance::controlStream(const Fields& fields) {
  using namespace protocol::streamControl;
  const unsigned control = valueOf(fields, "control");
  const unsigned type = valueOf(fields, "type");
  if ((control != start && control != stop) || type == noStream || nameOf(type, streams) == nullptr) {
    return Status::refused;
  }
  _stream = control == start ? _stream | type : _stream & ~type;
  return Status::done;
}

// ---- The administration task

Status Appliance::controlAdmin(const Fields& fields) {
  switch (valueOf(fields, "control")) {
  case protocol::adminControl::reboot:
    _restart = Restart::plain;
    return Status::done;
  case protocol::adminControl::factoryConfig:
    _restart = Restart::configuration;
    return Status::done;
  case protocol::adminControl::factoryFirmware:
    _restart = Restart::firmware;
    return Status::done;
  default:
    return Status::refused;
  }
}

Status Appliance::setLogging(const Fields& fields) {
  using namespace protocol::logging;
  const unsigned mode = valueOf(fields, "onoff");
  if ((mode != off && mode != on) || valueOf(fields, "component") != allComponents) return Status::refused;
  Settings settings = _settings;
  settings.logging = mode == on;
  change(settings);
  return Status::done;
}

} // namespace sim
