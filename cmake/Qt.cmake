# The window's toolkit, in the oldest version that the window works with.
# On macOS, versions before 6.9.2 need the AGL framework, which the SDK of macOS 26 does not have any more, and those
# before 6.8 cannot be asked for dark controls: the window would be unreadable.
# QELMO_OLDEST_QT allows an older one for a build that is compiled and never run.
if(NOT DEFINED QELMO_OLDEST_QT)
    if(APPLE)
        set(QELMO_OLDEST_QT 6.9.2)
    else()
        set(QELMO_OLDEST_QT 6.4)
    endif()
endif()
find_package(Qt6 ${QELMO_OLDEST_QT} REQUIRED COMPONENTS Widgets)
