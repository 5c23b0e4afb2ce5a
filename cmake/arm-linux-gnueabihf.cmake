# The board, ARMv7 with floating-point unit. Compilers from Debian's g++-arm-linux-gnueabihf.
set(TEV_TRIPLET arm-linux-gnueabihf)
set(TEV_DEBIAN_ARCHITECTURE armhf)
include(${CMAKE_CURRENT_LIST_DIR}/arm.cmake)
