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
      session.name = file.path().stem().string() + ": " + session.name;
      all.push_back(session);
    }
  }
  return all;
}

std::string testName(const ::testing::TestParamInfo<Session>& info) {
  std::string name;
  for (char c : info.param.name)
    name += std::isalnum(static_cast<unsigned char>(c)) != 0 ? c : '_';
  return name;
}

class Played : public ::testing::TestWithParam<Session> {};

} // namespace

void PrintTo(const Session& session, std::ostream* out) { *out << session.name; }

TEST_P(Played, ComesOutAsWritten) {
  static const std::string obstacle = whyNotPlayable();
  if (!obstacle.empty()) GTEST_SKIP() << obstacle;
  Session expected = GetParam();
  const Outcome outcome = play(expected);
  EXPECT_EQ(outcome.status, expected.status);
  EXPECT_EQ(outcome.out, expected.sections["out"]);
  EXPECT_EQ(outcome.err, expected.sections["err"]);
  if (expected.sections.count("board") != 0) {
    EXPECT_EQ(outcome.board, expected.sections["board"]);
  }
}

INSTANTIATE_TEST_SUITE_P(Console, Played, ::testing::ValuesIn(allSessions()), testName);
