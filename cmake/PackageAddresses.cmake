# The addresses of the maintainers. The packages, the metainfo, the man page and the other documents use them.
set(QELMO_HOMEPAGE "https://qelmo.example/varnox-flasher" CACHE STRING "The project's web page")
set(QELMO_MAINTAINER "QELMO Varnox Flasher developers <maintainers@qelmo.example>"
    CACHE STRING "Who makes the packages: Name <mail address>")
set(QELMO_SUPPORT "https://qelmo.example/varnox-flasher/support" CACHE STRING "The web page where users report faults")

foreach(variable QELMO_HOMEPAGE QELMO_SUPPORT)
    if(NOT "${${variable}}" MATCHES "^https?://[^][ <>\"\\]+$")
        message(FATAL_ERROR "${variable}: not a web address: ${${variable}}")
    endif()
endforeach()
if(NOT QELMO_MAINTAINER MATCHES "^[^][<>\"\\]+ <[^][ <>\"\\@]+@[^][ <>\"\\@]+>$")
    message(FATAL_ERROR "QELMO_MAINTAINER: not of the form Name <mail address>: ${QELMO_MAINTAINER}")
endif()
string(REGEX REPLACE ".*<(.*)>$" "\\1" QELMO_MAIL "${QELMO_MAINTAINER}")

# Addresses below ".example" never exist.
if(NOT QELMO_CARRIES_SAMPLE)
    foreach(variable QELMO_HOMEPAGE QELMO_MAINTAINER QELMO_SUPPORT)
        if("${${variable}}" MATCHES "\\.example([/:?#>]|$)")
            message(WARNING "${variable}: users cannot reach ${${variable}}; set it before you distribute the packages.")
        endif()
    endforeach()
endif()
