// An appliance whose nodes hold anything and whose services reply with any bytes, in any pieces between any two calls.
#ifndef TEV_FUZZ_FUZZEDAPPLIANCE_H
#define TEV_FUZZ_FUZZEDAPPLIANCE_H

#include "fuzz/StandIns.h"
#include "messaging/Protocol.h"

#include <algorithm>
#include <sys/mman.h>

inline constexpr char toolFolder[] = "/mnt/tev/sys/bin/";

class FuzzedAppliance : public StandIns {
public:
  FuzzedAppliance(Input& in, std::string nodeText) : _in(in), _nodeText(std::move(nodeText)) {}
  ~FuzzedAppliance() { emptyPipe(); }

  void sent(int queue, long, const std::string& text) override {
    FUZZ_CHECK(queue == protocol::videoQueueId || queue == protocol::streamQueueId || queue == protocol::adminQueueId);
    FUZZ_CHECK(text.size() >= 16 && text.size() <= 28 && text.size() % 4 == 0);
  }

  int poll(pollfd* waits, nfds_t count, int) override {
    _reads = 0;
    arrive();
    return SystemCalls::poll(waits, count, 0);
  }

  ssize_t read(int fd, void* bytes, size_t size) override {
    FUZZ_CHECK(++_reads <= 3); // of a pipe after a wait, or of a node
    arrive();
    return SystemCalls::read(fd, bytes, size);
  }

  int openNode(const char* path) override {
    _reads = 0;
    if (_nodeText == "missing" || _in.number(0, 15) == 15) return StandIns::openNode(path);
    const int fd = memfd_create("node", MFD_CLOEXEC);
    FUZZ_CHECK(fd > 0 && write(fd, _nodeText.data(), _nodeText.size()) >= 0 && lseek(fd, 0, SEEK_SET) == 0);
    return fd;
  }

  int system(const char* commandLine) override {
    const std::string line = commandLine;
    FUZZ_CHECK(line.rfind(toolFolder, 0) == 0);
    const size_t word = std::min(line.find(' '), line.size() - 1) + 1; // quoted, unless nothing in it is special
    FUZZ_CHECK(line.find_first_of(" $&|;<>()`\"'\\*?[#~!{", word) == line.npos ||
               (line[word] == '\'' && line.back() == '\''));
    return _in.once() ? 0 : -1;
  }

private:
  void arrive() {
    if (_in.once()) intoPipe(_in.bytes(64));
  }

  Input& _in;
  const std::string _nodeText;
  int _reads = 0;
};

#endif
