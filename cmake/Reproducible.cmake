# The same commit gives the same bytes, in any folder, at any time and for any user.

# For every object, including those that the functions of Qt add: no folder of this machine in debug information or
# messages, and no use of the current time.
add_compile_options("-ffile-prefix-map=${PROJECT_SOURCE_DIR}=." "-ffile-prefix-map=${CMAKE_BINARY_DIR}=./build"
                    -Werror=date-time)
if(CMAKE_SYSTEM_NAME STREQUAL "Linux")
    add_link_options(-Wl,--build-id=sha1)
    # Archives without times and owners, even if that is not the default of the installed binutils.
    set(CMAKE_CXX_ARCHIVE_CREATE "<CMAKE_AR> qcD <TARGET> <LINK_FLAGS> <OBJECTS>")
    set(CMAKE_CXX_ARCHIVE_APPEND "<CMAKE_AR> qD <TARGET> <LINK_FLAGS> <OBJECTS>")
    set(CMAKE_CXX_ARCHIVE_FINISH "<CMAKE_RANLIB> -D <TARGET>")
endif()

list(APPEND CPACK_POST_BUILD_SCRIPTS "${PROJECT_SOURCE_DIR}/cmake/SettledDebianPackage.cmake")

# The time that the results carry: that of the commit. Empty if it is unknown.
set(QELMO_SOURCE_DATE_EPOCH "$ENV{SOURCE_DATE_EPOCH}")
if(QELMO_SOURCE_DATE_EPOCH STREQUAL "")
    find_program(GIT git)
    if(GIT)
        execute_process(COMMAND "${GIT}" log -1 --format=%ct WORKING_DIRECTORY "${PROJECT_SOURCE_DIR}"
                        OUTPUT_VARIABLE QELMO_SOURCE_DATE_EPOCH OUTPUT_STRIP_TRAILING_WHITESPACE ERROR_QUIET)
        if(EXISTS "${PROJECT_SOURCE_DIR}/.git/logs/HEAD")
            set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS "${PROJECT_SOURCE_DIR}/.git/logs/HEAD")
        endif()
    endif()
endif()
if(NOT QELMO_SOURCE_DATE_EPOCH MATCHES "^[0-9]*$")
    message(FATAL_ERROR "SOURCE_DATE_EPOCH must be a number of seconds: ${QELMO_SOURCE_DATE_EPOCH}")
endif()
