// An attribute file of the board.
#ifndef TEV_COMMANDS_NODE_H
#define TEV_COMMANDS_NODE_H

#include "platform/Descriptor.h"

#include <cstddef>
#include <string>
#include <string_view>

/// An open node. A descriptor below 1 counts as a failed open. Failures of the system are reported (Report.h).
class Node {
public:
  static constexpr size_t readSizeMax = 15; ///< no node is read further than this

  /// Opens `path`, which is absolute and outlives the object, with the flags of open(2).
  Node(const char* path, int flags);

  [[nodiscard]] bool isOpen() const { return _file.get() > 0; }

  /// Reads once, at most `size` bytes (up to readSizeMax), and returns the text up to its first zero byte. A failed
  /// read gives the empty text.
  [[nodiscard]] std::string read(size_t size) const;

  /// Writes `text` with its exact length in one call. A refusal is not printed: what the driver makes of the text is
  /// the driver's business.
  void write(std::string_view text) const;

private:
  const char* const _path;
  const kr::Descriptor _file;
};

/// Prints the error line for a node that a command needs and that cannot be opened.
void printNodeNotFound(std::string_view path);

/// The number that `text` begins with, decimal or hexadecimal, or 0 if it begins with none, which is reported.
[[nodiscard]] int decimalIn(const std::string& text);
[[nodiscard]] unsigned int hexIn(const std::string& text);

#endif
