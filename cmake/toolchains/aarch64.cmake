# 64-bit Arm with Debian's cross compiler, g++-aarch64-linux-gnu.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR aarch64)
set(CMAKE_CXX_COMPILER aarch64-linux-gnu-g++)
set(CPACK_DEBIAN_PACKAGE_ARCHITECTURE arm64)
