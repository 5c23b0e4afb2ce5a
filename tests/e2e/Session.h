// A session with the shell on the stand-in appliance, written down: what goes in and what must come out.
//
// A file holds any number of them:
//
//   session: name of the case
//   options: --missing /sys/class/gpio/gpio27/value        options of tev-sim (words; default none)
//   command: sh -c '$TEV_CLI; cat /tmp/cli.log'            run in place of the shell (passed to sh -c; optional)
//   status: 0                                              expected exit status (default 0)
//   input-file: docs/tour.txt                              in place of an input section; from the project's root
//   input:                                                 sections: each content line stands behind a |
//   |temperature
//   out:
//   |tev-cli> temperature: 40 degrees Celsius
//   |tev-cli> \                                            a backslash at the end: no newline there
//   err:
//   board:                                                 what reached the board (its log); not compared if absent
//   # a comment
//
// In content lines \t \r \0 \\ and \xHH stand for the characters that their names say.
#ifndef TEV_TESTS_E2E_SESSION_H
#define TEV_TESTS_E2E_SESSION_H

#include <map>
#include <string>
#include <vector>

struct Session {
  std::string name;
  std::string options;
  std::string command;
  int status = 0;
  std::map<std::string, std::string> sections; ///< "input", "out", "err", "board"
};

/// Reads a file of sessions. Throws std::runtime_error, naming the line, for one that does not follow the format.
std::vector<Session> readSessions(const std::string& path);

struct Outcome {
  int status = 0; ///< exit status, or 128 + the signal
  std::string out, err, board;
};

/// Plays a session on a fresh stand-in appliance. The lines that the thread service prints at the start of the shell
/// are taken out of `out` and `err`.
Outcome play(const Session& session);

/// Why sessions cannot be played on this machine, or the empty string.
std::string whyNotPlayable();

#endif
