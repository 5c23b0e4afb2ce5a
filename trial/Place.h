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
  explicit Place(const char* folder, const char* node = nullptr) : folder_(folder), node_(node) {}

  bool is(State state) const { return state_ == state; }
  bool canBeStuck() const { return node_ != nullptr; }
  std::string path() const { return std::string(folder_) + "/" + (node_ != nullptr ? node_ : ""); }

  /// From or to `present` only. Throws std::system_error.
  void become(State state);

private:
  const char* folder_;
  const char* node_;
  State state_ = State::present;
};

} // namespace trial

#endif
