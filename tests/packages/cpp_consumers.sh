# Sourced by run: what is installed, and trees that take this one in.
prefix=$work/prefix
cmake --install "$build" --prefix "$prefix" >"$work/install.log" || failed=1

# cpp_consumer <how> <setting>...
cpp_consumer() {
    local folder=$work/cpp_$1
    cmake -S "$here/cpp" -B "$folder" -G Ninja -D CMAKE_BUILD_TYPE=Release -D TABULO_BY="$1" "${@:2}" &&
        cmake --build "$folder" -j "$(nproc)" -- --quiet && "$folder/consumer" "$tables"
}
# Without a JDK or the tests' framework, as elsewhere; -Werror must not reach the consumer's copy of the tree.
bare=(-D "TABULO_SOURCE=$root" -D TABULO_JDK=/nowhere -D CMAKE_DISABLE_FIND_PACKAGE_GTest=ON)
prove "find_package in CMake" "$expected" cpp_consumer package -D CMAKE_PREFIX_PATH="$prefix"
prove "add_subdirectory in CMake" "$expected" cpp_consumer subdirectory "${bare[@]}"

fetch_consumer() {
    # Nothing is to be built here that the one before has not built.
    cmake -S "$here/cpp" -B "$work/cpp_fetch" -G Ninja -D TABULO_BY=fetch "${bare[@]}" &&
        cmake --build "$work/cpp_fetch" --target help | grep -E 'tabulo_api|tests_'
}
prove "FetchContent in CMake finds the target" 'tabulo_api: ' fetch_consumer

engine_consumer() {
    cmake -S "$here/quickfix" -B "$work/cpp_quickfix" -G Ninja -D CMAKE_BUILD_TYPE=Release -D CMAKE_PREFIX_PATH="$prefix" &&
        cmake --build "$work/cpp_quickfix" -- --quiet && "$work/cpp_quickfix/engine" "$work/engine_tables" &&
        "$prefix/bin/tabulo" cat "$work/engine_tables/FIX.4.4-CLIENT-EXCHANGE"
}
prove "find_package of the store for QuickFIX" '35=D.11=ORDER-1' engine_consumer

pkgconfig_consumer() {
    local flags
    read -ra flags < <(PKG_CONFIG_PATH="$prefix/lib/pkgconfig" pkg-config --cflags --libs tabulo) &&
        g++ -o "$work/pkgconfig_consumer" "$here/cpp/main.cpp" "${flags[@]}" && "$work/pkgconfig_consumer" "$tables"
}
prove "pkg-config" "$expected" pkgconfig_consumer

installed_command() {
    "$prefix/bin/tabulo" help && man -l "$prefix/share/man/man1/tabulo.1" >/dev/null 2>&1 || [[ $? == 127 ]]
    bash -c ". '$prefix/share/bash-completion/completions/tabulo' && complete -p tabulo"
}
prove "the command with its completions" '^complete .* tabulo' installed_command
