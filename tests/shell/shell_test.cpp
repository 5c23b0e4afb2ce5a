#include "commands/Words.h"
#include "shell/CmdHistory.h"
#include "shell/CmdMap.h"
#include "shell/Shell.h"
#include "shell/Terminal.h"

#include <cstring>
#include <gtest/gtest.h>
#include <pty.h>
#include <sstream>
#include <stdexcept>
#include <termios.h>
#include <unistd.h>

namespace {

// A command that records its lines. Its second word says what it does.
class RecordingCmd : public CmdFunctor {
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
    out.setstate(std::ios_base::badbit); // as after a write that the console did not take
    runPromptLoop(in, out);
    return out.str();
  }
  RecordingCmd command;
};

} // namespace

TEST_F(PromptLoop, AnEmptyLineRunsTheLineRememberedLastAgain) {
  EXPECT_EQ(run("\nnote remember\nnote  remember this\nnote other\n\nunknown\n\n"),
            "tev-cli> tev-cli> tev-cli> tev-cli> tev-cli> tev-cli> command: [unknown] is not implemented \n"
            "tev-cli> tev-cli> ");
  const ArgVec first = {"note", "remember"}, last = {"note", "remember", "this"}, other = {"note", "other"};
  EXPECT_EQ(command.calls, (std::vector<ArgVec>{first, last, other, last, last}));
  EXPECT_EQ(history.last(), "note  remember this") << "as read, not the words joined";
}

TEST_F(PromptLoop, ACommandThatThrowsDoesNotEndTheShell) {
  EXPECT_EQ(run("note throw\nnote again\n"), "tev-cli> tev-cli> tev-cli> ");
  EXPECT_EQ(command.calls.size(), 2u);
}

TEST(Terminal, OnlyTheEraseCharacterChanges) {
  int master = -1, slave = -1;
  ASSERT_EQ(openpty(&master, &slave, nullptr, nullptr, nullptr), 0);
  struct termios expected = {}, changed = {};
  ASSERT_EQ(tcgetattr(slave, &expected), 0);
  ASSERT_NE(expected.c_cc[VERASE], 8);
  eraseWithBackspace(slave);
  ASSERT_EQ(tcgetattr(slave, &changed), 0);
  expected.c_cc[VERASE] = 8;
  EXPECT_EQ(std::memcmp(&changed, &expected, sizeof changed), 0);
  close(master);
  close(slave);
}
