// A test program's own /tmp, /var/log and System V queues.
//
// Linked into a program, Isolation.cpp enters namespaces before the other constructors run: the trace log opens a file
// in /tmp before main. So tests find these places empty, may mount and fill what they like, and leave nothing behind.
#ifndef TEV_TESTS_ISOLATION_H
#define TEV_TESTS_ISOLATION_H

#include <string>

/// Returns the empty string if the program has namespaces of its own and is root in them. Otherwise what the machine
/// refuses; the program then uses the machine's /tmp, /var/log and queues.
std::string whyNotIsolated();

#endif
