// Replies through an endpoint's pipe: any bytes, arriving in any pieces between any two calls. A model of the pipe says
// what each call must take, and what comes of it.
#include "fuzz/StandIns.h"

#include "messaging/AdminControlReqMsg.h"
#include "messaging/CommObj.h"
#include "messaging/GetVideoResolutionReqMsg.h"
#include "messaging/SetLoggingModeReqMsg.h"
#include "messaging/SetVideoModeReqMsg.h"

#include <memory>

namespace {

CommObj* endpoint = nullptr;

class Pipe : public StandIns {
public:
  explicit Pipe(Input& in) : _in(in) {}

  void arrive() override {
    const std::string piece = _in.bytes(_in.once() ? 40 : 1500);
    if (_content.size() + piece.size() > 60000) return; // as much as a pipe holds
    intoPipe(piece);
    _content += piece;
    if (_calls == 0) _readyAtFirst = !_content.empty(); // the call before the reads asks whether there is anything
    ++_calls;
  }

  ssize_t read(int fd, void* bytes, size_t size) override {
    const ssize_t count = StandIns::read(fd, bytes, size);
    const size_t there = std::min(size, _content.size());
    FUZZ_CHECK(count == (there > 0 ? static_cast<ssize_t>(there) : -1));
    FUZZ_CHECK(there == 0 || memcmp(bytes, _content.data(), there) == 0);
    _taken += _content.substr(0, there);
    _content.erase(0, there);
    return count;
  }

  template <class Request>
  void exchange() {
    begin();
    Request request(queueId, 98307);
    const std::unique_ptr<MsgObj> reply(endpoint->ReadReplyMsg(&request)), empty(request.CreateResponse());
    if (empty == nullptr) {
      FUZZ_CHECK(reply == nullptr && _calls == 0);
      return;
    }
    FUZZ_CHECK(_readyAtFirst || _calls == 1);
    FUZZ_CHECK(_taken.size() <= empty->size());
    FUZZ_CHECK((reply != nullptr) == (_taken.size() == empty->size()));
    FUZZ_CHECK(reply == nullptr || memcmp(reply->image(), _taken.data(), _taken.size()) == 0);
  }

  void drain() {
    begin();
    endpoint->SyncClean();
    FUZZ_CHECK(_taken.size() <= 1024);
  }

  void check() { FUZZ_CHECK(_calls <= 1 + 3); }

  void end() {
    while (!_content.empty())
      drain();
  }

private:
  void begin() {
    _taken.clear();
    _calls = 0;
    _readyAtFirst = false;
  }

  Input& _in;
  std::string _content, _taken;
  int _calls = 0;
  bool _readyAtFirst = false;
};

} // namespace

static void start() {
  tev::initlog("/dev/null");
  tev::log << tev::enable;
  StandIns standIns;
  endpoint = new CommObj("tCliAppTask");
}

static void fuzz(Input& in) {
  Pipe pipe(in);
  in.play(pipe, {&Pipe::exchange<SetVideoModeReqMsg>, &Pipe::exchange<GetVideoResolutionReqMsg>,
                 &Pipe::exchange<AdminControlReqMsg>, &Pipe::exchange<SetLoggingModeReqMsg>, &Pipe::drain});
  pipe.end();
}
