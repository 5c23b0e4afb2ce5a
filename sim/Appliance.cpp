#include "sim/Appliance.h"

#include "sim/ColourBars.h"

#include <algorithm>
#include <cstring>

namespace sim {

namespace {

// A value of a payload word and its name in the board's log and nodes.
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

// Returns the name of `value`, or null if it has none.
template <size_t N>
const char* nameOf(unsigned value, const Named (&all)[N]) {
  const auto* const found = std::find_if(all, all + N, [&](const Named& named) { return named.value == value; });
  return found != all + N ? found->name : nullptr;
}

bool isWithin(unsigned value, unsigned first, unsigned last) { return value >= first && value <= last; }

unsigned valueOf(const Payload& payload, std::string_view name) {
  const auto field = std::find_if(payload.begin(), payload.end(), [&](const PayloadWord& f) { return f.name == name; });
  return field != payload.end() ? field->value : 0;
}

} // namespace

std::string textOf(const Payload& payload) {
  std::string text;
  for (const PayloadWord& field : payload)
    text += " " + field.name + "=" + std::to_string(field.value);
  return text;
}

std::string VideoResolution::text() const {
  return std::to_string(horizontal) + "x" + std::to_string(vertical) +
         (qualifier == protocol::qualifier::progressive ? "p@" : "i@") + std::to_string(hertz);
}

bool VideoResolution::isSupported() const {
  using namespace protocol::qualifier;
  return isWithin(horizontal, 1, 1920) && isWithin(vertical, 1, 1200) &&
         (qualifier == progressive || qualifier == interlaced) && isWithin(hertz, 1, 60);
}

unsigned VideoResolution::standard() const {
  if (horizontal != 720) return 0;
  return vertical == 480 || vertical == 488 ? 1 : vertical == 576 ? 2 : 0;
}

struct Appliance::Handler {
  uint16_t id;
  const char* task;
  RequestStatus (Appliance::*serve)(const Payload&);
};

const std::vector<Appliance::Handler>& Appliance::handlers() {
  static const std::vector<Handler> all = {
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

Payload Appliance::serve(std::string_view task, uint16_t id, const Payload& payload) {
  const auto& known = handlers();
  const auto request = std::find_if(known.begin(), known.end(), [&](const Handler& r) { return id == r.id; });
  if (request == known.end()) return {}; // a response, which needs no reply
  const RequestStatus status = task == request->task ? (this->*request->serve)(payload) : RequestStatus::notMine;
  if (id == protocol::setLoggingModeReq) return {};
  Payload reply = {{"status", static_cast<unsigned>(status)}};
  if (id == protocol::getVideoResolutionReq) {
    const VideoResolution shown = status == RequestStatus::done ? _settings.resolution : VideoResolution{0, 0, 0, 0};
    reply.insert(reply.end(), {{"horizontal", shown.horizontal},
                               {"vertical", shown.vertical},
                               {"qualifier", shown.qualifier},
                               {"hertz", shown.hertz},
                               {"sdp_std", shown.standard()}});
  }
  return reply;
}

// Logs only what has changed.
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

RequestStatus Appliance::setVideoMode(const Payload& payload) {
  Settings settings = _settings;
  settings.format = valueOf(payload, "mode");
  if (nameOf(settings.format, formats) == nullptr) return RequestStatus::refused;
  change(settings);
  return RequestStatus::done;
}

RequestStatus Appliance::getVideoResolution(const Payload&) { return RequestStatus::done; }

RequestStatus Appliance::setVideoResolution(const Payload& payload) {
  Settings settings = _settings;
  settings.resolution = {valueOf(payload, "horizontal"), valueOf(payload, "vertical"), valueOf(payload, "qualifier"),
                         valueOf(payload, "hertz")};
  if (!settings.resolution.isSupported()) return RequestStatus::refused;
  change(settings);
  return RequestStatus::done;
}

RequestStatus Appliance::takeSnapshot(const Payload& payload) {
  using namespace protocol::snapshot;
  const unsigned slot = valueOf(payload, "slot");
  const unsigned scale = valueOf(payload, "scale");
  if (!isWithin(slot, firstSlot, lastSlot) || !isWithin(scale, smallestScale, fullScale)) return RequestStatus::refused;
  const unsigned width = std::max(1U, _settings.resolution.horizontal * scale / fullScale);
  const unsigned height = std::max(1U, _settings.resolution.vertical * scale / fullScale);
  const std::string path = _snapshotDirectory + (slot < 10 ? "/slot0" : "/slot") + std::to_string(slot) + ".jpg";
  if (const int error = storeColourBars(path, width, height); error != 0) {
    _log.add("snapshot slot " + std::to_string(slot) + " -> " + strerrorname_np(error));
    return RequestStatus::failed;
  }
  const Snapshot taken{slot, std::to_string(width) + "x" + std::to_string(height), timeOfDay()};
  const auto same = [slot](const Snapshot& other) { return other.slot == slot; };
  _snapshots.erase(std::remove_if(_snapshots.begin(), _snapshots.end(), same), _snapshots.end());
  _snapshots.insert(_snapshots.begin(), taken);
  _log.add("snapshot slot " + std::to_string(slot) + " " + taken.size);
  return RequestStatus::done;
}

RequestStatus Appliance::setAudioSource(const Payload& payload) {
  Settings settings = _settings;
  settings.audioSource = valueOf(payload, "audiosrc");
  if (nameOf(settings.audioSource, audioSources) == nullptr) return RequestStatus::refused;
  change(settings);
  return RequestStatus::done;
}

// ---- The stream task

RequestStatus Appliance::controlStream(const Payload& payload) {
  using namespace protocol::streamControl;
  const unsigned control = valueOf(payload, "control");
  const unsigned type = valueOf(payload, "type");
  if ((control != start && control != stop) || type == noStream || nameOf(type, streams) == nullptr) {
    return RequestStatus::refused;
  }
  _stream = control == start ? _stream | type : _stream & ~type;
  return RequestStatus::done;
}

// ---- The administration task

RequestStatus Appliance::controlAdmin(const Payload& payload) {
  switch (valueOf(payload, "control")) {
  case protocol::adminControl::reboot:
    _restart = Restart::plain;
    return RequestStatus::done;
  case protocol::adminControl::factoryConfig:
    _restart = Restart::configuration;
    return RequestStatus::done;
  case protocol::adminControl::factoryFirmware:
    _restart = Restart::firmware;
    return RequestStatus::done;
  default:
    return RequestStatus::refused;
  }
}

RequestStatus Appliance::setLogging(const Payload& payload) {
  using namespace protocol::logging;
  const unsigned mode = valueOf(payload, "onoff");
  if ((mode != off && mode != on) || valueOf(payload, "component") != allComponents) return RequestStatus::refused;
  Settings settings = _settings;
  settings.logging = mode == on;
  change(settings);
  return RequestStatus::done;
}

} // namespace sim
