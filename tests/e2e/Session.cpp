#include "tests/e2e/Session.h"

#include "tests/Contents.h"
#include "trial/Child.h"
#include "trial/ThreadLines.h"

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <unistd.h>

namespace {

using Streams = trial::Child::Streams;

std::string environmentOr(const char* name, const char* otherwise) {
  const char* value = std::getenv(name);
  return value != nullptr ? value : otherwise;
}

std::string unescaped(const std::string& line) {
  std::string text;
  for (size_t i = 0; i < line.size(); ++i) {
    if (line[i] != '\\') {
      text += line[i];
    } else if (++i == line.size()) {
      return text; // no newline here
    } else if (line[i] == 'x') {
      text += static_cast<char>(std::stoi(line.substr(i + 1, 2), nullptr, 16));
      i += 2;
    } else {
      const char code = line[i];
      text += code == 't' ? '\t' : code == 'r' ? '\r' : code == '0' ? '\0' : code;
    }
  }
  return text + '\n';
}

} // namespace

std::vector<Session> readSessions(const std::string& path) {
  std::ifstream in(path);
  std::vector<Session> sessions;
  std::string line, section;
  for (int number = 1; std::getline(in, line); ++number) {
    const size_t colon = line.find(':');
    const std::string key = line.substr(0, colon);
    const std::string value = line.substr(std::min(line.size(), line.find_first_not_of(' ', colon + 1)));
    if (line.empty() || line[0] == '#') continue;
    if (key == "session") {
      sessions.push_back({value, "", "", 0, {}});
    } else if (sessions.empty()) {
      throw std::runtime_error(path + ": no session before line " + std::to_string(number));
    } else if (line[0] == '|' && !section.empty()) {
      sessions.back().sections[section] += unescaped(line.substr(1));
    } else if (key == "options") {
      sessions.back().options += value + ' ';
    } else if (key == "command") {
      sessions.back().command = value;
    } else if (key == "status") {
      sessions.back().status = std::stoi(value);
    } else if (key == "input-file") {
      sessions.back().sections["input"] = contents(std::string(TEV_SOURCE_PATH "/") + value);
    } else if (key == "input" || key == "out" || key == "err" || key == "board") {
      section = key;
      sessions.back().sections[section] += "";
    } else {
      throw std::runtime_error(path + ": line " + std::to_string(number) + " says nothing known: " + line);
    }
  }
  return sessions;
}

Outcome play(const Session& session) {
  static const std::string sim = environmentOr("TEV_SIM", TEV_SIM_PATH);
  static const std::string cli = environmentOr("TEV_CLI", TEV_CLI_PATH);
  char dir[] = "/tmp/tev-session.XXXXXX";
  if (mkdtemp(dir) == nullptr) throw std::runtime_error("no directory for the session");
  const std::string base = dir;
  const auto input = session.sections.find("input");
  std::ofstream(base + "/in") << (input != session.sections.end() ? input->second : "");
  (void)setenv("TEV_CLI", cli.c_str(), 1);
  (void)setenv("TEV_PUT_SN", TEV_PUT_SN_PATH, 0);

  Outcome outcome;
  const std::string line = "exec timeout 60 " + sim + " --private-tmp --frozen --log " + base + "/board " +
                           session.options + "-- " + (session.command.empty() ? cli : session.command) + " < " + base +
                           "/in > " + base + "/out 2> " + base + "/err";
  outcome.status = trial::Child({"sh", "-c", line}, Streams::none).wait();
  outcome.out = trial::withoutThreadLines(contents(base + "/out"));
  outcome.err = trial::withoutThreadLines(contents(base + "/err"));
  outcome.board = contents(base + "/board");
  std::filesystem::remove_all(base);
  return outcome;
}

std::string whyNotPlayable() {
  trial::Child probe({"sh", "-c", environmentOr("TEV_SIM", TEV_SIM_PATH) + " --probe"}, Streams::output);
  const std::string reason = probe.readTo();
  return probe.wait() == 0 ? "" : "no stand-in appliance here: " + reason;
}
