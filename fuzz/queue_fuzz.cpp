// Any queue buffer through every class's Create: what is decoded can be logged, and is encoded as the same message
// again.
#include "fuzz/StandIns.h"

#include "messaging/Messages.h"
#include "messaging/internal/MsgQueue.h"

#include <algorithm>
#include <iostream>
#include <memory>

namespace {

using Buffer = char[msgTypeSize + msgTextMax];

class Queue : public StandIns {
public:
  void sent(int, long, const std::string& text) override { form = text; }

  std::string form; ///< without its type
};

template <class Message>
void check(const Buffer& buffer) {
  static Message prototype{Exemplar()};
  const char id[2] = {static_cast<char>(Message::layout.id >> 8), static_cast<char>(Message::layout.id)};
  const std::unique_ptr<MsgObj> created(prototype.Create(buffer));
  FUZZ_CHECK((created != nullptr) == (memcmp(buffer + msgTypeSize, id, sizeof id) == 0));
  if (created == nullptr) return;
  tev::log << static_cast<const Message&>(*created);
  Queue queue;
  MsgQOutStream out(StandIns::queueId);
  created->stream(out);
  if (queue.form.empty()) return; // a type that reads as negative is refused
  // Zeros in the reserved places, and nothing behind the message's own end.
  std::string expected = std::string(id, 2) + std::string(2, '\0');
  expected.append(buffer + 8, 8 + 2 * Message::layout.fieldCount());
  expected.resize(Message::layout.size(), '\0');
  FUZZ_CHECK(queue.form == expected);
}

template <class... Messages>
void checkAll(const Buffer& buffer) {
  (check<Messages>(buffer), ...);
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
  checkAll<AdminControlReqMsg, AdminControlRespMsg, GetVideoResolutionReqMsg, GetVideoResolutionRespMsg,
           SetAudioSourceReqMsg, SetAudioSourceRespMsg, SetLoggingModeReqMsg, SetVideoModeReqMsg, SetVideoModeRespMsg,
           SetVideoResolutionReqMsg, SetVideoResolutionRespMsg, StreamControlReqMsg, StreamControlRespMsg,
           TakeSnapshotReqMsg, TakeSnapshotRespMsg>(buffer);
}
