// The board tools: one program whose name selects the tool. The data is in the identity EEPROM.
#include "sim/Board.h"
#include "sim/BoardSocket.h"
#include "sim/Eeprom.h"
#include "sim/SystemError.h"

#include <cstdio>
#include <fcntl.h>

namespace sim {

namespace {

std::string readEeprom(size_t offset, size_t size) {
  const kr::Descriptor node(check(open(eepromNode, O_RDONLY | O_CLOEXEC), eepromNode));
  std::string bytes(size, '\0');
  bytes.resize(
      static_cast<size_t>(check(pread(node.get(), bytes.data(), size, static_cast<off_t>(offset)), eepromNode)));
  if (bytes.size() != size) throw std::runtime_error(std::string(eepromNode) + ": too short");
  return bytes;
}

void writeEeprom(size_t offset, std::string_view bytes) {
  const kr::Descriptor node(check(open(eepromNode, O_RDWR | O_CLOEXEC), eepromNode));
  const ssize_t written = check(pwrite(node.get(), bytes.data(), bytes.size(), static_cast<off_t>(offset)), eepromNode);
  if (static_cast<size_t>(written) != bytes.size()) throw std::runtime_error(std::string(eepromNode) + ": full");
}

void readMacs() {
  const std::string bytes = readEeprom(eeprom::macsOffset, eeprom::macCount * sizeof(eeprom::Mac));
  for (size_t port = 0; port < eeprom::macCount; ++port) {
    eeprom::Mac mac;
    std::copy_n(bytes.begin() + static_cast<ptrdiff_t>(port * mac.size()), mac.size(), mac.begin());
    (void)std::printf("eth%zu %s\n", port, eeprom::formatMac(mac).c_str()); // main() checks the stream
  }
}

void writeMacs(const std::string& text) {
  const std::optional<eeprom::Mac> first = eeprom::parseMac(text);
  if (!first) throw std::runtime_error("not a MAC address: " + text);
  std::string bytes;
  for (unsigned port = 0; port < eeprom::macCount; ++port) {
    const eeprom::Mac mac = eeprom::macAfter(*first, port);
    bytes.append(mac.begin(), mac.end());
  }
  writeEeprom(eeprom::macsOffset, bytes);
}

void readSerial() {
  const std::string field = readEeprom(eeprom::serialOffset, eeprom::serialSize);
  (void)std::printf("%.*s\n", static_cast<int>(field.size()), field.c_str());
}

void writeSerial(const std::string& text) {
  const std::optional<std::string> field = eeprom::serialField(text);
  if (!field) throw std::runtime_error("not a serial number of 1 to 16 characters: " + text);
  writeEeprom(eeprom::serialOffset, *field);
}

void run(const std::string& name, const SocketMessage& arguments) {
  SocketMessage question = {"tool", name};
  question.insert(question.end(), arguments.begin(), arguments.end());
  const std::string order = askBoard(question)[0];
  if (order == "silent") return;
  if (order != "ok") throw std::runtime_error("the EEPROM does not answer");
  const bool writes = name.find("-write-") != name.npos;
  const bool macs = name.find("-macs-") != name.npos;
  if (arguments.size() != (writes ? 1U : 0U)) {
    throw std::runtime_error(writes ? "wants one argument" : "wants no argument");
  }
  if (writes) {
    macs ? writeMacs(arguments[0]) : writeSerial(arguments[0]);
  } else {
    macs ? readMacs() : readSerial();
  }
}

} // namespace

} // namespace sim

int main(int argc, char** argv) {
  const std::string path = argc > 0 ? argv[0] : "";
  const std::string name = path.substr(path.rfind('/') + 1);
  try {
    sim::run(name, {argv + (argc > 0 ? 1 : 0), argv + argc});
    if (std::fflush(stdout) != 0) throw sim::systemError("standard output");
    return 0;
  } catch (const std::exception& error) {
    (void)std::fprintf(stderr, "%s: %s\n", name.c_str(), error.what());
    return 1;
  }
}
