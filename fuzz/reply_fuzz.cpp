// Replies through an endpoint's pipe: any bytes, arriving in any pieces between any two calls. A model of the pipe says
// what each call must take, and what comes of it.
#include "fuzz/Check.h"
#include "fuzz/StandIns.h"

#include "messaging/AdminControlReqMsg.h"
#include "messaging/CommObj.h"
#include "messaging/GetVideoResolutionReqMsg.h"
#include "messaging/SetLoggingModeReqMsg.h"
#include "messaging/SetVideoModeReqMsg.h"

#include <cerrno>
#include <cstring>
#include <fuzzer/FuzzedDataProvider.h>
#include <memory>

namespace {

class Pipe : public StandIns {
public:
  explicit Pipe(FuzzedDataProvider& data) : _data(data) {}

  void arrive() override {
    const std::string piece = _data.ConsumeRandomLengthString(_data.ConsumeBool() ? 40 : 1500);
    if (_content.size() + piece.size() > 60000) return; // as much as a pipe holds
    intoPipe(piece.data(), piece.size());
    _content += piece;
    if (calls == 0) readyAtFirst = !_content.empty(); // the call before the reads asks whether there is anything
    ++calls;
  }

  ssize_t haveRead(int, const void* bytes, size_t wanted, ssize_t count) override {
    const size_t there = std::min(wanted, _content.size());
    FUZZ_CHECK(count == (there > 0 ? static_cast<ssize_t>(there) : -1));
    if (count > 0) taken.append(static_cast<const char*>(bytes), there);
    FUZZ_CHECK(_content.compare(0, there, taken, taken.size() - there, there) == 0);
    _content.erase(0, there);
    return count;
  }

  void begin() {
    taken.clear();
    calls = 0;
    readyAtFirst = false;
  }

  void empty(CommObj& endpoint) {
    while (!_content.empty())
      endpoint.SyncClean();
  }

  std::string taken;
  int calls = 0;
  bool readyAtFirst = false;

private:
  FuzzedDataProvider& _data;
  std::string _content;
};

template <class Request>
std::unique_ptr<MsgObj> request() {
  return std::make_unique<Request>(StandIns::queueId, 98307);
}

CommObj& endpoint() {
  static CommObj* const made = [] {
    tev::initlog("/dev/null");
    tev::log << tev::enable;
    return new CommObj("tCliAppTask");
  }();
  return *made;
}

void exchange(Pipe& pipe, MsgObj& request) {
  const std::unique_ptr<MsgObj> reply(endpoint().ReadReplyMsg(&request));
  const std::unique_ptr<MsgObj> empty(request.CreateResponse());
  if (empty == nullptr) {
    FUZZ_CHECK(reply == nullptr && pipe.calls == 0);
    return;
  }
  FUZZ_CHECK(pipe.calls <= 1 + 3);
  FUZZ_CHECK(pipe.readyAtFirst || pipe.calls == 1);
  FUZZ_CHECK(pipe.taken.size() <= empty->size());
  FUZZ_CHECK((reply != nullptr) == (pipe.taken.size() == empty->size()));
  if (reply == nullptr) return;
  FUZZ_CHECK(memcmp(reply->image(), pipe.taken.data(), pipe.taken.size()) == 0);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t size) {
  FuzzedDataProvider data(bytes, size);
  Pipe pipe(data);
  CommObj& console = endpoint();
  const std::unique_ptr<MsgObj> requests[] = {request<SetVideoModeReqMsg>(), request<GetVideoResolutionReqMsg>(),
                                              request<AdminControlReqMsg>(), request<SetLoggingModeReqMsg>()};
  while (data.remaining_bytes() > 0) {
    pipe.begin();
    const unsigned kind = data.ConsumeIntegralInRange(0U, 4U);
    if (kind < std::size(requests)) {
      exchange(pipe, *requests[kind]);
    } else {
      console.SyncClean();
      FUZZ_CHECK(pipe.taken.size() <= 1024 && pipe.calls <= 1 + 3);
    }
  }
  pipe.empty(console);
  return 0;
}
