// The deviations from a working board that the options ask for.
#ifndef TEV_SIM_FAULTS_H
#define TEV_SIM_FAULTS_H

#include "sim/ServiceFault.h"

#include <map>
#include <set>
#include <string>

namespace sim {

enum class ToolFault { fail, silent };

/// All paths are full paths of nodes; in `missing` also of board tools.
struct Faults {
  std::map<std::string, std::string> firstTexts;
  std::set<std::string> missing;
  std::set<std::string> readOnly;
  std::set<std::string> failWrite;
  std::map<std::string, ToolFault> tools;       // by the tool's name
  std::map<std::string, ServiceFault> services; // by the task's name
  FaultDice dice;                               // for the other tasks
};

} // namespace sim

#endif
