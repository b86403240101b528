# Builds for Linux on arm64 with Debian's cross compiler.  arm64-check sees to it that the packages for arm64 are in /usr
# too, and that arm64 programs run.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR aarch64)
set(CMAKE_CXX_COMPILER /usr/bin/aarch64-linux-gnu-g++)
# Named here, or CMake would not run pack-release and would not ask the test programs for their tests.
set(CMAKE_CROSSCOMPILING_EMULATOR /usr/bin/qemu-aarch64)
# Otherwise the machine's own libraries are found.
set(ENV{PKG_CONFIG_LIBDIR} /usr/lib/aarch64-linux-gnu/pkgconfig)
# As for macOS.
set(QELMO_BRANCH_PROTECTION bti)
set(CPACK_DEBIAN_PACKAGE_ARCHITECTURE arm64)
