# QELMO_PACKAGE_VERSION: the packages' version, the release's first, so that apt upgrades with each new release and with
# each new application.
#   1.2.4 in the application 1.0.0: 1.2.4+app1.0.0
if(QELMO_CARRIES_SAMPLE)
    # Lower than every version that a release can have.
    set(release 0~~sample)
else()
    # In Debian's order "~" is lower than no character at all, as a pre-release has to be, and "." is higher than the
    # "+" that follows the release.
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
