// Places of the stand-in board that come and go while the shell runs.
#ifndef TEV_TRIAL_PLACE_H
#define TEV_TRIAL_PLACE_H

#include <string>

namespace trial {

/// A folder of nodes or tools. To be used on the board, in its mount namespace.
class Place {
public:
  enum class State {
    present,
    gone,  ///< the folder is empty
    stuck, ///< the node reads as zero bytes and takes none
  };

  /// `node` is the file in the folder that can be stuck; null for none.
  explicit Place(const char* folder, const char* node = nullptr) : _folder(folder), _node(node) {}

  bool is(State state) const { return _state == state; }
  bool canBeStuck() const { return _node != nullptr; }
  std::string path() const { return std::string(_folder) + "/" + (_node != nullptr ? _node : ""); }

  /// From or to `present` only. Throws std::system_error.
  void become(State state);

private:
  const char* _folder;
  const char* _node;
  State _state = State::present;
};

} // namespace trial

#endif
