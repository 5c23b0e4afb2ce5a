#include "sim/BoardSocket.h"
#include "sim/Failure.h"

#include <algorithm>
#include <cstddef>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>

namespace sim {

namespace {

constexpr size_t LONGEST = 64UL * 1024; // of a question or an answer

struct Address {
  sockaddr_un name = {};
  socklen_t size = 0;
};

Address address() {
  struct stat space = {};
  check(stat("/proc/self/ns/mnt", &space), "/proc/self/ns/mnt");
  Address out;
  out.name.sun_family = AF_UNIX;
  const std::string text = "tev-sim-" + std::to_string(space.st_ino);
  text.copy(out.name.sun_path + 1, sizeof out.name.sun_path - 1); // after a zero byte: no file
  out.size = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + 1 + text.size());
  return out;
}

// One packet holds all words, each with a zero byte after it.
bool sendWords(int fd, const Words& words) {
  std::string packet;
  for (const std::string& word : words)
    packet += word + '\0';
  return send(fd, packet.data(), packet.size(), MSG_NOSIGNAL) == static_cast<ssize_t>(packet.size());
}

// The words of the next packet; none when it is too long, or when the other side is gone.
Words receiveWords(int fd) {
  std::string packet(LONGEST, '\0');
  const ssize_t size = recv(fd, packet.data(), packet.size(), MSG_TRUNC);
  if (size <= 0 || static_cast<size_t>(size) > packet.size()) return {};
  packet.resize(static_cast<size_t>(size));
  Words words;
  for (size_t at = 0; at < packet.size();) {
    const size_t end = std::min(packet.find('\0', at), packet.size());
    words.push_back(packet.substr(at, end - at));
    at = end + 1;
  }
  return words;
}

} // namespace

BoardSocket::BoardSocket(Answer answer)
    : mAnswer(std::move(answer)),
      mListener(check(socket(AF_UNIX, SOCK_SEQPACKET | SOCK_NONBLOCK | SOCK_CLOEXEC, 0), "the board's socket")) {
  const Address own = address();
  check(bind(mListener.get(), reinterpret_cast<const sockaddr*>(&own.name), own.size), "the board's socket");
  check(listen(mListener.get(), 16), "the board's socket");
}

void BoardSocket::addTo(std::vector<pollfd>& waits) const {
  waits.push_back({mListener.get(), POLLIN, 0});
  for (const Descriptor& client : mClients)
    waits.push_back({client.get(), POLLIN, 0});
}

void BoardSocket::serve(const std::vector<pollfd>& ready) {
  for (const pollfd& wait : ready) {
    if (wait.revents == 0) continue;
    if (wait.fd == mListener.get()) {
      acceptClient();
      continue;
    }
    const auto client =
        std::find_if(mClients.begin(), mClients.end(), [&](const Descriptor& known) { return known.get() == wait.fd; });
    if (client != mClients.end() && !serveClient(wait.fd)) mClients.erase(client);
  }
}

void BoardSocket::acceptClient() {
  Descriptor client(accept4(mListener.get(), nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC));
  ucred peer = {};
  socklen_t size = sizeof peer;
  if (!client) return; // it has gone away again
  if (getsockopt(client.get(), SOL_SOCKET, SO_PEERCRED, &peer, &size) != 0 || peer.uid != geteuid()) return;
  mClients.push_back(std::move(client));
}

bool BoardSocket::serveClient(int fd) {
  const Words question = receiveWords(fd);
  return !question.empty() && sendWords(fd, mAnswer(question));
}

Words askBoard(const Words& question) {
  const Descriptor board(check(socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0), "the board's socket"));
  const Address own = address();
  check(connect(board.get(), reinterpret_cast<const sockaddr*>(&own.name), own.size), "no board here");
  Words answer;
  if (sendWords(board.get(), question)) answer = receiveWords(board.get());
  if (answer.empty()) throw std::runtime_error("the board does not answer");
  return answer;
}

} // namespace sim
