# The compiler settings of this project. Every target links qelmo_settings privately.
add_library(qelmo_settings INTERFACE)
target_include_directories(qelmo_settings INTERFACE "${PROJECT_SOURCE_DIR}")
target_compile_options(qelmo_settings INTERFACE
    -Wall -Wextra -Wpedantic -Werror -Wshadow -Wconversion -Wsign-conversion -Wold-style-cast
    -Wnon-virtual-dtor -Woverloaded-virtual -Wextra-semi -Wformat=2
    # Checks which lock guards what: platform/ThreadSafety.h.
    $<$<CXX_COMPILER_ID:Clang,AppleClang>:-Wthread-safety>)
if(QELMO_SANITIZE)
    # The vptr check opens a pipe each time, and reports a false error when no pipe is available.
    set(sanitize "-fsanitize=${QELMO_SANITIZE}" -fno-sanitize=vptr)
    # Instrumented code causes false warnings. The other builds treat warnings as errors.
    target_compile_options(qelmo_settings INTERFACE ${sanitize} -fno-omit-frame-pointer -fno-sanitize-recover=all
                           -Wno-error)
    target_link_options(qelmo_settings INTERFACE ${sanitize})
    # For tests of memory use: a sanitizer needs several times as much.
    target_compile_definitions(qelmo_settings INTERFACE QELMO_SANITIZED)
endif()

# Hardening: limits what an attacker can do with a fault in this program or in a library. Sanitizers replace it.
if(NOT QELMO_SANITIZE)
    include(CheckPIESupported)
    check_pie_supported(LANGUAGES CXX)
    include(CheckCXXCompilerFlag)
    # The option for the processor's control-flow protection depends on the processor family. "standard" also signs
    # return addresses. Apple's unwinder does not accept signed addresses in a program that is built for plain arm64:
    # every C++ exception that leaves its function would end the program.
    set(branch_protection standard)
    if(APPLE)
        set(branch_protection bti)
    endif()
    set(QELMO_BRANCH_PROTECTION ${branch_protection} CACHE STRING "arm64: the value after -mbranch-protection=")
    foreach(flag IN ITEMS -fcf-protection=full -mbranch-protection=${QELMO_BRANCH_PROTECTION})
        string(MAKE_C_IDENTIFIER "QELMO_HAS${flag}" known)
        check_cxx_compiler_flag(${flag} ${known})
        if(${known})
            target_compile_options(qelmo_settings INTERFACE ${flag})
        endif()
    endforeach()
    target_compile_options(qelmo_settings INTERFACE -fstack-protector-strong)
    # Checked library calls need an optimised build.
    target_compile_options(qelmo_settings INTERFACE
        "$<$<NOT:$<CONFIG:Debug>>:-U_FORTIFY_SOURCE;-D_FORTIFY_SOURCE=2;-D_GLIBCXX_ASSERTIONS>")
    if(CMAKE_SYSTEM_NAME STREQUAL "Linux")
        # --no-undefined: a missing symbol is an error when the window library is linked, not when it is loaded.
        target_link_options(qelmo_settings INTERFACE -Wl,-z,relro -Wl,-z,now -Wl,-z,noexecstack -Wl,--no-undefined)
    endif()
endif()
