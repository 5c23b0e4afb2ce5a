// What the responses have in common: a status.
#ifndef TEV_MESSAGING_RESPONSEOF_H
#define TEV_MESSAGING_RESPONSEOF_H

#include "messaging/MsgOf.h"

/// Base of the response class `Self`, whose first payload word is a status.
template <class Self>
class ResponseOf : public MsgOf<Self> {
public:
  using MsgOf<Self>::MsgOf;
  ResponseOf() = default;
  ResponseOf(unsigned long srcTid, unsigned long dstTid, unsigned short status) : MsgOf<Self>(srcTid, dstTid) {
    SetStatus(status);
  }

  /// What it says is up to the service; 0 is usual for success. protocol::statusUnset until it is set.
  void SetStatus(unsigned short value) { this->setWord(0, value); }
  unsigned short GetStatus() const { return this->word(0); }
};

#endif
