# What every target of this project is compiled with: qelmo_settings is linked privately by each of them.
add_library(qelmo_settings INTERFACE)
target_include_directories(qelmo_settings INTERFACE "${PROJECT_SOURCE_DIR}")
target_compile_options(qelmo_settings INTERFACE
    -Wall -Wextra -Wpedantic -Werror -Wshadow -Wconversion -Wsign-conversion -Wold-style-cast
    -Wnon-virtual-dtor -Woverloaded-virtual -Wextra-semi -Wformat=2)
if(QELMO_SANITIZE)
    target_compile_options(qelmo_settings INTERFACE "-fsanitize=${QELMO_SANITIZE}" -fno-omit-frame-pointer
                           -fno-sanitize-recover=all)
    target_link_options(qelmo_settings INTERFACE "-fsanitize=${QELMO_SANITIZE}")
endif()
if(CMAKE_SYSTEM_NAME STREQUAL "Linux")
    # A symbol that no library supplies is an error when the window library is linked, not when it is loaded.
    if(NOT QELMO_SANITIZE)
        target_link_options(qelmo_settings INTERFACE -Wl,--no-undefined)
    endif()
endif()
