#include "sim/Options.h"

#include "sim/Quoting.h"

#include <algorithm>
#include <cstdio>
#include <functional>
#include <optional>

namespace sim {

const char* const helpText = R"(usage: tev-sim [options] [-- command ...]

Runs a command on a stand-in for the board: what the command finds under /sys, /mnt/tev, /opt/tev and /var/log is a
small model of the board that exists for this command only. Without a command it runs the tev-cli of the build tree.
The terminal belongs to the command, and tev-sim ends with the command's exit status (128 + n for a signal n). When
it ends, also when it is killed, all is gone; the machine itself is never changed.

Watching the board from another terminal:
  --status                print the board as a table: settings, services, snapshots, messages, nodes
  --watch                 repeat that in place until Ctrl-C
  --pid PID               of the tev-sim to look at, where several run

Keeping what happens on the board (what reached it is also in /var/log/board.log as the command sees it):
  --log FILE              write the board's log to FILE as well
  --log-reads             tell opening and reading of nodes too, not only writing
  --log-times             begin each line of the log with the time of day
  --snapshots DIR         let snapshots be stored in DIR, which the board sees as /opt/tev/user/snapshots
  --dump FILE             at the end write each node's text to FILE, one line each: PATH "text"

Making the board different (PATH is a node or tool of the board, or an ending that only one of them has: setpoint):
  --frozen                the temperature stays; alert line and tachometer still follow what is written
  --node PATH=TEXT        first text of a node, with C escapes: temperature=29\n
  --missing PATH          there is no such node or board tool
  --read-only PATH        opening the node for writing is refused
  --fail-write PATH       each write to the node fails with an input/output error
  --tool NAME=fail        the board tool prints an error and ends with status 1
  --tool NAME=silent      the board tool does and prints nothing
  --service NAME=FAULT    the replies of the service task (tVideoPhalTask, tStreamAppTask, tAdminAppTask) are: silent
                          (not sent), late:MS, short, split in two, garbage, or the task dies in mid-reply; full: the
                          task is stopped and its queue is full; absent: there is neither task nor queue
  --service-faults SEED:PERCENT
                          so many of all replies are faulty; the same seed gives the same faults
  --service-program [NAME=]PROGRAM
                          the service tasks, or the one with this name, are run by this program: one that was built for
                          a board, or a service of your own
  --read-only-tmp         an empty /tmp in which nothing can be created
  --shared-tmp            the machine's /tmp instead of an empty one for this command only (--private-tmp)

Other:
  --nodes fuse|files      how the nodes are made: by a file system of tev-sim's own, which sees each write, or as plain
                          files that are watched; without this option files are used only where /dev/fuse is refused
  --in-place              this machine becomes the board: for a virtual machine that is nothing else
  --probe                 run no command; tell whether tev-sim can work on this machine
  --help                  this text

Exit status of tev-sim itself: 2 wrong options, 125 the machine refuses what the board needs (the reason is printed),
126 the command cannot be started, 127 there is no such command.
)";

