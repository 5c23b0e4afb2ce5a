#include "trial/Place.h"

#include "sim/SystemError.h"

#include <sys/mount.h>

namespace trial {

void Place::become(State state) {
  const std::string covered = state == State::gone || _state == State::gone ? _folder : path();
  if (state == State::present) {
    sim::check(umount2(covered.c_str(), MNT_DETACH), covered);
  } else if (state == State::gone) {
    sim::check(mount("gone", covered.c_str(), "tmpfs", MS_RDONLY, "size=4k"), covered);
  } else {
    sim::check(mount("/dev/full", covered.c_str(), nullptr, MS_BIND, nullptr), covered);
  }
  _state = state;
}

} // namespace trial
