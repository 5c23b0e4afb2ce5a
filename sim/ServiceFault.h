// How the service tasks of the board can fail their users.
#ifndef TEV_SIM_SERVICEFAULT_H
#define TEV_SIM_SERVICEFAULT_H

#include <optional>
#include <random>
#include <string>
#include <string_view>

namespace sim {

struct ServiceFault {
  enum Kind {
    none,
    silent,    // the reply is not sent
    late,      // it is sent after `delay`
    truncated, // its first half is sent
    split,     // its second half comes a moment after the first
    garbage,   // as many bytes as it has, but others
    dies,      // the task ends in mid-reply; the board starts it again
    full,      // the task is stopped and its queue is full
    absent,    // neither the task nor its queue exist
  };
  Kind kind = none;
  int delay = 0; // milliseconds

  /// The fault as the command line names it: "late:500"; "none" for no fault.
  std::string text() const;
  /// The fault that `text` names.
  [[nodiscard]] static std::optional<ServiceFault> parse(std::string_view text);
};

/// Faults of single replies at random: the same seed always gives the same ones.
class FaultDice {
public:
  static constexpr unsigned always = 100;

  FaultDice() = default; // no faults
  /// `percent` of all replies fail.
  FaultDice(unsigned seed, unsigned percent) : _engine(seed), _percent(percent) {}

  ServiceFault roll();
  unsigned percent() const { return _percent; }

private:
  unsigned below(unsigned limit) { return static_cast<unsigned>(_engine() % limit); }

  std::mt19937 _engine;
  unsigned _percent = 0;
};

} // namespace sim

#endif
