#include "trial/Trace.h"

#include "sim/SystemError.h"

#include <algorithm>
#include <cstdlib>
#include <fcntl.h>
#include <map>
#include <sys/stat.h>
#include <unistd.h>

namespace trial {

namespace {

constexpr int garbageType = 0xa5a5; // what the services of the stand-in appliance send instead of replies

bool begins(const std::string& text, const char* with) { return text.rfind(with, 0) == 0; }

// The types of the replies that commands show in the log.
const std::map<std::string, int> shownReplies = {{"GetVideoResolutionRespMsg:", 103},
                                                 {"SetVideoResolutionRespMsg:", 105},
                                                 {"StreamControlRespMsg:", 107},
                                                 {"TakeSnapshotRespMsg:", 111}};

// Lines that say nothing about how a request ended.
bool isOrdinary(const std::string& line) {
  constexpr const char* beginnings[] = {
      "MsgObj::send()[isReqSyncMsg/remote] - ", "CommObj::ReadReplyMsg(...) - ",
      "stream-cmd: got respmsg: ", "snap-cmd: got respmsg: ", "video-resolution-cmd: got respmsg: "};
  return line.empty() || std::any_of(std::begin(beginnings), std::end(beginnings),
                                     [&](const char* beginning) { return begins(line, beginning); });
}

} // namespace

Trace::Trace(const char* path) : _file(sim::check(open(path, O_RDONLY | O_CLOEXEC), path)) {
  _at = sim::check(lseek(_file.get(), 0, SEEK_END), path);
}

Trace::News Trace::read() {
  News news;
  char piece[4096];
  ssize_t count = 0;
  while ((count = sim::check(pread(_file.get(), piece, sizeof piece, _at), "the trace log")) > 0) {
    _at += count;
    _rest.append(piece, static_cast<size_t>(count));
  }
  size_t start = 0;
  for (size_t end = 0; (end = _rest.find('\n', start)) != _rest.npos; start = end + 1)
    take(_rest.substr(start, end - start), news);
  _rest.erase(0, start);
  return news;
}

void Trace::take(const std::string& line, News& news) {
  constexpr char typeLabel[] = "   msgType = ";
  if (begins(line, "timed out waiting on reply of msgType: ")) {
    news.ending = Ending::timedOut;
  } else if (begins(line, "couldn't get all the expected data, size=")) {
    news.ending = Ending::tooShort;
  } else if (begins(line, "MsgObj::send()[isReqSyncMsg/remote] - pSourceCommObj->ReadReplyMsg(...) returned: ")) {
    ++news.requests;
    if (news.ending == Ending::none) news.ending = Ending::answered;
  } else if (shownReplies.count(line) > 0) {
    _reply = line;
  } else if (begins(line, typeLabel)) {
    const int type = atoi(line.c_str() + sizeof typeLabel - 1);
    if (type == garbageType) {
      news.ending = Ending::garbage;
    } else if (const auto shown = shownReplies.find(_reply); shown == shownReplies.end() || shown->second != type) {
      news.ending = Ending::mixedUp;
    }
  } else if (begins(line, "flushing data from pipe: ")) {
    ++news.drained;
  } else if (begins(line, "MsgObj::Make(): returning 0 for creation request of msgid: ") ||
             begins(line, "CommObj::run() - dropping an oversized message from msgQ: ")) {
    ++news.undecoded;
  } else if (!isOrdinary(line) && !begins(line, "   ")) { // the fields of a reply
    news.strange.push_back(line);
  }
}

void forgetLog(const std::string& path) {
  constexpr off_t kept = 1 << 20;
  const kr::Descriptor file(open(path.c_str(), O_WRONLY | O_CLOEXEC));
  struct stat about = {};
  if (!file || fstat(file.get(), &about) != 0 || about.st_size <= 2 * kept) return;
  // A file system that cannot do it keeps the bytes.
  (void)fallocate(file.get(), FALLOC_FL_PUNCH_HOLE | FALLOC_FL_KEEP_SIZE, 0, about.st_size - kept);
}

} // namespace trial
