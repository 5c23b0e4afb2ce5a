// The namespaces that keep the board apart from the machine.
#ifndef TEV_SIM_NAMESPACES_H
#define TEV_SIM_NAMESPACES_H

namespace sim {

/// Gives the caller an IPC namespace of its own, and its next child a process namespace, in which that child is
/// process 1. An ordinary user gets a user namespace for it, in which he is root. The caller must have one thread.
/// Throws std::runtime_error with what the machine refuses.
void enterNamespaces();

} // namespace sim

#endif
