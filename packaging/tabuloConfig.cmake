# find_package(tabulo) gives tabulo::tabulo, a static library that needs C++20 and nothing else. With COMPONENTS quickfix also
# tabulo::quickfix, the store for QuickFIX, which needs the engine and C++11 to C++14.
include("${CMAKE_CURRENT_LIST_DIR}/tabuloTargets.cmake")
if(EXISTS "${CMAKE_CURRENT_LIST_DIR}/tabuloQuickfixTargets.cmake" AND "quickfix" IN_LIST tabulo_FIND_COMPONENTS)
    include("${CMAKE_CURRENT_LIST_DIR}/tabuloQuickfixTargets.cmake")
    set(tabulo_quickfix_FOUND TRUE)
endif()
foreach(component IN LISTS tabulo_FIND_COMPONENTS)
    if(tabulo_FIND_REQUIRED_${component} AND NOT tabulo_${component}_FOUND)
        set(tabulo_FOUND FALSE)
        set(tabulo_NOT_FOUND_MESSAGE "this package of tabulo was built without its component ${component}")
    endif()
endforeach()
