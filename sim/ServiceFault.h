// Faults of the service tasks.
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
    late,      // the reply is sent after `delay`
    truncated, // only the first half is sent
    split,     // the second half is sent after a pause
    garbage,   // the right number of wrong bytes
    dies,      // the task ends after half a reply; the board restarts it
    full,      // the task is stopped and its queue is full
    absent,    // neither the task nor its queue exists
  };
  Kind kind = none;
  int delay = 0; // milliseconds

  /// The fault's name on the command line, such as "late:500"; "none" for no fault.
  std::string text() const;
  /// Returns the fault of this name, if there is one.
  [[nodiscard]] static std::optional<ServiceFault> parse(std::string_view text);
};

/// Random faults of single replies. The same seed gives the same sequence.
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
