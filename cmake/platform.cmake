# A source that is for one platform only says so at its name's end: table_lock_linux.cpp is for Linux, table_lock_posix.cpp for
# every Unix. The others are for all platforms.
set(TABULO_PLATFORMS "")
if(CMAKE_SYSTEM_NAME STREQUAL "Linux")
    list(APPEND TABULO_PLATFORMS linux)
elseif(APPLE)
    list(APPEND TABULO_PLATFORMS darwin)
elseif(WIN32)
    list(APPEND TABULO_PLATFORMS windows)
endif()
if(UNIX)
    list(APPEND TABULO_PLATFORMS posix)
endif()

# tabulo_platform_sources(<variable>): takes the sources of other platforms out of a list of sources.
function(tabulo_platform_sources variable)
    set(sources ${${variable}})
    set(others linux darwin windows posix)
    list(REMOVE_ITEM others ${TABULO_PLATFORMS})
    list(JOIN others "|" pattern)
    list(FILTER sources EXCLUDE REGEX "_(${pattern})\\.cpp$")
    set(${variable} ${sources} PARENT_SCOPE)
endfunction()
