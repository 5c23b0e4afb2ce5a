#include "commands/Node.h"

#include <algorithm>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <unistd.h>

Node::Node(const char* path, int flags) : _fd(open(path, flags | O_CLOEXEC)) {}

Node::~Node() {
  // Nothing can be done about a failing close; the descriptor is gone either way.
  if (_fd >= 0) (void)close(_fd);
}

std::string Node::read(size_t size) const {
  char buffer[readSizeMax + 1] = {};
  const ssize_t got = ::read(_fd, buffer, std::min(size, readSizeMax));
  return got > 0 ? buffer : "";
}

void Node::write(const std::string& text) const {
  const ssize_t written = ::write(_fd, text.data(), text.size());
  (void)written;
}

int decimalIn(const std::string& text) {
  int value = 0;
  return std::sscanf(text.c_str(), "%d", &value) == 1 ? value : 0;
}

unsigned int hexIn(const std::string& text) {
  unsigned int value = 0;
  return std::sscanf(text.c_str(), "%x", &value) == 1 ? value : 0;
}

int wordToInt(const std::string& word) {
  const long long value = std::strtoll(word.c_str(), nullptr, 10);
  return static_cast<int>(std::clamp<long long>(value, INT_MIN, INT_MAX));
}
