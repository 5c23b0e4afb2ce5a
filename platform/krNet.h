// Host names and IPv4 addresses. All calls are safe from any thread.
#ifndef TEV_PLATFORM_KRNET_H
#define TEV_PLATFORM_KRNET_H

#include <cstddef>
#include <cstdint>

/// gethostname(2): a name that does not fit is an error (ENAMETOOLONG).
int krGetHostName(char* buffer, size_t length);

/// IPv4 address in network byte order of a dotted text; 0 for null and for what is no address.
uint32_t krInetAddr(const char* text);

/// Stores the dotted text of an IPv4 address in network byte order; the buffer has room for 16 bytes. A null buffer is
/// left alone.
void krInetNtoa(uint32_t address, char* buffer);

/// IPv4 address in network byte order of a host, 0 if it has none. The loopback address is the answer only if the name
/// has no other one. May take as long as the system's resolver does, and is not cancelled meanwhile.
uint32_t krGetHostByName(const char* name);

#endif
