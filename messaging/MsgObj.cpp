#include "messaging/MsgObj.h"

#include "messaging/Blocking.h"
#include "messaging/CommObj.h"
#include "messaging/Immortal.h"
#include "messaging/MsgQueue.h"
#include "messaging/ReplyPipe.h"

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

/// Holds the sync lock of an endpoint for a scope.
class SyncHeld {
public:
  explicit SyncHeld(CommObj& endpoint) : _endpoint(endpoint) { _endpoint.SyncLock(); }
  ~SyncHeld() { _endpoint.SyncUnLock(); }
  SyncHeld(const SyncHeld&) = delete;
  SyncHeld& operator=(const SyncHeld&) = delete;

private:
  CommObj& _endpoint;
};

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

void MsgObj::traceError(const char* format, ...) {
  char line[200];
  va_list arguments;
  va_start(arguments, format);
  (void)std::vsnprintf(line, sizeof line, format, arguments);
  va_end(arguments);
  std::cerr << line << std::endl;
}

// ---- Sending

MsgObj* MsgObj::Send() {
  // A thread that was cancelled anywhere would keep the sync lock, and the message. The wait for a reply is short.
  return kr::uncancelled([this](int cancelState) {
    const BlockingState waits(cancelState);
    return sendAndDelete();
  });
}

MsgObj* MsgObj::sendAndDelete() {
  const std::unique_ptr<MsgObj> consumed(this);
  CommObj* dst = CommObj::TaskId2CommObj(GetDstTid());
  CommObj* src = CommObj::TaskId2CommObj(GetSrcTid());
  if (src != nullptr && dst != nullptr) return sendLocally(*src, *dst);
  if (src != nullptr && IsRemoteMsg()) return sendRemotely(*src);
  tev::log << "MsgObj::send() - not calling pTargetCommObj->receive(...)" << tev::endl;
  return nullptr;
}

MsgObj* MsgObj::sendLocally(CommObj& src, CommObj& dst) {
  if (IsReqMsg() && IsSyncMsg()) return exchange(src, &dst);
  const int length = static_cast<int>(size());
  if (IsSyncMsg())
    dst.ReceiveSync(GetSrcTid(), this, length);
  else
    dst.ReceiveAsync(GetSrcTid(), this, length);
  return nullptr;
}

MsgObj* MsgObj::sendRemotely(CommObj& src) {
  if (IsReqMsg() && IsSyncMsg()) return exchange(src, nullptr);
  if (IsSyncMsg())
    replyRemotely();
  else
    sendToRemoteQueue();
  return nullptr;
}

void MsgObj::sendToRemoteQueue() {
  MsgQOutStream queue(static_cast<int>(_image.dstTid));
  stream(queue);
}

// Sends a synchronous request, to an endpoint of this process or (null) to the queue of another, and reads its reply.
MsgObj* MsgObj::exchange(CommObj& src, CommObj* dst) {
  MsgObj* reply = nullptr;
  {
    const SyncHeld held(src);
    src.SyncClean();
    if (dst != nullptr) {
      dst->ReceiveAsync(GetSrcTid(), this, static_cast<int>(size()));
      return src.ReadReplyMsg(this);
    }
    sendToRemoteQueue();
    tev::log << "MsgObj::send()[isReqSyncMsg/remote] - before pSourceCommObj->ReadReplyMsg(...)" << tev::endl;
    reply = src.ReadReplyMsg(this);
    tev::log << "MsgObj::send()[isReqSyncMsg/remote] - pSourceCommObj->ReadReplyMsg(...) returned: " << tev::hex
             << static_cast<void*>(reply) << tev::dec << tev::endl;
  }
  tev::log << "MsgObj::send()[isReqSyncMsg/remote] - after pSourceCommObj->ReadReplyMsg(...)" << tev::endl;
  return reply;
}

// A reply always goes to the pipe of the console's task: it is the one that asks synchronously across processes.
void MsgObj::replyRemotely() const {
  const int fd = openReplyPipe(_image.dstTid);
  if (fd <= 0) {
    const int reason = errno;
    char buffer[128];
    traceError("bad pipefd!? pipefd=%d, errno=%d, %s", fd, reason, strerror_r(reason, buffer, sizeof buffer));
    if (fd == 0) (void)close(fd);
  } else {
    // Fails when nobody has read so many replies that the pipe is full. Whoever waits for this one runs into its
    // time-out.
    const size_t size = imageSize();
    const ssize_t written = write(fd, &_image, size);
    (void)written;
    tev::log << "MsgObj::send()[isRespSyncMsg/remote] - bytes to pipe: " << static_cast<unsigned int>(size)
             << tev::endl;
    for (size_t i = 0; i < size; i += 4) {
      uint32_t value = 0;
      std::memcpy(&value, reinterpret_cast<const char*>(&_image) + i, sizeof value);
      tev::log << "word_s@" << static_cast<unsigned int>(i) << " [" << static_cast<unsigned int>(value) << "]"
               << tev::endl;
    }
    (void)close(fd); // nothing was buffered that a failing close could lose
  }
  tev::log << "MsgObj::send()[isRespSyncMsg/remote] - after pipe write() call" << tev::endl;
}

// What the class says, but no more than there is.
size_t MsgObj::imageSize() const { return std::min<size_t>(size(), sizeof _image); }

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

void MsgObj::writeTo(const MsgQOutStream& out, const MsgLayout& layout) const {
  unsigned char buffer[stagingSize];
  encodeTo(buffer, layout);
  // Sending is silent: a request that did not go out ends with the time-out of its reply.
  (void)sendToQueue(out.GetMsgQId(), buffer, layout.size());
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
  for (size_t i = 0; i < layout.fieldCount(); ++i)
    out << "\n" << layout.fields[i].label << static_cast<int>(word(i));
  out << tev::endl;
}
