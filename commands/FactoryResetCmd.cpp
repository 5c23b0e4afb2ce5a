#include "commands/FactoryResetCmd.h"

#include "commands/Console.h"
#include "commands/ServiceRequest.h"
#include "commands/Words.h"
#include "messaging/AdminControlReqMsg.h"
#include "platform/CKrProperty.h"
#include "platform/Descriptor.h"
#include "platform/krLog.h"
#include "platform/krMem.h"

#include <cstring>
#include <fcntl.h>
#include <iostream>
#include <memory>
#include <unistd.h>

namespace {

constexpr const char* eepromNode = "/sys/bus/i2c/devices/1-0050/eeprom";
constexpr off_t serialNumberOffset = 8;
constexpr size_t serialNumberSize = 16; // characters; a shorter number ends in a zero byte

int putSnFailed(const char* reason) {
  krError(krLogGetLogger(""), "%s", reason);
  return -1;
}

} // namespace

bool FactoryResetCmd::operator()(const ArgVec& args) {
  if (args.size() != 2 || !isOneOf(args[1], "config|firmware")) {
    printIncorrectParameters(getkey(), getshort());
    return false;
  }
  ServiceRequest<AdminControlReqMsg> request{ServiceProxies(protocol::adminTask)};
  using namespace protocol::adminControl;
  request->SetControl(args[1] == "config" ? factoryConfig : factoryFirmware);
  const char* const rule = "###############################################";
  printLine(std::cerr, rule);
  printLine(std::cerr, "Factory Default [" + args[1] + "] In Progress......");
  printLine(std::cerr, rule);
  request.exchange();
  return false;
}

int FactoryResetCmd::putSn() {
  const std::unique_ptr<char, void (*)(void*)> serial(static_cast<char*>(krMalloc(serialNumberSize + 1)), krFree);
  if (serial == nullptr) return putSnFailed("putSn() couldn't malloc buffer\n");
  std::memset(serial.get(), 0, serialNumberSize + 1);
  const kr::Descriptor eeprom(open(eepromNode, O_RDWR | O_CLOEXEC));
  if (!eeprom) return putSnFailed("putSn() cannot open eeprom device\n");
  const bool complete = lseek(eeprom.get(), serialNumberOffset, SEEK_SET) == serialNumberOffset &&
                        read(eeprom.get(), serial.get(), serialNumberSize) == static_cast<ssize_t>(serialNumberSize);
  if (!complete) return putSnFailed("putSn() eeprom read failed\n");
  if (CKrProperty* store = CKrProperty::getInstance(nullptr, nullptr, nullptr)) {
    store->setProperty("sn", serial.get());
    (void)store->store(nullptr); // a store that fails stays dirty and is written by the next one
  }
  return 0;
}

const char* FactoryResetCmd::getkey() { return "factory"; }

const char* FactoryResetCmd::getlong() {
  return "  syntax:  factory <config|firmware>\n"
         "\n"
         "  description:\n"
         "    Changes configuration back to factory defaults and\n"
         "    also reboots the platform.\n"
         "\n"
         "  example:\n"
         "    tev-cli> factory config     ### resets the config   back to factory defaults\n"
         "    tev-cli> factory firmware   ### resets the firmware back to factory defaults\n"
         "\n";
}

const char* FactoryResetCmd::getshort() { return "<config|firmware>"; }
