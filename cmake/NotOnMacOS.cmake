# The sources that are not compiled for macOS, each with the reason. All other sources of the repository are compiled
# for macOS, which tools/macos/compiled-sources checks.
set(QELMO_NOT_ON_MACOS
    "platform/Sha256OpenSsl.cpp: CommonCrypto computes digests there"
    "benchmarks/EmptyWindow.cpp: ./bench runs on Linux only"
    "benchmarks/FirstFrame.cpp: ./bench runs on Linux only"
    "benchmarks/WindowBenchmark.cpp: ./bench runs on Linux only"
    "tests/fuzz/targets/FuzzBootableImage.cpp: the fuzzers run on Linux only"
    "tests/fuzz/targets/FuzzLogText.cpp: the fuzzers run on Linux only"
    "tests/fuzz/targets/FuzzManifest.cpp: the fuzzers run on Linux only"
    "tests/platform/ChildProcessOnLinuxTest.cpp: uses Linux's prctl to become the parent of orphaned processes"
    "tests/ui/MacIconTest.cpp: tests the Mac's source on Linux; on macOS the other window tests cover it"
    "tools/pack-release/Md5OpenSsl.cpp: CommonCrypto computes digests there"
    "ui/DesktopLookLinux.cpp: ui/DesktopLookMac.cpp takes its place")

# qelmo_keep_sources_for_this_system(VARIABLE): removes from the list of sources those that this system does not
# compile.
function(qelmo_keep_sources_for_this_system variable)
    set(kept)
    foreach(source IN LISTS ${variable})
        file(RELATIVE_PATH name "${PROJECT_SOURCE_DIR}" "${CMAKE_CURRENT_SOURCE_DIR}/${source}")
        if(NOT APPLE OR NOT QELMO_NOT_ON_MACOS MATCHES "(^|;)${name}: ")
            list(APPEND kept "${source}")
        endif()
    endforeach()
    set(${variable} "${kept}" PARENT_SCOPE)
endfunction()
