#include "sim/BoardSocket.h"

#include "sim/SystemError.h"

#include <algorithm>
#include <cstddef>
#include <fstream>
#include <set>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>

namespace sim {

namespace {

constexpr size_t longestPacket = 64UL * 1024; // bytes of a question or an answer

struct Address {
  sockaddr_un name = {};
  socklen_t size = 0;
};

constexpr char namePrefix[] = "tev-sim-";

// Returns the socket name of the caller's board.
std::string ownName() {
  struct stat space = {};
  check(stat("/proc/self/ns/mnt", &space), "/proc/self/ns/mnt");
  return namePrefix + std::to_string(space.st_ino);
}

Address addressOf(std::string_view name) {
  Address out;
  out.name.sun_family = AF_UNIX;
  name.copy(out.name.sun_path + 1, sizeof out.name.sun_path - 1); // the leading zero byte makes the name abstract
  out.size = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + 1 + name.size());
  return out;
}

kr::Descriptor connectTo(std::string_view name) {
  kr::Descriptor board(check(socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0), "the board's socket"));
  const Address address = addressOf(name);
  check(connect(board.get(), reinterpret_cast<const sockaddr*>(&address.name), address.size), "no board here");
  return board;
}

// Sends all words in one packet, each followed by a zero byte.
bool sendWords(int fd, const SocketMessage& words) {
  std::string packet;
  for (const std::string& word : words)
    packet += word + '\0';
  return send(fd, packet.data(), packet.size(), MSG_NOSIGNAL) == static_cast<ssize_t>(packet.size());
}

// Returns the words of the next packet; none if it is too long or the peer has closed the connection.
SocketMessage receiveWords(int fd) {
  std::string packet(longestPacket, '\0');
  const ssize_t size = recv(fd, packet.data(), packet.size(), MSG_TRUNC);
  if (size <= 0 || static_cast<size_t>(size) > packet.size()) return {};
  packet.resize(static_cast<size_t>(size));
  SocketMessage words;
  for (size_t at = 0; at < packet.size();) {
    const size_t end = std::min(packet.find('\0', at), packet.size());
    words.push_back(packet.substr(at, end - at));
    at = end + 1;
  }
  return words;
}

} // namespace

BoardSocket::BoardSocket(Answer answer)
    : _answer(std::move(answer)),
      _listener(check(socket(AF_UNIX, SOCK_SEQPACKET | SOCK_NONBLOCK | SOCK_CLOEXEC, 0), "the board's socket")) {
  const Address own = addressOf(ownName());
  check(bind(_listener.get(), reinterpret_cast<const sockaddr*>(&own.name), own.size), "the board's socket");
  check(listen(_listener.get(), 16), "the board's socket");
}

void BoardSocket::addTo(std::vector<pollfd>& waits) const {
  waits.push_back({_listener.get(), POLLIN, 0});
  for (const kr::Descriptor& client : _clients)
    waits.push_back({client.get(), POLLIN, 0});
}

void BoardSocket::serve(const std::vector<pollfd>& ready) {
  for (const pollfd& wait : ready) {
    if (wait.revents == 0) continue;
    if (wait.fd == _listener.get()) {
      acceptClient();
      continue;
    }
    const auto client = std::find_if(_clients.begin(), _clients.end(),
                                     [&](const kr::Descriptor& known) { return known.get() == wait.fd; });
    if (client != _clients.end() && !serveClient(wait.fd)) _clients.erase(client);
  }
}

void BoardSocket::acceptClient() {
  kr::Descriptor client(accept4(_listener.get(), nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC));
  ucred peer = {};
  socklen_t size = sizeof peer;
  if (!client) return; // the client has closed the connection already
  if (getsockopt(client.get(), SOL_SOCKET, SO_PEERCRED, &peer, &size) != 0 || peer.uid != geteuid()) return;
  _clients.push_back(std::move(client));
}

bool BoardSocket::serveClient(int fd) {
  const SocketMessage question = receiveWords(fd);
  return !question.empty() && sendWords(fd, _answer(question));
}

namespace {

SocketMessage ask(int board, const SocketMessage& question) {
  SocketMessage answer;
  if (sendWords(board, question)) answer = receiveWords(board);
  if (answer.empty()) throw std::runtime_error("the board does not answer");
  return answer;
}

} // namespace

SocketMessage askBoard(const SocketMessage& question) { return ask(connectTo(ownName()).get(), question); }

SocketMessage askBoard(const RunningBoard& board, const SocketMessage& question) {
  return ask(connectTo(board.socket).get(), question);
}

std::vector<RunningBoard> findBoards() {
  std::ifstream sockets("/proc/net/unix");
  if (!sockets) throw std::runtime_error("/proc/net/unix cannot be read");
  std::set<std::string> names; // a set, because each connection is listed under the name too
  for (std::string line; std::getline(sockets, line);) {
    const size_t at = line.rfind(std::string(" @") + namePrefix);
    if (at != line.npos) names.insert(line.substr(at + 2));
  }
  std::vector<RunningBoard> found;
  for (const std::string& name : names) {
    try {
      const kr::Descriptor board = connectTo(name);
      ucred peer = {};
      socklen_t size = sizeof peer;
      check(getsockopt(board.get(), SOL_SOCKET, SO_PEERCRED, &peer, &size), name);
      // Boards of other users close the connection without an answer.
      if (ask(board.get(), {"status"})[0] == "status") found.push_back({name, peer.pid});
    } catch (const std::runtime_error&) {
      continue; // another user's board, or one that has just ended
    }
  }
  return found;
}

} // namespace sim
