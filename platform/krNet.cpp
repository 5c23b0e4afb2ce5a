#include "platform/krNet.h"

#include "platform/internal/Failure.h"
#include "platform/krError.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <unistd.h>

int krGetHostName(char* buffer, size_t length) {
  return buffer != nullptr ? gethostname(buffer, length) : kr::failWith(KR_ERR_INVALID);
}

uint32_t krInetAddr(const char* text) {
  in_addr address{};
  return text != nullptr && inet_aton(text, &address) != 0 ? address.s_addr : 0;
}

void krInetNtoa(uint32_t address, char* buffer) {
  // Cannot fail for an IPv4 address and a buffer of this size.
  if (buffer != nullptr) (void)inet_ntop(AF_INET, &address, buffer, INET_ADDRSTRLEN);
}
