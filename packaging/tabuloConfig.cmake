# find_package(tabulo) gives tabulo::tabulo, a static library that needs C++20 and nothing else.
include("${CMAKE_CURRENT_LIST_DIR}/tabuloTargets.cmake")
