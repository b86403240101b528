# QELMO_PACKAGE_VERSION: the version of the packages. It begins with the version of the release, so that apt upgrades to
# each new release and to each new application.
#   release 1.2.4 in application 1.0.0: 1.2.4+app1.0.0
if(QELMO_CARRIES_SAMPLE)
    # Sorts before every version that a release can have.
    set(release 0~~sample)
else()
    # Debian sorts "~" before the end of the text, as a pre-release needs, and "." after the "+" that follows the
    # release.
    string(REGEX REPLACE "^[vV]([0-9])" "\\1" release "${QELMO_CARRIED_VERSION}")
    string(REPLACE "-" "~" release "${release}")
    string(REPLACE "+" "." release "${release}")
    if(NOT release MATCHES "^[0-9][A-Za-z0-9]*([.~][A-Za-z0-9]+)*$")
        message(FATAL_ERROR "QELMO_RELEASE_VERSION: no Debian package can have the version \"${QELMO_CARRIED_VERSION}\"; "
                "it must begin with a digit and consist of letters and digits, with single \".\", \"-\", \"+\" or \"~\" "
                "between them.")
    endif()
endif()
set(QELMO_PACKAGE_VERSION "${release}+app${PROJECT_VERSION}")
