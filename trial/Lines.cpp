#include "trial/Lines.h"

#include "sim/Appliance.h"
#include "sim/Board.h"
#include "sim/Eeprom.h"
#include "sim/ThermalModel.h"

#include <algorithm>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <iterator>

namespace trial {

namespace {

using State = Place::State;

constexpr size_t longestLine = 127;

const std::vector<std::string> keys = {
    "help", "audio-source", "mac",  "serialnum", "temperature", "fan",     "vlan",         "factory",
    "log",  "stream",       "snap", "exit",      "reboot",      "version", "video-format", "video-resolution"};

const std::vector<std::string> formats = {"",     "svideo", "composite", "component", "vga",
                                          "svga", "xga",    "wxga",      "dvi",       "hdmi"};

struct Resolution {
  const char* word;
  const char* shown;
};
constexpr Resolution resolutions[] = {{"1280x720p@30", "1280x720p@30"}, // the default
                                      {"1920x1080p@30", "1920x1080p@30"}, {"1920x1080i@30", "1920x1080i@30"},
                                      {"720x480p@30", "720x480p@30"},     {"720x480i@30", "720x480i@30"},
                                      {"720x576p@50", "720x576p@50"},     {"720x576i@50", "720x576i@50"},
                                      {"720x576p@25", "720x576p@25"},     {"720x576i@25", "720x576i@25"},
                                      {"720x576i@30", "720x576i@30"},     {"640x480p@30", "640x480p@30"},
                                      {"800x600p@30", "800x600p@30"},     {"1024x768p@30", "1024x768p@30"},
                                      {"1280x768p@30", "1280x768p@30"},   {"ntsc", "720x488i@60"},
                                      {"pal-m", "720x488i@60"},           {"pal-bghid", "720x576i@50"}};

const char* nameOf(Ending ending) { return endingNames[static_cast<size_t>(ending)]; }

/// "video-resolution: " and any numbers.
bool looksLikeResolution(const std::string& answer) {
  unsigned numbers[3] = {};
  char qualifier = 0;
  int length = 0;
  const int read = sscanf(answer.c_str(), "video-resolution: %5ux%5u%c@%5u%n", &numbers[0], &numbers[1], &qualifier,
                          &numbers[2], &length);
  return read == 4 && (qualifier == 'p' || qualifier == 'i') && answer.substr(static_cast<size_t>(length)) == "\n";
}

/// What atoi() makes of a word, cut to the range of an int.
int numberIn(const std::string& word) {
  return static_cast<int>(std::clamp<long long>(strtoll(word.c_str(), nullptr, 10), INT_MIN, INT_MAX));
}

/// Whether a driver finds a number in front of a text.
bool hasNumber(const std::string& text) {
  char* end = nullptr;
  (void)strtol(text.c_str(), &end, 10); // only where it stopped counts
  return end != text.c_str();
}

std::string kindOf(const std::string& text) { return text.substr(0, text.find(' ')); }

} // namespace

// ---- Settings

void Lines::forget() {
  for (Setting* setting : {&_fan, &_setPoint, &_format, &_resolution, &_stream})
    setting->forget();
}

// In doubt it may come into effect later than what is asked for next.
void Lines::change(Setting& setting, int value) { _inDoubt ? setting.forget() : setting.set(value); }

void Lines::restart(bool defaults) {
  change(_stream, 0);
  if (!defaults) return;
  change(_fan, sim::ThermalModel::defaultFan);
  change(_setPoint, sim::ThermalModel::defaultSetPoint);
  change(_format, 9);
  change(_resolution, 0);
}

// ---- Places

bool Lines::disturb() {
  for (Place* place : {&_thermal, &_alert, &_streaming, &_input, &_switch, &_identity, &_tools}) {
    if (place->is(State::present) ? !once(1000) : !once(20)) continue;
    const bool stick = place->canBeStuck() && once(2);
    place->become(!place->is(State::present) ? State::present : stick ? State::stuck : State::gone);
    return true;
  }
  return false;
}

void Lines::restore() {
  for (Place* place : {&_thermal, &_alert, &_streaming, &_input, &_switch, &_identity, &_tools}) {
    if (!place->is(State::present)) place->become(State::present);
  }
}

// ---- Words

std::string Lines::word(size_t length) {
  std::string text;
  while (text.size() < length) {
    const auto byte = static_cast<char>(1 + below(255));
    if (byte != ' ' && byte != '\t' && byte != '\n') text += byte;
  }
  return text;
}

std::string Lines::rubbish() {
  static const Words some = {"?x", "STATUS", "on", "$(reboot)", "it's", "\"",
                             "-n", "%s%n",   "*",  "&&",        "0x1f", "status"};
  return (once(2) ? oneOf(some) : word(1 + below(20))) + "!";
}

std::string Lines::number() {
  static const Words odd = {"99999999999", "-99999999999", "0", "-1", "warm", "7x", "4294967297"};
  return once(4) ? oneOf(odd) : std::to_string(static_cast<int>(below(120)) - 10);
}

std::string Lines::more() { return once(8) ? " " + rubbish() : ""; }

// ---- What may come of a line

Line Lines::exactly(const char* outcome, const std::string& text, const std::string& expected) {
  const auto judge = [outcome, expected](const std::string& answer, Ending ending) {
    return std::string(answer == expected && ending == Ending::none ? outcome : "");
  };
  return {kindOf(text), text, judge, expected};
}

Line Lines::request(const std::string& text, const std::string& expected) {
  const auto judge = [this, expected](const std::string& answer, Ending ending) {
    const bool fine = answer == expected && (ending != Ending::mixedUp || _inDoubt);
    return std::string(fine ? nameOf(ending) : "");
  };
  return {kindOf(text), text, judge, expected, true};
}

Line Lines::shown(const std::string& text, Setting& setting, std::function<std::string(int)> show) {
  const std::string example = setting.example(show);
  const auto judge = [this, &setting, show = std::move(show)](const std::string& answer, Ending ending) {
    return std::string(ending == Ending::none && setting.matches(answer, show, !_inDoubt) ? "shown" : "");
  };
  return {kindOf(text), text, judge, example};
}

Line Lines::badWords(const std::string& key, const std::string& pattern, const std::string& text) {
  return exactly("usage told", text,
                 "error: incorrect parameter(s) to <" + key + "> command\nusage: " + key + " " + pattern + "\n");
}

Line Lines::badSubcommand(const std::string& key, const std::string& rest) {
  const std::string word = rubbish();
  return exactly("subcommand not known", key + " " + word + rest, "error: subcmd [" + word + "] is not supported.\n");
}

Line Lines::noNode(const std::string& text, const std::string& path) {
  return exactly("no node", text, "error: couldn't find node [" + path + "] on the system\n");
}

// ---- Lines by kind

Line Lines::nothing() {
  static const Words blanks = {"", " ", "\t", "   \t  ", std::string(longestLine, ' '), std::string("\0help", 5)};
  Line line = exactly("prompt", oneOf(blanks), "");
  line.kind = "(blank)";
  return line;
}

Line Lines::unknown() {
  static const Words near = {"HELP", "help\r", "hel", "helpp", "exit\r", "tev-cli>", "./version", "fan;", "stream\v"};
  std::string first = once(4) ? oneOf(near) : word(1 + below(once(4) ? longestLine : 12));
  if (std::find(keys.begin(), keys.end(), first) != keys.end()) first += '_';
  std::string text = first;
  while (once(2))
    text += " " + word(1 + below(30));
  text.resize(std::min(text.size(), longestLine));
  first.resize(std::min(first.size(), longestLine));
  Line line = exactly("not implemented", text, "command: [" + first + "] is not implemented \n");
  line.kind = "(unknown)";
  return line;
}

// The first answer of its kind is the measure of all later ones.
Line Lines::help() {
  std::string topic;
  if (!once(3)) topic = once(4) ? "long" : oneOf(keys);
  const std::string text = topic.empty() ? (once(2) ? "help" : "help " + rubbish()) : "help " + topic + more();
  const auto judge = [this, topic](const std::string& answer, Ending ending) {
    const std::string& first = _helpTexts.emplace(topic, answer).first->second;
    const bool fine = answer == first && answer.size() > 100 && ending == Ending::none;
    return std::string(fine ? "shown" : "");
  };
  return {"help", text, judge, "the same as ever"};
}

Line Lines::version() {
  return exactly("shown", "version" + more(), std::string("firmware version: ") + sim::firmwareVersion + "\n");
}

Line Lines::temperature() {
  if (once(8)) return badSubcommand("temperature", " 3");
  if (once(2)) {
    const std::string word = number();
    const std::string text = "temperature setpoint " + word + more();
    if (_thermal.is(State::gone)) return noNode(text, "/sys/bus/i2c/devices/1-004c/setpoint");
    const std::string raw = std::to_string(numberIn(word) - static_cast<long long>(sim::ThermalModel::rawOffset));
    const std::string written = raw.substr(0, 2);
    if (hasNumber(written)) change(_setPoint, numberIn(written));
    return exactly("written", text, "");
  }
  const std::string text = once(4) ? "temperature " + rubbish() : "temperature";
  if (_thermal.is(State::gone) || _alert.is(State::gone)) {
    return exactly("no node", text, "error: couldn't determine the temperature/fan status\n");
  }
  return shown(text, _setPoint, [stuck = _alert.is(State::stuck)](int raw) {
    sim::ThermalModel model;
    model.setSetPoint(raw);
    const auto celsius = [](int value) {
      // Three bytes are read.
      return std::to_string(numberIn(std::to_string(value).substr(0, 3)) + sim::ThermalModel::rawOffset) +
             " degrees Celsius\n";
    };
    return std::string("temperature alert status: *** ") + (model.alert() && !stuck ? "on" : "off") +
           " ***\ntemperature: " + celsius(model.temperature()) +
           "temperature high point setting: " + celsius(model.setPoint());
  });
}

Line Lines::fan() {
  if (once(8)) return badSubcommand("fan", " 3");
  if (once(2)) {
    const std::string word = number();
    const std::string text = "fan speed " + word + more();
    if (_thermal.is(State::gone)) return noNode(text, "/sys/bus/i2c/devices/1-004c/speed");
    if (_thermal.is(State::present) && hasNumber(word)) {
      change(_fan, std::clamp(numberIn(word), 0, sim::ThermalModel::maxFan));
    }
    return exactly("written", text, "");
  }
  const std::string text = once(4) ? "fan " + rubbish() : "fan";
  if (_thermal.is(State::gone)) return exactly("no node", text, "error: couldn't determine the fan settings\n");
  return shown(text, _fan, [stuck = _thermal.is(State::stuck)](int setting) {
    sim::ThermalModel model;
    model.setFan(setting);
    std::string answer = "fan setting [0-63]: " + std::to_string(stuck ? 0 : setting) + "\n";
    if (model.tachCount() == 0) {
      return answer + "error: tachometer count is 0; make sure tachometer count is enabled!\n";
    }
    return answer + "fan rpm: " + std::to_string(static_cast<int>(2877120.0F / static_cast<float>(model.tachCount()))) +
           "\n";
  });
}

Line Lines::vlan() {
  if (once(8)) return exactly("nothing to do", "vlan", "");
  if (once(8)) return badSubcommand("vlan", more());
  const std::string text = (once(2) ? "vlan on" : "vlan off") + more();
  if (_switch.is(State::gone)) return noNode(text, _switch.path());
  return exactly(_switch.is(State::stuck) ? "not taken" : "written", text, "");
}

// Whatever hinders the tool is told before the tool says `expected`.
Line Lines::tool(const std::string& text, const std::string& name, const char* outcome, const std::string& expected) {
  if (_tools.is(State::gone)) {
    const std::string path = _tools.path() + name;
    const auto judge = [path](const std::string& answer, Ending ending) {
      const bool fine = answer.rfind("sh: ", 0) == 0 && answer.find(path) != answer.npos && ending == Ending::none;
      return std::string(fine ? "no tool" : "");
    };
    return {kindOf(text), text, judge, "sh: " + path + ": not found"};
  }
  if (_identity.is(State::gone) && expected.rfind(name, 0) != 0) { // the tool finds fault with words first
    return exactly("no node", text, name + ": " + sim::eepromNode + ": No such file or directory\n");
  }
  return exactly(outcome, text, expected);
}

Line Lines::mac() {
  constexpr size_t longest = 83; // that a tool is given
  const std::string writer = "eeprom-write-macs-arm-none";
  if (once(3)) {
    sim::eeprom::Mac bytes = {};
    std::generate(bytes.begin(), bytes.end(), [this] { return static_cast<uint8_t>(below(256)); });
    const std::string address = sim::eeprom::formatMac(bytes);
    if (_identity.is(State::present) && _tools.is(State::present)) _mac = address;
    return tool("mac " + address + more(), writer, "written", "");
  }
  if (once(3)) {
    const std::string word = once(4) ? this->word(80 + below(40)) : rubbish();
    const std::string text = "mac " + word;
    if (word.size() > longest) {
      return exactly("too long", text, "error: cannot write mac address to persistent storage\n");
    }
    return tool(text, writer, "refused by the tool", writer + ": not a MAC address: " + word + "\n");
  }
  const sim::eeprom::Mac second = sim::eeprom::macAfter(*sim::eeprom::parseMac(_mac), 1);
  return tool("mac", "eeprom-read-macs-arm-none", "shown",
              "eth0 " + _mac + "\neth1 " + sim::eeprom::formatMac(second) + "\n");
}

Line Lines::serialNumber() {
  constexpr size_t longest = 78; // that a tool is given
  const std::string writer = "eeprom-write-serialnum-arm-none";
  if (once(2)) {
    const std::string word = once(4) ? this->word(70 + below(40)) : once(2) ? rubbish() : std::to_string(_engine());
    const std::string text = "serialnum " + word;
    if (word.size() > longest) {
      return exactly("too long", text, "error: cannot write new serial number to persistent storage\n");
    }
    if (!sim::eeprom::serialField(word)) {
      return tool(text, writer, "refused by the tool",
                  writer + ": not a serial number of 1 to 16 characters: " + word + "\n");
    }
    if (_identity.is(State::present) && _tools.is(State::present)) _serial = word;
    return tool(text, writer, "written", "");
  }
  const std::string text = once(4) ? "serialnum 1 " + rubbish() : "serialnum";
  return tool(text, "eeprom-read-serialnum-arm-none", "shown", _serial + "\n");
}

Line Lines::videoFormat() {
  if (once(8)) return badWords("video-format", "<format|status|?>", "video-format " + rubbish());
  if (once(2)) {
    const unsigned format = 1 + below(static_cast<unsigned>(formats.size()) - 1);
    change(_format, static_cast<int>(format));
    return request("video-format " + formats[format]);
  }
  const std::string text = once(2) ? "video-format" : (once(2) ? "video-format ?" : "video-format status") + more();
  if (_input.is(State::gone)) return exactly("no node", text, "error: couldn't determine the video-format\n");
  return shown(text, _format, [stuck = _input.is(State::stuck)](int format) {
    return "video-format: " + (stuck ? "" : formats[static_cast<size_t>(format)] + "\n") + "\n";
  });
}

Line Lines::videoResolution() {
  if (once(8)) return badWords("video-resolution", "<HxV@R|status|?>", "video-resolution " + rubbish());
  if (once(2)) {
    const Resolution& resolution = resolutions[below(std::size(resolutions))];
    size_t number = 0;
    while (std::string(resolutions[number].shown) != resolution.shown)
      ++number;
    change(_resolution, static_cast<int>(number));
    return request(std::string("video-resolution ") + resolution.word);
  }
  const auto show = [](int number) { return std::string("video-resolution: ") + resolutions[number].shown + "\n"; };
  const std::string text =
      once(2) ? "video-resolution" : (once(2) ? "video-resolution ?" : "video-resolution status") + more();
  Line line = request(text, _resolution.example(show));
  line.judge = [this, show](const std::string& answer, Ending ending) {
    bool fine = false;
    if (ending == Ending::timedOut || ending == Ending::tooShort) {
      fine = answer == "error: couldn't determine the video-resolution\n";
    } else if (_inDoubt) {
      fine = looksLikeResolution(answer);
    } else if (ending == Ending::garbage) {
      fine = answer == "video-resolution: 42405x42405i@42405\n";
    } else {
      fine = ending == Ending::answered && _resolution.matches(answer, show, true);
    }
    return std::string(fine ? nameOf(ending) : "");
  };
  return line;
}

Line Lines::audioSource() {
  if (once(8)) {
    return badWords("audio-source", "<digital|analog|status|?>", "audio-source " + rubbish());
  }
  if (once(4)) {
    return exactly("nothing to show", once(2) ? "audio-source" : "audio-source status" + more(),
                   "audio-source: get - TBD\n");
  }
  return request(once(2) ? "audio-source digital" : "audio-source analog");
}

Line Lines::snap() {
  if (once(8)) return exactly("usage told", "snap", "error: insufficient args\nusage: snap <slot> [<scale>]\n");
  if (once(4)) {
    static const Words bad = {"snap 0", "snap 17", "snap 3 9", "snap 3 0", "snap abc", "snap 4294967297", "snap 1 -1"};
    return exactly("refused", oneOf(bad), "error: bad args\n");
  }
  return request("snap " + std::to_string(1 + below(16)) + " " + std::to_string(1 + below(3)));
}

Line Lines::stream() {
  constexpr const char* types[] = {"", " audio", " video", " both"};
  if (once(8)) {
    const std::string text = once(2) ? "stream " + rubbish() : "stream start " + rubbish();
    return badWords("stream", "<start|stop|status|?> [audio|video|both]", text);
  }
  if (once(2)) {
    const bool start = once(2);
    const unsigned type = below(4);
    const int mask = type == 0 ? 3 : static_cast<int>(type);
    // What is left of an unknown stream is not known.
    if (mask == 3) {
      change(_stream, start ? 3 : 0);
    } else {
      _stream.forget();
    }
    return request(std::string(start ? "stream start" : "stream stop") + types[type]);
  }
  const std::string text = once(2) ? "stream" : (once(2) ? "stream ?" : "stream status") + more();
  if (_streaming.is(State::gone)) {
    return exactly("no node", text, "error: couldn't determine the streaming status\n");
  }
  return shown(text, _stream, [stuck = _streaming.is(State::stuck)](int stream) {
    return std::string("streaming is: ") + (stream != 0 && !stuck ? "on\n" : "off\n");
  });
}

Line Lines::log() {
  const std::string word = rubbish();
  switch (below(8)) {
  case 0:
    return exactly("usage told", once(2) ? "log" : "log " + word, "log: insufficient args\n");
  case 1:
    return exactly("usage told", "log " + word + " all", "log: unsupported choice[" + word + "]\n");
  case 2:
    return exactly("usage told", "log enable " + word, "log: unsupported component[" + word + "]\n");
  default:
    return exactly("sent", (once(2) ? "log enable all" : "log disable all") + more(), "");
  }
}

Line Lines::reboot() {
  restart(false);
  return request("reboot" + more(), "reboot: ...\n");
}

Line Lines::factory() {
  if (once(4)) {
    return badWords("factory", "<config|firmware>", once(2) ? "factory" : "factory " + rubbish());
  }
  const std::string rule = "###############################################\n";
  const std::string what = once(2) ? "config" : "firmware";
  restart(what == "config");
  return request("factory " + what, rule + "Factory Default [" + what + "] In Progress......\n" + rule);
}

struct Lines::Kind {
  unsigned weight;
  bool asks; // mostly
  Line (Lines::*make)();
};

Line Lines::ofAny(bool asks) {
  static constexpr Kind kinds[] = {
      {1, false, &Lines::nothing},
      {3, false, &Lines::unknown},
      {2, false, &Lines::help},
      {1, false, &Lines::version},
      {3, false, &Lines::temperature},
      {3, false, &Lines::fan},
      {2, false, &Lines::vlan},
      {2, false, &Lines::mac},
      {2, false, &Lines::serialNumber},
      {4, true, &Lines::videoFormat},
      {6, true, &Lines::videoResolution},
      {2, true, &Lines::audioSource},
      {1, true, &Lines::snap},
      {4, true, &Lines::stream},
      {2, false, &Lines::log},
      {1, true, &Lines::reboot},
      {1, true, &Lines::factory},
  };
  for (;;) {
    const Kind& kind = kinds[below(std::size(kinds))];
    if (below(6) < kind.weight && (kind.asks || !asks)) return (this->*kind.make)();
  }
}

Line Lines::next() { return ofAny(false); }

Line Lines::nextRequest() {
  for (;;) {
    // What is dropped here would not have changed anything.
    if (Line line = ofAny(true); line.asks) return line;
  }
}

} // namespace trial
