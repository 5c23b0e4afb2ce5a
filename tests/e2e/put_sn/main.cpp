#include "commands/FactoryResetCmd.h"

#include <iostream>

int main() {
  const int result = FactoryResetCmd().putSn();
  std::cout << "putSn: " << result << std::endl;
}
