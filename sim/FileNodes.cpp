// The nodes as plain files that are watched, where the machine keeps us from a file system of our own.
#include "sim/Descriptor.h"
#include "sim/Failure.h"
#include "sim/Layout.h"
#include "sim/NodeServer.h"

#include <algorithm>
#include <fcntl.h>
#include <map>
#include <sys/inotify.h>
#include <sys/stat.h>

namespace sim {

namespace {

class FileNodes : public NodeServer {
public:
  explicit FileNodes(Board& board);

  int descriptor() const override { return mWatch.get(); }
  void serve() override;
  void publish() override;

private:
  struct File {
    Descriptor descriptor; // stays open, so that the board's own writes are never reported as a file being closed
    std::string text;      // what it holds, as far as the board knows
  };

  void compare(size_t node);

  Board& mBoard;
  Descriptor mWatch;
  std::vector<File> mFiles;
  std::map<int, size_t> mNodeOfWatch;
};

FileNodes::FileNodes(Board& board) : mBoard(board), mWatch(check(inotify_init1(IN_NONBLOCK | IN_CLOEXEC), "inotify")) {
  mountMemory("/sys", 0755);
  for (const Node& node : board.nodes()) {
    if (node.failWrite) throw std::runtime_error("failing writes need nodes by fuse");
    makeFolders(node.path.substr(0, node.path.rfind('/')));
    const int fd = open(node.path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, node.mode);
    mFiles.push_back({Descriptor(check(fd, node.path)), ""});
    const int watch = check(inotify_add_watch(mWatch.get(), node.path.c_str(), IN_CLOSE_WRITE), node.path);
    mNodeOfWatch[watch] = mFiles.size() - 1;
    if ((node.mode & 0222U) == 0) makeReadOnly(node.path);
  }
  publish();
}

void FileNodes::publish() {
  for (size_t i = 0; i < mFiles.size(); ++i) {
    File& file = mFiles[i];
    const std::string& text = mBoard.nodes()[i].text;
    if (text == file.text) continue;
    const auto size = static_cast<ssize_t>(text.size());
    if (pwrite(file.descriptor.get(), text.data(), text.size(), 0) != size ||
        ftruncate(file.descriptor.get(), size) != 0) {
      throw failure(mBoard.nodes()[i].path);
    }
    file.text = text;
  }
}

void FileNodes::serve() {
  alignas(inotify_event) char events[4096];
  ssize_t size = 0;
  while ((size = read(mWatch.get(), events, sizeof events)) > 0) {
    for (const char* at = events; at < events + size;) {
      const auto* event = reinterpret_cast<const inotify_event*>(at);
      const auto node = mNodeOfWatch.find(event->wd);
      if (node != mNodeOfWatch.end()) compare(node->second);
      at += sizeof *event + event->len;
    }
  }
}

// Tells the board what is different in the file now.
void FileNodes::compare(size_t index) {
  File& file = mFiles[index];
  const Node& node = mBoard.nodes()[index];
  std::string now(2 * 4096, '\0');
  now.resize(static_cast<size_t>(check(pread(file.descriptor.get(), now.data(), now.size(), 0), node.path)));
  if (now == file.text) return;
  file.text = now; // publish() puts there what the board makes of it
  if (node.binary) {
    now.resize(node.text.size(), '\0'); // a chip does not change its size
    const auto first = std::mismatch(now.begin(), now.end(), node.text.begin()).first;
    const auto last = std::mismatch(now.rbegin(), now.rend(), node.text.rbegin()).first.base();
    if (first < last) mBoard.write(index, static_cast<size_t>(first - now.begin()), std::string(first, last));
  } else {
    mBoard.write(index, 0, now);
  }
  publish();
}

} // namespace

std::unique_ptr<NodeServer> makeFileNodes(Board& board) { return std::make_unique<FileNodes>(board); }

} // namespace sim
