// Lines to type into the shell, at random, and what may come of each.
#ifndef TEV_TRIAL_LINES_H
#define TEV_TRIAL_LINES_H

#include "trial/Place.h"
#include "trial/Setting.h"
#include "trial/Trace.h"

#include <functional>
#include <map>
#include <random>
#include <string>
#include <vector>

namespace trial {

struct Line {
  std::string kind; ///< the command, or what it is instead
  std::string text;
  /// The name of the outcome that this is: what was printed, and how the request ended. Empty for one that must not be.
  std::function<std::string(const std::string& answer, Ending ending)> judge;
  std::string expected; ///< for people
  bool asks = false;    ///< sends a request and waits for its reply
};

/// The same seed gives the same lines.
class Lines {
public:
  explicit Lines(unsigned seed) : _engine(seed) {}

  /// A line of any kind but `exit`. Call judge() of each before the next is asked for.
  Line next();
  /// One that asks a service.
  Line nextRequest();

  /// Whether a request may be answered with what was meant for an earlier one, and what a service was told may still
  /// have to take effect.
  void setInDoubt(bool inDoubt) { _inDoubt = inDoubt; }
  bool isInDoubt() const { return _inDoubt; }

  /// Nothing is known of the board's settings.
  void forget();

  /// Now and then lets a place of the board go, or come back. Whether it did.
  bool disturb();
  /// Lets all come back.
  void restore();

  unsigned below(unsigned limit) { return static_cast<unsigned>(_engine() % limit); }
  /// `length` bytes of which none is zero, a blank or the end of a line.
  std::string word(size_t length);

private:
  using Words = std::vector<std::string>;
  struct Kind;

  const std::string& oneOf(const Words& words) { return words[below(static_cast<unsigned>(words.size()))]; }
  bool once(unsigned in) { return below(in) == 0; }
  std::string rubbish(); // no word of any command
  std::string number();
  std::string more(); // further words, mostly none

  static Line exactly(const char* outcome, const std::string& text, const std::string& expected);
  Line request(const std::string& text, const std::string& expected = "");
  Line shown(const std::string& text, Setting& setting, std::function<std::string(int)> show);
  static Line badWords(const std::string& key, const std::string& pattern, const std::string& text);
  Line badSubcommand(const std::string& key, const std::string& rest);
  static Line noNode(const std::string& text, const std::string& path);
  void change(Setting& setting, int value);
  void restart(bool defaults);

  Line ofAny(bool asks);
  Line nothing();
  Line unknown();
  Line help();
  Line version();
  Line temperature();
  Line fan();
  Line vlan();
  Line mac();
  Line serialNumber();
  Line tool(const std::string& text, const std::string& name, const char* outcome, const std::string& expected);
  Line videoFormat();
  Line videoResolution();
  Line audioSource();
  Line snap();
  Line stream();
  Line log();
  Line reboot();
  Line factory();

  std::mt19937 _engine;
  bool _inDoubt = false;
  std::map<std::string, std::string> _helpTexts; // by line

  Place _thermal{"/sys/bus/i2c/devices/1-004c", "speed"};
  Place _alert{"/sys/class/gpio/gpio27", "value"};
  Place _streaming{"/sys/class/gpio/gpio26", "value"};
  Place _input{"/sys/bus/i2c/devices/2-0020", "format"};
  Place _switch{"/sys/module/ksz8864/drivers", "smi"};
  Place _identity{"/sys/bus/i2c/devices/1-0050"};
  Place _tools{"/mnt/tev/sys/bin"};

  Setting _fan{0, 63};
  Setting _setPoint{-128, 127};
  Setting _format{1, 9};
  Setting _resolution{0, 14}; // by the number of what is shown
  Setting _stream{0, 3};      // bit 0 audio, bit 1 video
  std::string _serial = "480213UNIT000001";
  std::string _mac = "02:1A:2B:3C:4D:00";
};

} // namespace trial

#endif
