# Qt's packages look for these on macOS, and a Debian machine does not have them. The code here does not use them.
foreach(target IN ITEMS WrapOpenGL::WrapOpenGL WrapVulkanHeaders::WrapVulkanHeaders WrapAtomic::WrapAtomic)
    if(NOT TARGET ${target})
        add_library(${target} INTERFACE IMPORTED GLOBAL)
    endif()
endforeach()

# Without these settings CMake gives libraries an @rpath name, and programs a run path, only if it can ask the machine
# for its macOS version.
foreach(kind IN ITEMS SHARED_LIBRARY EXECUTABLE)
    set(CMAKE_${kind}_RUNTIME_C_FLAG "-Wl,-rpath,")
    set(CMAKE_${kind}_RUNTIME_CXX_FLAG "-Wl,-rpath,")
endforeach()
