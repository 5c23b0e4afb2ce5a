#include "log/tevlog.h"
#include "shell/CmdHistory.h"
#include "shell/CmdMap.h"
#include "shell/Shell.h"
#include "shell/Terminal.h"
#include "tests/Contents.h"

#include <fcntl.h>
#include <functional>
#include <gtest/gtest.h>
#include <pty.h>
#include <sstream>
#include <stdexcept>
#include <termios.h>
#include <unistd.h>

namespace {

// A command that notes its lines and answers as it is told.
class NotingCmd : public CmdFunctor {
public:
  bool operator()(const ArgVec& args) override {
    calls.push_back(args);
    if (args.size() > 1 && args[1] == "throw") throw std::runtime_error("thrown");
    return args.size() > 1 && args[1] == "remember";
  }
  const char* getkey() override { return "note"; }
  const char* getlong() override { return ""; }
  const char* getshort() override { return ""; }

  std::vector<ArgVec> calls;
};

class PromptLoop : public ::testing::Test {
protected:
  PromptLoop() { gCmdMap["note"] = &command; }
  std::string run(const std::string& input) {
    std::istringstream in(input);
    std::ostringstream out;
    runPromptLoop(in, out);
    return out.str();
  }
  NotingCmd command;
};

} // namespace

TEST(SplitLine, GivesTheWordsBetweenBlanksAndTabs) {
  const std::vector<std::pair<std::string, ArgVec>> cases = {
      {"", {}},
      {" \t ", {}},
      {"a", {"a"}},
      {"  help\t\tlong ", {"help", "long"}},
      {"a b\tc", {"a", "b", "c"}},
      {"a\r", {"a\r"}},
      {"'a b' \\ c\v", {"'a", "b'", "\\", "c\v"}},
  };
  ArgVec words = {"of", "the", "line", "before"};
  for (const auto& [line, expected] : cases) {
    splitLine(line, words);
    EXPECT_EQ(words, expected) << "[" << line << "]";
  }
}

TEST(CmdHistory, HoldsTheNewestLineOnly) {
  CmdHistory first;
  EXPECT_EQ(first.last(), "");
  first.add("one");
  first.add("two");
  CmdHistory copy(first), assigned;
  assigned = first;
  first.add("");
  EXPECT_EQ(first.last(), "");
  EXPECT_EQ(copy.last(), "two");
  EXPECT_EQ(assigned.last(), "two");
}

TEST_F(PromptLoop, AnEmptyLineRunsTheRememberedOneAgain) {
  EXPECT_EQ(run("\nnote  remember \nnote other\n\nunknown\n\n"),
            "tev-cli> tev-cli> tev-cli> tev-cli> tev-cli> command: [unknown] is not implemented \ntev-cli> tev-cli> ");
  const ArgVec remembered = {"note", "remember"}, other = {"note", "other"};
  EXPECT_EQ(command.calls, (std::vector<ArgVec>{remembered, other, remembered, remembered}));
  EXPECT_EQ(history.last(), "note  remember ") << "as read, not the words joined";
}

TEST_F(PromptLoop, ACommandThatThrowsDoesNotEndTheShell) {
  EXPECT_EQ(run("note throw\nnote again\n"), "tev-cli> tev-cli> tev-cli> ");
  EXPECT_EQ(command.calls.size(), 2u);
}

TEST_F(PromptLoop, EverythingPrintedIsFlushedBeforeALineIsRead) {
  struct : std::stringbuf {
    int sync() override {
      flushed = str();
      return 0;
    }
    std::string flushed;
  } printed;
  struct Typing : std::streambuf { // one character at a time
    explicit Typing(std::function<void()> check) : beforeRead(std::move(check)) {}
    int_type underflow() override {
      beforeRead();
      if (*next == '\0') return traits_type::eof();
      key = *next++;
      setg(&key, &key, &key + 1);
      return traits_type::to_int_type(key);
    }
    std::function<void()> beforeRead;
    const char* next = "unknown\n\n";
    char key = 0;
  } typing([&] { EXPECT_EQ(printed.flushed, printed.str()); });
  std::istream in(&typing);
  std::ostream out(&printed);
  out.setstate(std::ios_base::badbit); // as after a write that the console did not take
  runPromptLoop(in, out);
  EXPECT_EQ(printed.flushed, "tev-cli> command: [unknown] is not implemented \ntev-cli> tev-cli> ");
}

TEST(Registry, HoldsEveryCommandUnderItsOwnKey) {
  gCmdMap.clear();
  initmap();
  EXPECT_EQ(gCmdMap.size(), 16u);
  for (const auto& [key, object] : gCmdMap) {
    EXPECT_EQ(key, object->getkey());
    const std::string longText = object->getlong();
    EXPECT_EQ(longText.substr(0, 11 + key.size()), "  syntax:  " + key);
    EXPECT_EQ(longText.back(), '\n') << key;
  }
}

// Without an endpoint of the shell, each command that asks a service traces that once, whatever its line asks for.
TEST(Commands, LookForTheShellsTaskOnEntry) {
  gCmdMap.clear();
  initmap();
  tev::initlog("/tmp/tev-shell-test.log");
  tev::log << tev::enable;
  Growing trace("/tmp/tev-shell-test.log");
  const std::string line = "CommObj::TaskName2TaskId(...) - did not find task: tCliAppTask\n";
  const std::pair<ArgVec, std::string> table[] = {{{"stream"}, line},
                                                  {{"stream", "x"}, line},
                                                  {{"snap"}, line},
                                                  {{"snap", "99"}, line},
                                                  {{"video-format"}, line},
                                                  {{"video-format", "x"}, line},
                                                  {{"video-resolution", "x"}, line},
                                                  {{"audio-source"}, line},
                                                  {{"audio-source", "x"}, line},
                                                  {{"factory", "x"}, ""},
                                                  {{"log", "x"}, ""},
                                                  {{"fan"}, ""}};
  for (const auto& [words, expected] : table) {
    (*gCmdMap[words[0]])(words);
    EXPECT_EQ(trace.news(), expected) << words[0];
  }
  ASSERT_EQ(unlink("/tmp/tev-shell-test.log"), 0);
}

TEST(Terminal, OnlyTheEraseCharacterChanges) {
  int master = -1, slave = -1;
  ASSERT_EQ(openpty(&master, &slave, nullptr, nullptr, nullptr), 0);
  struct termios before, after;
  ASSERT_EQ(tcgetattr(slave, &before), 0);
  ASSERT_NE(before.c_cc[VERASE], 8);
  eraseWithBackspace(slave);
  ASSERT_EQ(tcgetattr(slave, &after), 0);
  EXPECT_EQ(after.c_cc[VERASE], 8);
  before.c_cc[VERASE] = 8;
  EXPECT_EQ(after.c_iflag, before.c_iflag);
  EXPECT_EQ(after.c_oflag, before.c_oflag);
  EXPECT_EQ(after.c_cflag, before.c_cflag);
  EXPECT_EQ(after.c_lflag, before.c_lflag);
  EXPECT_EQ(std::vector<cc_t>(after.c_cc, after.c_cc + NCCS), std::vector<cc_t>(before.c_cc, before.c_cc + NCCS));
  close(master);
  close(slave);
}