namespace {

bool endsWith(std::string_view text, std::string_view ending) {
  return text.size() >= ending.size() && text.compare(text.size() - ending.size(), ending.size(), ending) == 0;
}

// Returns the full path of a node or tool that `path` names in full or by an ending; otherwise sets `error`.
std::string fullPath(const std::string& path, std::string& error) {
  std::vector<std::string> found;
  for (const std::string& known : boardPaths()) {
    if (known == path || endsWith(known, "/" + path)) found.push_back(known);
  }
  if (found.size() == 1) return found[0];
  error = found.empty() ? "the board has no " + path : path + " is not clear: " + found[0] + " or " + found[1];
  return "";
}

struct Option {
  const char* name;
  bool hasValue;
  std::function<std::string(Options&, const std::string& value)> apply; // returns the error, empty if none
};

// Returns an option without a value.
template <class Set>
Option flag(const char* name, Set set) {
  return {name, false, [set](Options& options, const std::string&) {
            set(options);
            return std::string();
          }};
}

// Returns an option that adds a path to a set.
Option pathOption(const char* name, std::set<std::string> Faults::*paths) {
  return {name, true, [paths](Options& options, const std::string& value) {
            std::string error;
            (options.board.faults.*paths).insert(fullPath(value, error));
            return error;
          }};
}

std::string setFirstText(Options& options, const std::string& value) {
  const size_t equals = value.find('=');
  if (equals == value.npos) return "--node wants PATH=TEXT";
  const std::optional<std::string> text = unescaped(std::string_view(value).substr(equals + 1));
  if (!text) return "--node has an escape that C does not know: " + value;
  std::string error;
  options.board.faults.firstTexts[fullPath(value.substr(0, equals), error)] = *text;
  return error;
}

std::string setTool(Options& options, const std::string& value) {
  const size_t equals = value.find('=');
  const std::string name = value.substr(0, equals);
  const std::string fault = equals == value.npos ? "" : value.substr(equals + 1);
  if (std::find(toolNames.begin(), toolNames.end(), name) == toolNames.end()) return "there is no tool " + name;
  if (fault != "fail" && fault != "silent") return "--tool wants NAME=fail or NAME=silent";
  options.board.faults.tools[name] = fault == "fail" ? ToolFault::fail : ToolFault::silent;
  return "";
}

bool isService(const std::string& name) {
  return std::any_of(serviceTasks.begin(), serviceTasks.end(),
                     [&](const ServiceTask& task) { return name == task.name; });
}

std::string setService(Options& options, const std::string& value) {
  const size_t equals = value.find('=');
  const std::string name = value.substr(0, equals);
  const std::string fault = equals == value.npos ? "" : value.substr(equals + 1);
  if (!isService(name)) return "there is no service " + name;
  const std::optional<ServiceFault> parsed = ServiceFault::parse(fault);
  if (!parsed) return "--service wants NAME=silent, late:MS, short, split, garbage, dies, full or absent";
  options.board.faults.services[name] = *parsed;
  return "";
}

std::string setServiceProgram(Options& options, const std::string& value) {
  const std::string name = value.substr(0, value.find('='));
  const bool one = isService(name) && name != value;
  options.services[one ? name : ""] = one ? value.substr(name.size() + 1) : value;
  return "";
}

std::string setServiceFaults(Options& options, const std::string& value) {
  unsigned seed = 0;
  unsigned percent = 0;
  int length = 0;
  const bool read = std::sscanf(value.c_str(), "%9u:%3u%n", &seed, &percent, &length) == 2;
  if (!read || static_cast<size_t>(length) != value.size() || percent > FaultDice::always) {
    return "--service-faults wants SEED:PERCENT";
  }
  options.board.faults.dice = FaultDice(seed, percent);
  return "";
}

std::string setPid(Options& options, const std::string& value) {
  int length = 0;
  const bool read = std::sscanf(value.c_str(), "%9d%n", &options.pid, &length) == 1;
  return read && static_cast<size_t>(length) == value.size() && options.pid > 0 ? "" : "--pid wants a process number";
}

std::string setNodeKind(Options& options, const std::string& value) {
  if (value != "fuse" && value != "files") return "--nodes wants fuse or files";
  options.nodes = value == "fuse" ? NodeKind::fuse : NodeKind::files;
  return "";
}

Option textOption(const char* name, std::string Options::*text) {
  return {name, true, [text](Options& options, const std::string& value) {
            options.*text = value;
            return std::string();
          }};
}

const std::vector<Option>& knownOptions() {
  static const std::vector<Option> known = {
      textOption("--log", &Options::logFile),
      textOption("--dump", &Options::dumpFile),
      {"--node", true, setFirstText},
      textOption("--snapshots", &Options::snapshots),
      {"--tool", true, setTool},
      {"--service", true, setService},
      {"--service-faults", true, setServiceFaults},
      {"--service-program", true, setServiceProgram},
      {"--nodes", true, setNodeKind},
      pathOption("--missing", &Faults::missing),
      pathOption("--read-only", &Faults::readOnly),
      pathOption("--fail-write", &Faults::failWrite),
      flag("--log-reads", [](Options& o) { o.board.logReads = true; }),
      flag("--log-times", [](Options& o) { o.logTimes = true; }),
      flag("--frozen", [](Options& o) { o.board.frozen = true; }),
      flag("--private-tmp", [](Options& o) { o.tmp = Tmp::own; }),
      flag("--shared-tmp", [](Options& o) { o.tmp = Tmp::shared; }),
      flag("--read-only-tmp", [](Options& o) { o.tmp = Tmp::readOnly; }),
      {"--pid", true, setPid},
      flag("--status", [](Options& o) { o.status = true; }),
      flag("--watch", [](Options& o) { o.status = o.watch = true; }),
      flag("--in-place", [](Options& o) { o.inPlace = true; }),
      flag("--probe", [](Options& o) { o.probe = true; }),
      flag("--help", [](Options& o) { o.help = true; }),
  };
  return known;
}

} // namespace

std::variant<Options, std::string> parseOptions(const std::vector<std::string>& words) {
  Options options;
  for (auto word = words.begin(); word != words.end(); ++word) {
    if (*word == "--") {
      options.command.assign(word + 1, words.end());
      if (options.command.empty()) return "there is no command after --";
      return options;
    }
    const size_t equals = word->find('=');
    const std::string name = word->substr(0, equals);
    const auto& known = knownOptions();
    const auto option = std::find_if(known.begin(), known.end(), [&](const Option& o) { return name == o.name; });
    if (option == known.end()) {
      return word->compare(0, 1, "-") == 0 ? "unknown option " + *word
                                           : "unexpected word " + *word + " (a command goes after --)";
    }
    std::string value;
    if (!option->hasValue && equals != word->npos) return name + " takes no value";
    if (option->hasValue) {
      if (equals != word->npos) {
        value = word->substr(equals + 1);
      } else if (++word != words.end()) {
        value = *word;
      } else {
        return name + " wants a value";
      }
    }
    if (std::string error = option->apply(options, value); !error.empty()) return error;
  }
  return options;
}

} // namespace sim
