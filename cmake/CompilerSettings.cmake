# What every target of this project is compiled with: qelmo_settings is linked privately by each of them.
add_library(qelmo_settings INTERFACE)
target_include_directories(qelmo_settings INTERFACE "${PROJECT_SOURCE_DIR}")
target_compile_options(qelmo_settings INTERFACE
    -Wall -Wextra -Wpedantic -Werror -Wshadow -Wconversion -Wsign-conversion -Wold-style-cast
    -Wnon-virtual-dtor -Woverloaded-virtual -Wextra-semi -Wformat=2
    # Which lock guards what: platform/ThreadSafety.h.
    $<$<CXX_COMPILER_ID:Clang,AppleClang>:-Wthread-safety>)
if(QELMO_SANITIZE)
    # The check of virtual tables opens a pipe each time, and takes an object for a wrong one when there is none
    # to be had.
    set(sanitize "-fsanitize=${QELMO_SANITIZE}" -fno-sanitize=vptr)
    # Instrumented code is warned of for what is not there; the other builds make warnings errors.
    target_compile_options(qelmo_settings INTERFACE ${sanitize} -fno-omit-frame-pointer -fno-sanitize-recover=all
                           -Wno-error)
    target_link_options(qelmo_settings INTERFACE ${sanitize})
    # For tests of memory: a sanitizer takes a multiple of it.
    target_compile_definitions(qelmo_settings INTERFACE QELMO_SANITIZED)
endif()

# Hardening: what a fault in this program or in a library could be used for is made small. Sanitizers replace it.
if(NOT QELMO_SANITIZE)
    include(CheckPIESupported)
    check_pie_supported(LANGUAGES CXX)
    include(CheckCXXCompilerFlag)
    # The processor's own control-flow protection has one name a family. "standard" also signs return addresses.
    # Apple's unwinder takes no signed address in a program that is built for plain arm64: every C++ exception
    # that leaves its function would end the program there.
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
    # Checked library calls need an optimising compiler.
    target_compile_options(qelmo_settings INTERFACE
        "$<$<NOT:$<CONFIG:Debug>>:-U_FORTIFY_SOURCE;-D_FORTIFY_SOURCE=2;-D_GLIBCXX_ASSERTIONS>")
    if(CMAKE_SYSTEM_NAME STREQUAL "Linux")
        # And a symbol that no library supplies is an error when the window library is linked, not when it is loaded.
        target_link_options(qelmo_settings INTERFACE -Wl,-z,relro -Wl,-z,now -Wl,-z,noexecstack -Wl,--no-undefined)
    endif()
endif()
