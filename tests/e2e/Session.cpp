#include "tests/e2e/Session.h"

#include "sim/Quoting.h"
#include "tests/Files.h"
#include "trial/Child.h"
#include "trial/ThreadLines.h"

#include <cstdlib>
#include <filesystem>
#include <set>
#include <sstream>
#include <stdexcept>

namespace {

using Streams = trial::Child::Streams;

const std::string prompt = "tev-cli> ";
const std::string noteOfPlainFiles = "note: nodes are plain files ";

std::string environmentOr(const char* name, const char* otherwise) {
  const char* value = std::getenv(name);
  return value != nullptr ? value : otherwise;
}

std::string tevSim() { return environmentOr("TEV_SIM", TEV_SIM_PATH); }

std::string contentOf(const std::string& line) {
  if (const auto whole = sim::unescaped(line)) return *whole + '\n';
  return sim::unescaped(line.substr(0, line.size() - 1)).value(); // without the backslash at its end
}

/// Adds a line with a sign in front. `section` is where those with a | belong; empty after a typed line.
void addContent(Session& session, const std::string& line, std::string& section) {
  const std::string text = section == "rows" ? line.substr(1) + '\n' : contentOf(line.substr(1));
  std::string& out = session["out"];
  if (line[0] == '>') {
    session["input"] += text;
    out += out.empty() ? prompt + prompt : prompt;
    section = "";
  } else if (line[0] == '|' && section.empty()) {
    out.insert(out.size() - prompt.size(), text);
  } else {
    session[line[0] == '|' ? section : line[0] == '!' ? "err" : "board"] += text;
  }
}

/// The session once for each of its rows.
std::vector<Session> expanded(const Session& session) {
  if (session.count("rows") == 0) return {session};
  std::vector<Session> all;
  std::istringstream rows(session.at("rows"));
  std::string header, row, name, cell;
  for (std::getline(rows, header); std::getline(rows, row);) {
    all.push_back(session);
    std::istringstream names(header), cells(row);
    while (std::getline(names >> std::ws, name, ';')) {
      if (!std::getline(cells >> std::ws, cell, ';')) cell.clear(); // the last one is empty
      const std::string place = '{' + name + '}', value = sim::unescaped(cell).value();
      for (auto& [key, text] : all.back())
        for (size_t at = 0; (at = text.find(place, at)) != text.npos; at += value.size())
          text.replace(at, place.size(), value);
    }
  }
  return all;
}

} // namespace

std::vector<Session> readSessions(const std::string& path) {
  static const std::set<std::string> keys = {"session", "command", "status", "rows", "input", "out", "err", "board"};
  std::istringstream in(contents(path));
  std::vector<Session> read(1), sessions;
  std::string line, section;
  for (int number = 1; std::getline(in, line); ++number) {
    if (line.empty() || line[0] == '#') continue;
    const size_t colon = std::min(line.find(':'), line.size() - 1);
    const std::string key = line.substr(0, colon), value = line.substr(std::min(line.size(), colon + 2));
    if (key == "session") read.push_back(read[0]);
    if (std::string(">|!*").find(line[0]) != std::string::npos) {
      addContent(read.back(), line, section);
    } else if (key == "options") {
      read.back()[key] += value + ' ';
    } else if (key == "input-file") {
      read.back()["input"] = contents(TEV_SOURCE_PATH "/" + value);
    } else if (keys.count(key) != 0) {
      read.back()[section = key] = value;
    } else {
      throw std::runtime_error(path + ": line " + std::to_string(number) + " says nothing known: " + line);
    }
  }
  for (size_t i = 1; i < read.size(); ++i)
    for (const Session& session : expanded(read[i]))
      sessions.push_back(session);
  return sessions;
}

Outcome play(Session session) {
  char dir[] = "/tmp/tev-session.XXXXXX";
  if (mkdtemp(dir) == nullptr) throw std::runtime_error("no directory for the session");
  const std::string base = dir, cli = environmentOr("TEV_CLI", TEV_CLI_PATH);
  std::ofstream(base + "/in") << session["input"];
  (void)setenv("TEV_CLI", cli.c_str(), 1);
  (void)setenv("TEV_CTL", environmentOr("TEV_CTL", TEV_CTL_PATH).c_str(), 1);
  (void)setenv("TEV_SIM", tevSim().c_str(), 1);
  (void)setenv("TEV_SOURCE", TEV_SOURCE_PATH, 1);
  (void)setenv("TEV_PUT_SN", TEV_PUT_SN_PATH, 0);
  (void)setenv("TEV_STREAM_SERVICE", TEV_STREAM_SERVICE_PATH, 0);

  Outcome outcome;
  const std::string command = session["command"].empty() ? cli : session["command"];
  const std::string line = "exec timeout 60 " + tevSim() + " --private-tmp --frozen --log " + base + "/board " +
                           session["options"] + "-- " + command + " < " + base + "/in > " + base + "/out 2> " + base +
                           "/err";
  outcome.status = trial::Child({"sh", "-c", line}, Streams::none).wait();
  outcome.out = trial::withoutThreadLines(contents(base + "/out"));
  outcome.err = trial::withoutThreadLines(contents(base + "/err"));
  outcome.board = contents(base + "/board");
  // A board whose nodes are plain files says so, unless the session asks for it. Its other lines are the same.
  if (outcome.board.rfind(noteOfPlainFiles, 0) == 0 && session["options"].find("--nodes") == std::string::npos)
    outcome.board.erase(0, outcome.board.find('\n') + 1);
  std::filesystem::remove_all(base);
  return outcome;
}

std::string whyNotPlayable(Session session) {
  trial::Child probe({"sh", "-c", tevSim() + " --probe " + session["options"]}, Streams::output);
  const std::string reason = probe.readTo();
  return probe.wait() == 0 ? "" : "no stand-in appliance here: " + reason;
}
