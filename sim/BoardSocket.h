// How other processes talk to the running board: the board tools inside it, and views of it from other terminals.
#ifndef TEV_SIM_BOARDSOCKET_H
#define TEV_SIM_BOARDSOCKET_H

#include "platform/Descriptor.h"

#include <functional>
#include <poll.h>
#include <string>
#include <sys/types.h>
#include <vector>

namespace sim {

/// A question or an answer: words, the first of which says what it is about.
using SocketMessage = std::vector<std::string>;

/// The board's end. The socket has an abstract name made from the number of the board's mount namespace: processes
/// inside find it without being told, it leaves no file, and those outside see it in /proc/net/unix.
class BoardSocket {
public:
  using Answer = std::function<SocketMessage(const SocketMessage& question)>;

  /// Opens the socket of the mount namespace that the caller is in. Throws std::runtime_error.
  explicit BoardSocket(Answer answer);

  /// Adds what has to be waited for.
  void addTo(std::vector<pollfd>& waits) const;
  /// Serves those of `ready` that are the socket's own. Questions of other users are dropped.
  void serve(const std::vector<pollfd>& ready);

private:
  void acceptClient();
  bool serveClient(int fd); // false when the client is done

  Answer _answer;
  kr::Descriptor _listener;
  std::vector<kr::Descriptor> _clients;
};

/// Asks the board whose mount namespace the caller is in. Throws std::runtime_error when there is no answer.
SocketMessage askBoard(const SocketMessage& question);

/// A board of this user that runs somewhere on the machine.
struct RunningBoard {
  std::string socket; // its abstract name
  pid_t pid;          // of the board's process, 0 where it cannot be seen
};
/// All of them, by their numbers. Throws std::runtime_error.
std::vector<RunningBoard> findBoards();
/// Asks this board. Throws std::runtime_error when there is no answer, as when it has ended.
SocketMessage askBoard(const RunningBoard& board, const SocketMessage& question);

} // namespace sim

#endif
