# The board, soft float: the widest reach. Compilers from Debian's g++-arm-linux-gnueabi.
set(TEV_TRIPLET arm-linux-gnueabi)
set(TEV_DEBIAN_ARCHITECTURE armel)
include(${CMAKE_CURRENT_LIST_DIR}/arm.cmake)
