# The texts about the release for the documents in the packages, escaped for XML and for the man page.

function(qelmo_xml_text variable text)
    string(REPLACE "&" "&amp;" text "${text}")
    string(REPLACE "<" "&lt;" text "${text}")
    string(REPLACE ">" "&gt;" text "${text}")
    set(${variable} "${text}" PARENT_SCOPE)
endfunction()

# Do not use it at the start of a line, where "." and "'" have a meaning.
function(qelmo_man_text variable text)
    string(REPLACE "\\" "\\(rs" text "${text}")
    string(REPLACE "\"" "\\(dq" text "${text}")
    string(REPLACE "-" "\\-" text "${text}")
    set(${variable} "${text}" PARENT_SCOPE)
endfunction()

# qelmo_package_time(VARIABLE FORMAT): the time of the commit, like every other time in the packages.
function(qelmo_package_time variable format)
    set(outside "$ENV{SOURCE_DATE_EPOCH}")
    if(NOT QELMO_SOURCE_DATE_EPOCH STREQUAL "")
        set(ENV{SOURCE_DATE_EPOCH} "${QELMO_SOURCE_DATE_EPOCH}")
    endif()
    string(TIMESTAMP time "${format}" UTC)
    set(ENV{SOURCE_DATE_EPOCH} "${outside}")
    if(outside STREQUAL "")
        unset(ENV{SOURCE_DATE_EPOCH})
    endif()
    set(${variable} "${time}" PARENT_SCOPE)
endfunction()

set(QELMO_PACKAGE_SUMMARY "firmware installer for the Cardputer ADV, with")
if(QELMO_CARRIES_SAMPLE)
    set(QELMO_CARRIED "a sample that is not firmware. Never flash it onto a device that you need")
    string(APPEND QELMO_PACKAGE_SUMMARY " a sample and no firmware")
else()
    set(QELMO_CARRIED "${QELMO_CARRIED_NAME} ${QELMO_CARRIED_VERSION}")
    string(APPEND QELMO_PACKAGE_SUMMARY " ${QELMO_CARRIED}")
endif()

qelmo_package_time(QELMO_CHANGELOG_TIME "%a, %d %b %Y %H:%M:%S +0000")
qelmo_package_time(QELMO_PACKAGE_DAY "%Y-%m-%d")

foreach(name CARRIED PACKAGE_VERSION HOMEPAGE SUPPORT MAIL)
    qelmo_xml_text(QELMO_${name}_XML "${QELMO_${name}}")
    qelmo_man_text(QELMO_${name}_MAN "${QELMO_${name}}")
endforeach()
qelmo_man_text(QELMO_PACKAGE_DAY_MAN "${QELMO_PACKAGE_DAY}")
