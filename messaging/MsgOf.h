// What all concrete message classes have in common.
#ifndef TEV_MESSAGING_MSGOF_H
#define TEV_MESSAGING_MSGOF_H

#include "messaging/MsgObj.h"

#include <new>
#include <type_traits>

/// Base of the message class `Self`, which declares itself in a constant `static const MsgLayout layout` and gets from
/// here everything that follows from it. What is left to write in Self: accessors and InvokeHandler. `Reply` is the
/// class that answers it; void for a message without a reply.
template <class Self, class Reply = void>
class MsgOf : public MsgObj {
public:
  using Response = Reply;

  MsgOf() : MsgOf(0, 0) {}
  MsgOf(unsigned long srcTid, unsigned long dstTid) : MsgObj(srcTid, dstTid, Self::layout.id) {
    setDefaults(Self::layout);
  }
  MsgOf(unsigned long srcTid, unsigned long dstTid, unsigned short firstWord) : MsgOf(srcTid, dstTid) {
    setWord(0, firstWord);
  }
  explicit MsgOf(Exemplar exemplar) : MsgObj(exemplar, Self::layout.id) { setDefaults(Self::layout); }

  /// Of a response that has one, which says so by a constant statusWord: what came of the request, by convention 0 for
  /// success. protocol::statusUnset until it is set.
  void SetStatus(unsigned short value) { setWord(Self::statusWord, value); }
  unsigned short GetStatus() const { return word(Self::statusWord); }

  unsigned int size() const override { return Self::layout.size(); }
  MsgQOutStream& stream(MsgQOutStream& out) override { return out << *this; }
  PipeOutStream& stream(PipeOutStream& out) override { return out << *this; }

  MsgObj* CreateResponse() override {
    if constexpr (std::is_void_v<Reply>)
      return nullptr;
    else
      return new (std::nothrow) Reply;
  }

  MsgObj* Create(const void* buffer) override {
    if (idIn(buffer) != Self::layout.id) return nullptr;
    Self* message = new (std::nothrow) Self;
    if (message != nullptr) message->decodeFrom(buffer, Self::layout);
    return message;
  }

  friend MsgQOutStream& operator<<(MsgQOutStream& out, const MsgOf& message) {
    message.writeTo(out, Self::layout);
    return out;
  }
  friend PipeOutStream& operator<<(PipeOutStream& out, const MsgOf& message) {
    message.writeTo(out, Self::layout);
    return out;
  }
  friend tev::tevlog& operator<<(tev::tevlog& out, const MsgOf& message) {
    message.renderTo(out, Self::layout);
    return out;
  }
};

#endif
