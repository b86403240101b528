# Builds for macOS on Debian with darwin-c++ as the compiler, and with Qt's headers and tools from Debian. cross-check
# sets the architecture.
set(CMAKE_SYSTEM_NAME Darwin)
set(CMAKE_CXX_COMPILER "${CMAKE_CURRENT_LIST_DIR}/darwin-c++")
set(CMAKE_OSX_SYSROOT "" CACHE PATH "")
foreach(tool IN ITEMS AR RANLIB INSTALL_NAME_TOOL OTOOL)
    string(TOLOWER "llvm-${tool}" name)
    string(REPLACE _ - name "${name}")
    set(CMAKE_${tool} "$ENV{QELMO_LLVM_TOOLS}/${name}" CACHE FILEPATH "")
endforeach()

# Find packages at the usual places of Debian.
set(CMAKE_FIND_FRAMEWORK NEVER)
set(CMAKE_LIBRARY_ARCHITECTURE x86_64-linux-gnu)
list(APPEND CMAKE_PREFIX_PATH /usr)
set(QELMO_OLDEST_QT 6.4) # Debian's version; the result is not for a Mac
set(GTest_DIR "$ENV{QELMO_PRECOMPILED}/googletest/lib/cmake/GTest" CACHE PATH "")
set(CMAKE_PROJECT_INCLUDE "${CMAKE_CURRENT_LIST_DIR}/after-project.cmake")
