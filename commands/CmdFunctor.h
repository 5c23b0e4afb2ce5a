// What every command is. Programs keep commands in a registry and call them.
#ifndef TEV_COMMANDS_CMDFUNCTOR_H
#define TEV_COMMANDS_CMDFUNCTOR_H

#include <map>
#include <string>
#include <vector>

/// The words of one command line, in input order. Word 0 is the command's key as typed; no word is empty.
using ArgVec = std::vector<std::string>;

/// A command. Commands are called on the main thread, one at a time, and keep no state between calls.
class CmdFunctor {
public:
  virtual ~CmdFunctor() = default;

  /// Carries the command out and reports its own failures on the console. `args` holds at least the key and must not be
  /// referred to after the call. Returns whether the shell shall remember the line.
  virtual bool operator()(const ArgVec& args) = 0;

  /// The word that invokes the command. This and the two texts below are constants.
  virtual const char* getkey() = 0;

  /// The help text: several lines, each ended with a newline.
  virtual const char* getlong() = 0;

  /// The summary in the short help listing.
  virtual const char* getshort() = 0;
};

/// Commands by key, in byte order, which is the order of every help listing.
using CmdMap = std::map<std::string, CmdFunctor*>;

#endif
