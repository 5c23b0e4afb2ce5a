#ifndef TEV_MESSAGING_IMMORTAL_H
#define TEV_MESSAGING_IMMORTAL_H

#include <new>

/// An object in static storage that is never destroyed, because threads may outlive the static destructors. It
/// allocates nothing beyond what `Object` does: a receive thread may be the first to use it, and could not report a
/// failure.
template <class Object>
class Immortal {
public:
  Immortal() : _object(*new (_place) Object) {}
  Immortal(const Immortal&) = delete;
  Immortal& operator=(const Immortal&) = delete;

  Object& operator*() { return _object; }

private:
  alignas(Object) unsigned char _place[sizeof(Object)];
  Object& _object;
};

#endif
