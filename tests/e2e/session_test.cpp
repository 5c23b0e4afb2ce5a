#include "tests/e2e/Session.h"

#include <cctype>
#include <filesystem>
#include <gtest/gtest.h>

namespace {

std::vector<Session> allSessions() {
  std::vector<Session> all;
  for (const auto& file : std::filesystem::directory_iterator(TEV_SESSIONS_PATH)) {
    if (file.path().extension() != ".session") continue;
    for (Session& session : readSessions(file.path())) {
      session["session"] = file.path().stem().string() + ": " + session["session"];
      all.push_back(session);
    }
  }
  return all;
}

std::string testName(const ::testing::TestParamInfo<Session>& info) {
  std::string name = info.param.at("session");
  for (char& c : name)
    if (std::isalnum(static_cast<unsigned char>(c)) == 0) c = '_';
  return name;
}

class Played : public ::testing::TestWithParam<Session> {};

} // namespace

void PrintTo(const Session& session, std::ostream* out) { *out << session.at("session"); }

TEST_P(Played, ComesOutAsWritten) {
  Session expected = GetParam();
  const Outcome outcome = play(expected);
  const int status = std::atoi(expected["status"].c_str());
  if (outcome.status == 125 && status != 125) {
    if (const std::string obstacle = whyNotPlayable(expected); !obstacle.empty()) GTEST_SKIP() << obstacle;
  }
  EXPECT_EQ(outcome.status, status);
  EXPECT_EQ(outcome.out, expected["out"]);
  EXPECT_EQ(outcome.err, expected["err"]);
  if (expected.count("board") != 0) {
    EXPECT_EQ(outcome.board, expected["board"]);
  }
}

INSTANTIATE_TEST_SUITE_P(Console, Played, ::testing::ValuesIn(allSessions()), testName);
