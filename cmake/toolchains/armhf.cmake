# 32-bit Arm (v7, hardware floating point) with Debian's cross compiler, g++-arm-linux-gnueabihf.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR armv7l)
set(CMAKE_CXX_COMPILER arm-linux-gnueabihf-g++)
set(CPACK_DEBIAN_PACKAGE_ARCHITECTURE armhf)
