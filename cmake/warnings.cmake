# The one set of warnings for code of our own; every one of them is an error, but not in the build of a program that has taken
# in this tree and may have another compiler. Known to g++ 12 and clang++ 14 alike.
set(TABULO_WARNINGS
    -Wall
    -Wextra
    -Wpedantic
    -Wshadow
    -Wconversion
    -Wsign-conversion
    -Wformat=2
    -Wold-style-cast
    -Wnon-virtual-dtor
    -Wcast-qual)
if(PROJECT_IS_TOP_LEVEL)
    list(APPEND TABULO_WARNINGS -Werror)
endif()

function(tabulo_strict_warnings target)
    target_compile_options(${target} PRIVATE ${TABULO_WARNINGS})
endfunction()
