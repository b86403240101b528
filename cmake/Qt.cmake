# Qt, in the oldest version that the window works with.
# On macOS, versions before 6.9.2 need the AGL framework, which the SDK of macOS 26 no longer has. Versions before 6.8
# do not support dark controls: the window would be unreadable.
# Set QELMO_OLDEST_QT to allow an older version for a build that is never run.
if(NOT DEFINED QELMO_OLDEST_QT)
    if(APPLE)
        set(QELMO_OLDEST_QT 6.9.2)
    else()
        set(QELMO_OLDEST_QT 6.4)
    endif()
endif()
find_package(Qt6 ${QELMO_OLDEST_QT} REQUIRED COMPONENTS Widgets)
