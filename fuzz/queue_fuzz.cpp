// Queue buffers through Make and every class's Create: whatever the bytes, what is decoded is encoded as the same
// message again.
#include "fuzz/StandIns.h"

#include "messaging/Messages.h"
#include "messaging/MsgQueue.h"

#include <algorithm>
#include <iostream>
#include <memory>

namespace {

class Queue : public StandIns {
public:
  void sent(int queue, long type, const std::string& text) override {
    FUZZ_CHECK(queue == queueId);
    const auto low = static_cast<int32_t>(type);
    form = std::string(reinterpret_cast<const char*>(&low), sizeof low) + text;
  }

  std::string form;
};

using Buffer = char[msgTypeSize + msgTextMax];

uint32_t number(const char* bytes, size_t size) {
  uint32_t value = 0;
  for (size_t i = 0; i < size; ++i)
    value = value << 8 | static_cast<unsigned char>(bytes[i]);
  return value;
}

std::string bigEndian(uint32_t value) {
  return {static_cast<char>(value >> 24), static_cast<char>(value >> 16), static_cast<char>(value >> 8),
          static_cast<char>(value)};
}

/// The queue form of what `buffer` holds: the received one, with the type word that the class makes of it, zeros in the
/// reserved places and nothing behind its own end.
std::string expectedForm(const Buffer& buffer, const MsgLayout& layout) {
  const uint32_t source = number(buffer + 8, 4);
  uint32_t mtype = source | static_cast<uint32_t>(layout.id) << 16;
  if (layout.restoresFlags) mtype |= number(buffer, 4) & (MsgObj::syncFlag | MsgObj::remoteFlag);
  const size_t payload = 2 * layout.fieldCount();
  std::string form = bigEndian(mtype) + bigEndian(static_cast<uint32_t>(layout.id) << 16);
  form += std::string(buffer + 8, 8 + payload);
  form.resize(msgTypeSize + layout.size(), '\0');
  return form;
}

std::string encoded(Queue& queue, MsgObj& message) {
  queue.form.clear();
  MsgQOutStream out(StandIns::queueId);
  message.stream(out);
  return queue.form;
}

template <class Message>
void check(Queue& queue, const Buffer& buffer) {
  static Message prototype{Exemplar()};
  const bool mine = number(buffer + 4, 2) == Message::layout.id;
  const std::unique_ptr<MsgObj> created(prototype.Create(buffer));
  FUZZ_CHECK((created != nullptr) == mine);
  if (!mine) return;
  tev::log << static_cast<const Message&>(*created);
  const std::unique_ptr<MsgObj> made(MsgObj::Make(buffer));
  FUZZ_CHECK(dynamic_cast<Message*>(made.get()) != nullptr);
  const std::string expected = expectedForm(buffer, Message::layout);
  // The kernel reads the type word in native order and refuses what is not positive.
  const bool refused = static_cast<signed char>(expected[3]) < 0 || number(expected.data(), 4) == 0;
  FUZZ_CHECK(encoded(queue, *created) == (refused ? "" : expected));
  FUZZ_CHECK(encoded(queue, *made) == (refused ? "" : expected));
}

template <class... Messages>
void checkAll(Queue& queue, const Buffer& buffer) {
  (check<Messages>(queue, buffer), ...);
}

} // namespace

static void start() {
  tev::initlog("/dev/null");
  tev::log << tev::enable;
  std::cerr.rdbuf(nullptr); // two decoders trace there
}

static void fuzz(Input& in) {
  const auto bytes = in.ConsumeRemainingBytes<char>();
  Buffer buffer = {}; // as the receive loop has it: what did not come is zero
  std::copy_n(bytes.begin(), std::min(bytes.size(), sizeof buffer), buffer);
  Queue queue;
  checkAll<AdminControlReqMsg, AdminControlRespMsg, GetVideoResolutionReqMsg, GetVideoResolutionRespMsg,
           SetAudioSourceReqMsg, SetAudioSourceRespMsg, SetLoggingModeReqMsg, SetVideoModeReqMsg, SetVideoModeRespMsg,
           SetVideoResolutionReqMsg, SetVideoResolutionRespMsg, StreamControlReqMsg, StreamControlRespMsg,
           TakeSnapshotReqMsg, TakeSnapshotRespMsg>(queue, buffer);
  const std::unique_ptr<MsgObj> any(MsgObj::Make(buffer));
  const uint32_t id = number(buffer + 4, 2);
  FUZZ_CHECK((any != nullptr) == ((id >= 100 && id <= 112) || id == 120 || id == 121));
}
