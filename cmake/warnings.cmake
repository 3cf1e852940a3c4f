# The one set of warnings for code of our own; every one of them is an error. Known to g++ 12 and clang++ 14 alike.
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
    -Wcast-qual
    -Werror)

function(tabulo_strict_warnings target)
    target_compile_options(${target} PRIVATE ${TABULO_WARNINGS})
endfunction()
