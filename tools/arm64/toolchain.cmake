# Builds for Linux on arm64 with Debian's cross compiler. arm64-check makes sure that /usr also contains the packages
# for arm64 and that arm64 programs run.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR aarch64)
set(CMAKE_CXX_COMPILER /usr/bin/aarch64-linux-gnu-g++)
# Set explicitly: otherwise CMake neither runs pack-release nor asks the test programs for their tests.
set(CMAKE_CROSSCOMPILING_EMULATOR /usr/bin/qemu-aarch64)
# Without this, pkg-config finds the libraries of the machine.
set(ENV{PKG_CONFIG_LIBDIR} /usr/lib/aarch64-linux-gnu/pkgconfig)
# The same as for macOS.
set(QELMO_BRANCH_PROTECTION bti)
set(CPACK_DEBIAN_PACKAGE_ARCHITECTURE arm64)
