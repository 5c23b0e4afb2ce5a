// The base of all messages between tasks.
//
// A message is one contiguous image in memory: a header of 16 bytes and up to six 16-bit payload words. The image in
// native byte order is what crosses a pipe, so a reply is read straight into a message object; field by field in
// big-endian order it is what crosses a queue. There is one encoder, one decoder and one renderer, here; what a
// concrete class declares about itself (MsgLayout) drives them.
#ifndef TEV_MESSAGING_MSGOBJ_H
#define TEV_MESSAGING_MSGOBJ_H

#include "log/tevlog.h"
#include "messaging/Exemplar.h"
#include "messaging/MsgQOutStream.h"
#include "messaging/PipeOutStream.h"

#include <cstddef>
#include <cstdint>
#include <map>

class CommObj;

/// The bytes of a message, in native order. `reserved` is zero on every wire form.
struct MsgImage {
  static constexpr size_t headerSize = 16;
  static constexpr size_t wordsMax = 6;

  uint32_t mtype; ///< source task id OR (message type << 16), bit 15 sync, bit 16 remote
  uint16_t type;  ///< message id: even for requests, odd for responses
  uint16_t reserved;
  uint32_t srcTid;
  uint32_t dstTid;
  uint16_t words[wordsMax]; ///< the payload
};
static_assert(sizeof(MsgImage) == MsgImage::headerSize + 2 * MsgImage::wordsMax, "the image has no gaps");

/// What the pipe serialiser makes of a message.
enum class PipeForm {
  native,    ///< the image as it is in memory
  bigEndian, ///< the queue form
  none,      ///< nothing but a line in the trace log
};

/// What a message class declares about itself.
struct MsgLayout {
  struct Field {
    const char* name;
    uint16_t defaultValue; ///< what the constructors set
    int width = 7;         ///< of the name in the trace log, in characters
  };

  const char* name; ///< of the class
  uint16_t id;
  PipeForm pipeForm;
  bool restoresFlags;               ///< whether decoding takes the sync and remote flags from the received type word
  bool rendersMtype;                ///< whether the trace log shows the mtype word
  Field fields[MsgImage::wordsMax]; ///< in payload order; the first one without a name ends them

  constexpr size_t fieldCount() const {
    size_t count = 0;
    while (count < MsgImage::wordsMax && fields[count].name != nullptr)
      ++count;
    return count;
  }

  /// Length of the image in bytes: the header and the payload, rounded up to a multiple of 4.
  constexpr unsigned int size() const {
    return static_cast<unsigned int>(MsgImage::headerSize + (2 * fieldCount() + 3) / 4 * 4);
  }
};

/// Base class of all messages. Created with new, filled, given to Send() once. Not thread-safe.
class MsgObj {
public:
  static constexpr uint32_t syncFlag = 0x8000;
  static constexpr uint32_t remoteFlag = 0x10000;

  /// All header fields 0.
  MsgObj();

  /// Fills the header. Task ids are taken as 32-bit numbers.
  MsgObj(unsigned long srcTid, unsigned long dstTid, unsigned short msgType);

  /// Registers this object, which must live until the process ends, as the prototype of `msgId`. A second one for the
  /// same id is not registered. Only before the first endpoint runs: the registry has no lock.
  MsgObj(Exemplar exemplar, unsigned short msgId);

  MsgObj(const MsgObj&) = default;
  MsgObj& operator=(const MsgObj&) = default;
  virtual ~MsgObj() = default;

  /// Sends the message where its destination id, its flags and its kind (request or response) say, and deletes it. For
  /// a synchronous request: waits up to 3 seconds for the reply and returns it as a new object that belongs to the
  /// caller. Returns null in every other case, also when sending failed: failures show in the trace log or as a
  /// time-out. Before the wait for the reply it waits, without limit, for the endpoint's sync lock and for room in a
  /// full queue. Only in these two can the calling thread be cancelled; the message is deleted then, too.
  [[nodiscard]] virtual MsgObj* Send();

  /// Length of the message's image in bytes.
  virtual unsigned int size() const;

  /// Acts on the message, on the thread of the endpoint that received it.
  virtual int InvokeHandler(CommObj* receiver) = 0;

  /// Writes the message to a queue or pipe. Failures are silent; that of a queue is kept in the stream. Returns the
  /// stream.
  virtual MsgQOutStream& stream(MsgQOutStream& out) = 0;
  virtual PipeOutStream& stream(PipeOutStream& out) = 0;

  /// A new, empty reply of the class that answers this request, owned by the caller; null if nothing answers it or
  /// memory has run out.
  [[nodiscard]] virtual MsgObj* CreateResponse() = 0;

  /// A new message decoded from `buffer`, a queue form, owned by the caller; null if the buffer holds another message
  /// id or memory has run out.
  [[nodiscard]] virtual MsgObj* Create(const void* buffer) = 0;

  /// Decodes a received queue form with the prototype registered for its id. Null, and a line in the trace log, if
  /// there is none. The message belongs to the caller.
  [[nodiscard]] static MsgObj* Make(const void* buffer);

  /// The two parts of Make: decodes without the line; and writes the line.
  [[nodiscard]] static MsgObj* Decode(const void* buffer);
  static void LogUndecodable(const void* buffer);

  unsigned short GetMsgType() const { return _image.type; }
  unsigned long GetSrcTid() const { return _image.srcTid; }
  unsigned long GetDstTid() const { return _image.dstTid; }
  unsigned long GetMtype() const { return _image.mtype; }

  void SetSync() { _image.mtype |= syncFlag; }
  void ClearSync() { _image.mtype &= ~syncFlag; }
  bool IsSyncMsg() const { return (_image.mtype & syncFlag) != 0; }

  void SetRemote() { _image.mtype |= remoteFlag; }
  void ClearRemote() { _image.mtype &= ~remoteFlag; }
  bool IsRemoteMsg() const { return (_image.mtype & remoteFlag) != 0; }

  bool IsReqMsg() const { return _image.type % 2 == 0; }
  bool IsRespMsg() const { return !IsReqMsg(); }

  /// The image, size() bytes, for reading a reply straight into the message.
  void* image() { return &_image; }
  const void* image() const { return &_image; }

  /// The payload words, in the order of the class's layout. `index` is less than MsgImage::wordsMax.
  uint16_t word(size_t index) const { return _image.words[index]; }
  void setWord(size_t index, uint16_t value) { _image.words[index] = value; }

protected:
  void setDefaults(const MsgLayout& layout);

  // The shared mechanism, driven by a class's layout.
  void encodeTo(void* buffer, const MsgLayout& layout) const; ///< fills the queue form, 4 + size() bytes
  void writeTo(MsgQOutStream& out, const MsgLayout& layout) const;
  void writeTo(const PipeOutStream& out, const MsgLayout& layout) const;
  void renderTo(tev::tevlog& out, const MsgLayout& layout) const;
  void decodeFrom(const void* buffer, const MsgLayout& layout); ///< header and payload of a queue form

  static unsigned short idIn(const void* buffer); ///< the message id of a queue form

private:
  // Never destroyed, and made at first use: exemplars are static objects, and a receive thread may outlive the static
  // destructors.
  static std::map<unsigned short, MsgObj*>& _sMsgId2MsgObj();

  MsgImage _image;
};

#endif
