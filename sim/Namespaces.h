// The namespaces that isolate the board from the machine.
#ifndef TEV_SIM_NAMESPACES_H
#define TEV_SIM_NAMESPACES_H

namespace sim {

/// Moves the caller to a new IPC namespace, and its next child to a new process namespace, in which the child is
/// process 1. For an ordinary user this takes a new user namespace, in which the user is root. The caller must have one
/// thread. Throws std::runtime_error that names what the machine refuses.
void enterNamespaces();

} // namespace sim

#endif
