// The socket of a running board. Clients are the service tasks and board tools on it, and --status outside.
#ifndef TEV_SIM_BOARDSOCKET_H
#define TEV_SIM_BOARDSOCKET_H

#include "platform/Descriptor.h"

#include <functional>
#include <poll.h>
#include <string>
#include <sys/types.h>
#include <vector>

namespace sim {

/// A question or an answer, as words. The first word of a question is its kind.
using SocketMessage = std::vector<std::string>;

/// The board's end. The socket's abstract name is made from the inode number of the board's mount namespace: processes
/// on the board can derive it, no file is left behind, and processes outside find it in /proc/net/unix.
class BoardSocket {
public:
  using Answer = std::function<SocketMessage(const SocketMessage& question)>;

  /// Opens the socket of the caller's mount namespace. Throws std::runtime_error.
  explicit BoardSocket(Answer answer);

  /// Adds the descriptors to poll.
  void addTo(std::vector<pollfd>& waits) const;
  /// Serves those descriptors in `ready` that belong to this socket. Closes connections of other users.
  void serve(const std::vector<pollfd>& ready);

private:
  void acceptClient();
  bool serveClient(int fd); // returns false when the client has closed the connection

  Answer _answer;
  kr::Descriptor _listener;
  std::vector<kr::Descriptor> _clients;
};

/// Asks the board of the caller's mount namespace. Throws std::runtime_error if there is no answer.
SocketMessage askBoard(const SocketMessage& question);

/// A running board of this user.
struct RunningBoard {
  std::string socket; // abstract name
  pid_t pid;          // of the board's process; 0 if it is outside this process namespace
};
/// Returns all of them, sorted by socket name. Throws std::runtime_error.
std::vector<RunningBoard> findBoards();
/// Asks this board. Throws std::runtime_error if there is no answer, for instance because it has ended.
SocketMessage askBoard(const RunningBoard& board, const SocketMessage& question);

} // namespace sim

#endif
