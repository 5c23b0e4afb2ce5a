#include "messaging/MsgObj.h"

#include "messaging/internal/Immortal.h"
#include "messaging/internal/MsgQueue.h"

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <iostream>
#include <memory>
#include <unistd.h>

namespace {

constexpr size_t stagingSize = 64;
static_assert(msgTypeSize + sizeof(MsgImage) <= stagingSize, "every queue form fits");

// Where the fields of the queue form begin.
enum QueueOffset : size_t { mtypeAt = 0, typeAt = 4, srcTidAt = 8, dstTidAt = 12, wordsAt = 16 };

void put16(unsigned char* to, uint16_t value) {
  to[0] = static_cast<unsigned char>(value >> 8);
  to[1] = static_cast<unsigned char>(value);
}

void put32(unsigned char* to, uint32_t value) {
  put16(to, static_cast<uint16_t>(value >> 16));
  put16(to + 2, static_cast<uint16_t>(value));
}

uint16_t get16(const unsigned char* from) { return static_cast<uint16_t>(from[0] << 8 | from[1]); }

uint32_t get32(const unsigned char* from) { return static_cast<uint32_t>(get16(from)) << 16 | get16(from + 2); }

} // namespace

MsgObj::MsgObj() : _image() {}

MsgObj::MsgObj(unsigned long srcTid, unsigned long dstTid, unsigned short msgType) : _image() {
  _image.srcTid = static_cast<uint32_t>(srcTid);
  _image.dstTid = static_cast<uint32_t>(dstTid);
  _image.type = msgType;
  _image.mtype = _image.srcTid | static_cast<uint32_t>(msgType) << 16;
}

MsgObj::MsgObj(Exemplar, unsigned short msgId) : _image() {
  if (_sMsgId2MsgObj().emplace(msgId, this).second) {
    tev::log << "MsgObj::MsgObj(anExemplar) - adding msgid: " << static_cast<int>(msgId) << tev::endl;
  } else {
    tev::log << "MsgObj::MsgObj(anExemplar) - duplicate encountered!!!" << tev::endl;
  }
}

std::map<unsigned short, MsgObj*>& MsgObj::_sMsgId2MsgObj() {
  static Immortal<std::map<unsigned short, MsgObj*>> exemplars;
  return *exemplars;
}

unsigned int MsgObj::size() const { return 20; }

MsgObj* MsgObj::Make(const void* buffer) {
  MsgObj* const message = Decode(buffer);
  if (message == nullptr) LogUndecodable(buffer);
  return message;
}

MsgObj* MsgObj::Decode(const void* buffer) {
  const auto found = _sMsgId2MsgObj().find(idIn(buffer));
  return found != _sMsgId2MsgObj().end() ? found->second->Create(buffer) : nullptr;
}

void MsgObj::LogUndecodable(const void* buffer) {
  tev::log << "MsgObj::Make(): returning 0 for creation request of msgid: " << static_cast<int>(idIn(buffer))
           << tev::endl;
}

// ---- The image and its wire forms

void MsgObj::setDefaults(const MsgLayout& layout) {
  for (size_t i = 0; i < layout.fieldCount(); ++i)
    setWord(i, layout.fields[i].defaultValue);
}

unsigned short MsgObj::idIn(const void* buffer) { return get16(static_cast<const unsigned char*>(buffer) + typeAt); }

void MsgObj::encodeTo(void* buffer, const MsgLayout& layout) const {
  auto* bytes = static_cast<unsigned char*>(buffer);
  std::memset(bytes, 0, msgTypeSize + layout.size());
  put32(bytes + mtypeAt, _image.mtype);
  put16(bytes + typeAt, _image.type);
  put32(bytes + srcTidAt, _image.srcTid);
  put32(bytes + dstTidAt, _image.dstTid);
  for (size_t i = 0; i < layout.fieldCount(); ++i)
    put16(bytes + wordsAt + 2 * i, word(i));
}

void MsgObj::decodeFrom(const void* buffer, const MsgLayout& layout) {
  const auto* bytes = static_cast<const unsigned char*>(buffer);
  _image.srcTid = get32(bytes + srcTidAt);
  _image.dstTid = get32(bytes + dstTidAt);
  _image.mtype = _image.srcTid | static_cast<uint32_t>(_image.type) << 16;
  if (layout.restoresFlags) _image.mtype |= get32(bytes + mtypeAt) & (syncFlag | remoteFlag);
  for (size_t i = 0; i < layout.fieldCount(); ++i)
    setWord(i, get16(bytes + wordsAt + 2 * i));
}

void MsgObj::writeTo(MsgQOutStream& out, const MsgLayout& layout) const {
  unsigned char buffer[stagingSize];
  encodeTo(buffer, layout);
  // Sending is silent: a request that did not go out ends with the time-out of its reply.
  out.SetFailure(sendToQueue(out.GetMsgQId(), buffer, layout.size()) == 0 ? 0 : errno);
}

void MsgObj::writeTo(const PipeOutStream& out, const MsgLayout& layout) const {
  unsigned char buffer[stagingSize];
  switch (layout.pipeForm) {
  case PipeForm::native:
    std::memcpy(buffer, &_image, layout.size());
    break;
  case PipeForm::bigEndian:
    encodeTo(buffer, layout);
    break;
  case PipeForm::none:
    tev::log << "operator<<(PipeOutStream& pipeos, const " << layout.name << "& msg) - TBD" << tev::endl;
    return;
  }
  const ssize_t written = write(out.GetFd(), buffer, layout.size()); // silent, as on a queue
  (void)written;
}

void MsgObj::renderTo(tev::tevlog& out, const MsgLayout& layout) const {
  out << layout.name << ":";
  if (layout.rendersMtype) {
    out << "\n   mtype   = 0x" << tev::hex << static_cast<unsigned int>(_image.mtype) << tev::dec;
  }
  out << "\n   msgType = " << static_cast<int>(_image.type);
  out << "\n   srcTid  = " << static_cast<unsigned int>(_image.srcTid);
  out << "\n   dstTid  = " << static_cast<unsigned int>(_image.dstTid);
  out << "\n   size    = " << size();
  for (size_t i = 0; i < layout.fieldCount(); ++i) {
    char label[32];
    (void)std::snprintf(label, sizeof label, "\n   %-*s = ", layout.fields[i].width, layout.fields[i].name);
    out << label << static_cast<int>(word(i));
  }
  out << tev::endl;
}
