#include "commands/Node.h"

#include "commands/Console.h"
#include "commands/Report.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <iostream>
#include <unistd.h>

Node::Node(const char* path, int flags) : _path(path), _file(open(path, flags | O_CLOEXEC)) {
  if (!isOpen()) Report::present->systemFailed(_path, errno);
}

std::string Node::read(size_t size) const {
  char buffer[readSizeMax + 1] = {};
  const ssize_t got = ::read(_file.get(), buffer, std::min(size, readSizeMax));
  if (got < 0) Report::present->systemFailed(_path, errno);
  return got > 0 ? buffer : "";
}

void Node::write(std::string_view text) const {
  const ssize_t written = ::write(_file.get(), text.data(), text.size());
  if (written != static_cast<ssize_t>(text.size())) Report::present->systemFailed(_path, written < 0 ? errno : EIO);
}

void printNodeNotFound(std::string_view path) {
  printLine(std::cerr, "error: couldn't find node [" + std::string(path) + "] on the system");
}

namespace {

void report(int scanned) {
  if (scanned != 1) Report::present->notThere("a number");
}

} // namespace

int decimalIn(const std::string& text) {
  int value = 0;
  report(std::sscanf(text.c_str(), "%d", &value));
  return value;
}

unsigned int hexIn(const std::string& text) {
  unsigned int value = 0;
  report(std::sscanf(text.c_str(), "%x", &value));
  return value;
}
