#include "sim/Options.h"

#include <gtest/gtest.h>
#include <iterator>
#include <sstream>

using namespace sim;

namespace {

std::vector<std::string> words(const std::string& line) {
  std::istringstream in(line);
  return {std::istream_iterator<std::string>(in), {}};
}

Options parsed(const std::vector<std::string>& words) {
  const auto result = parseOptions(words);
  if (const auto* error = std::get_if<std::string>(&result)) ADD_FAILURE() << *error;
  return std::holds_alternative<Options>(result) ? std::get<Options>(result) : Options();
}

} // namespace

TEST(Options, WhatIsLeftOutStaysHarmless) {
  const Options none = parsed({});
  EXPECT_TRUE(none.command.empty() && none.logFile.empty() && none.dumpFile.empty());
  EXPECT_FALSE(none.board.frozen || none.board.logReads || none.logTimes || none.probe || none.help || none.status);
  EXPECT_EQ(none.tmp, Tmp::own);
  EXPECT_EQ(none.nodes, NodeKind::any);
}

TEST(Options, EachIsUnderstood) {
  std::vector<std::string> line =
      words("--frozen --log-reads --log-times --dump=d=e --nodes files --shared-tmp --private-tmp --read-only-tmp "
            "--snapshots=/s --service tAdminAppTask=late:0 --service=tAdminAppTask=full --service-faults 7:100 "
            "--service-program /p --node setpoint=2\\n --node=speed= --missing /sys/class/gpio/gpio27/value "
            "--missing eeprom-read-macs-arm-none --read-only gpio26/value --fail-write smi "
            "--tool eeprom-read-macs-arm-none=fail --tool eeprom-write-macs-arm-none=silent "
            "--watch --pid=77 --probe --help -- sh -c --help");
  line.insert(line.begin(), {"--log", "a b"});
  const Options all = parsed(line);
  const Faults& faults = all.board.faults;
  EXPECT_TRUE(all.board.frozen && all.board.logReads && all.logTimes && all.probe && all.help && all.status &&
              all.watch);
  EXPECT_EQ(all.logFile, "a b");
  EXPECT_EQ(all.dumpFile, "d=e");
  EXPECT_EQ(all.nodes, NodeKind::files);
  EXPECT_EQ(all.tmp, Tmp::readOnly) << "the last word";
  EXPECT_EQ(all.snapshots + all.services, "/s/p");
  EXPECT_EQ(faults.firstTexts, (std::map<std::string, std::string>{{"/sys/bus/i2c/devices/1-004c/setpoint", "2\n"},
                                                                   {"/sys/bus/i2c/devices/1-004c/speed", ""}}));
  EXPECT_EQ(faults.missing,
            (std::set<std::string>{"/sys/class/gpio/gpio27/value", "/mnt/tev/sys/bin/eeprom-read-macs-arm-none"}));
  EXPECT_EQ(faults.readOnly, std::set<std::string>{"/sys/class/gpio/gpio26/value"});
  EXPECT_EQ(faults.failWrite, std::set<std::string>{"/sys/module/ksz8864/drivers/smi"});
  EXPECT_EQ(faults.tools, (std::map<std::string, ToolFault>{{"eeprom-read-macs-arm-none", ToolFault::fail},
                                                            {"eeprom-write-macs-arm-none", ToolFault::silent}}));
  EXPECT_EQ(all.pid, 77);
  ASSERT_EQ(faults.services.size(), 1U);
  EXPECT_EQ(faults.services.at("tAdminAppTask").kind, ServiceFault::full) << "the last word";
  EXPECT_EQ(faults.dice.percent(), 100U);
  EXPECT_EQ(all.command, (std::vector<std::string>{"sh", "-c", "--help"}));
}

TEST(Options, WrongOnesAreNamed) {
  const std::pair<std::vector<std::string>, const char*> cases[] = {
      {{"--frozzen"}, "unknown option --frozzen"},
      {{"-x"}, "unknown option -x"},
      {{"sh"}, "unexpected word sh (a command goes after --)"},
      {{"--frozen", "--"}, "there is no command after --"},
      {{"--frozen=1"}, "--frozen takes no value"},
      {{"--log"}, "--log wants a value"},
      {{"--nodes=tmpfs"}, "--nodes wants fuse or files"},
      {{"--node", "speed"}, "--node wants PATH=TEXT"},
      {{"--node", "spee=1"}, "the board has no spee"},
      {{"--node", "eed=1"}, "the board has no eed"},
      {{"--missing", ""}, "the board has no "},
      {{"--node", R"(speed=\q)"}, R"(--node has an escape that C does not know: speed=\q)"},
      {{"--read-only", "value"}, "value is not clear: /sys/class/gpio/gpio27/value or /sys/class/gpio/gpio26/value"},
      {{"--service", "tCliAppTask=silent"}, "there is no service tCliAppTask"},
      {{"--service=tAdminAppTask=loud"},
       "--service wants NAME=silent, late:MS, short, split, garbage, dies, full or absent"},
      {{"--service-faults", "7:101"}, "--service-faults wants SEED:PERCENT"},
      {{"--service-faults", "7:1x"}, "--service-faults wants SEED:PERCENT"},
      {{"--service-faults", "7"}, "--service-faults wants SEED:PERCENT"},
      {{"--pid", "-1"}, "--pid wants a process number"},
      {{"--pid=1x"}, "--pid wants a process number"},
      {{"--tool", "eeprom=fail"}, "there is no tool eeprom"},
      {{"--tool", "eeprom-read-macs-arm-none"}, "--tool wants NAME=fail or NAME=silent"},
      {{"--tool", "eeprom-read-macs-arm-none=loud"}, "--tool wants NAME=fail or NAME=silent"},
  };
  for (const auto& [words, expected] : cases) {
    const auto result = parseOptions(words);
    const auto* error = std::get_if<std::string>(&result);
    ASSERT_NE(error, nullptr) << words[0];
    EXPECT_EQ(*error, expected);
  }
}
