// An object file of its own: a program that resolves no names does not get the resolver linked in.
#include "platform/krNet.h"

#include "platform/internal/Uncancelled.h"

#include <cstring>
#include <netdb.h>
#include <netinet/in.h>

uint32_t krGetHostByName(const char* name) {
  if (name == nullptr) return 0;
  return kr::uncancelled([=]() -> uint32_t {
    const uint32_t loopback = htonl(INADDR_LOOPBACK);
    addrinfo* results = nullptr;
    if (getaddrinfo(name, nullptr, nullptr, &results) != 0) return 0;
    // Each address comes once for every kind of socket, and those of other families come in between.
    uint32_t address = 0;
    for (const addrinfo* result = results; result != nullptr; result = result->ai_next) {
      if (result->ai_family != AF_INET) continue;
      sockaddr_in found{};
      memcpy(&found, result->ai_addr, sizeof found);
      address = found.sin_addr.s_addr;
      if (address != loopback) break;
    }
    freeaddrinfo(results);
    return address;
  });
}
