// A session with the shell on the stand-in appliance, written down: what goes in and what must come out.
//
// A file holds any number of them. What comes before the first one is the default of all.
//
//   session: name of the case
//   options: --missing /sys/class/gpio/gpio27/value        options of tev-sim (words; those of several lines add up)
//   command: sh -c '$TEV_CLI; cat /tmp/cli.log'            run in place of the shell (passed to sh -c; optional)
//   status: 0                                              expected exit status (default 0)
//   >temperature                                           a line that is typed, and what it brings about:
//   |temperature: 40 degrees Celsius                           standard output; the prompts are added
//   !error: no such thing                                      standard error
//   *alert on                                                  what reached the board (its log)
//
// A session whose prompts do not come one for each line has sections instead; their content lines begin with |. What is
// not written is expected to be empty, except for the board's log, which is then not compared.
//
//   input:                                                 or, from the project's root, input-file: docs/tour.txt
//   |temperature
//   out:
//   |tev-cli> temperature: 40 degrees Celsius
//   |tev-cli> \                                            a backslash at the end: no newline there
//   err:
//   board:
//   # a comment
//
// A session with rows stands for as many. The name of a column in braces, anywhere in it, is replaced by the row's
// text. The first row holds the names.
//
//   session: a service that is {fault}
//   rows:
//   |fault; result
//   |silent; timed out
//   |short; not all data
//
// In content lines and in rows, backslashes begin the escapes of C.
#ifndef TEV_TESTS_E2E_SESSION_H
#define TEV_TESTS_E2E_SESSION_H

#include <map>
#include <string>
#include <vector>

/// The texts of a session by their keys: "session" (the name), "options", "command", "status", "input", "out", ...
struct Session : std::map<std::string, std::string> {};

/// Reads a file of sessions. Throws std::runtime_error, naming the line, for one that does not follow the format.
std::vector<Session> readSessions(const std::string& path);

struct Outcome {
  int status = 0; ///< exit status, or 128 + the signal
  std::string out, err, board;
};

/// Plays a session on a fresh stand-in appliance. The lines that the thread service prints at the start of the shell
/// are taken out of `out` and `err`.
Outcome play(Session session);

/// Why a session cannot be played on this machine, or the empty string.
std::string whyNotPlayable(Session session);

#endif
