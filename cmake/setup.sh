# Sourced by check and demo: installs what is missing, configures and builds. Bash, apt and dpkg are all it relies on before
# the packages are there.

export LC_ALL=C.UTF-8
export DEBIAN_FRONTEND=noninteractive

# The Debian packages that the build, the tests and the demonstration use.
setup_packages=(
    g++ cmake ninja-build
    libgtest-dev
    openjdk-17-jdk-headless junit5
    python3 binutils clang-format strace
    libcli11-dev libfmt-dev rapidjson-dev libpugixml-dev libhowardhinnant-date-dev tzdata
    libsqlite3-dev libedit-dev sqlite3
    libnats-dev nats-server openssl
    libquickfix-dev
    libcpp-httplib-dev libssl-dev
)
# What looks at the code, for the tests about the tree.
setup_tree_packages=(clang-tidy)
# What the fuzz targets need besides: libFuzzer comes with clang, and llvm names the places in its reports.
setup_fuzz_packages=(clang libclang-rt-14-dev llvm)
# What counts covered lines and branches.
setup_coverage_packages=(gcovr)
# What shows the page of tabulo serve to its tests.
setup_page_packages=(chromium chromium-driver python3-selenium python3-pil fonts-dejavu-core)
# What makes the packages: the compiler for the other processor, and what a Debian package is made with.
setup_package_packages=(g++-aarch64-linux-gnu dpkg-dev)
# What tests them: qemu runs the other processor's programs, lintian judges the Debian package, the rest is what consumers
# build with.
setup_package_test_packages=(
    qemu-user lintian pkg-config util-linux
    maven libmaven-resources-plugin-java libmaven-compiler-plugin-java libexec-maven-plugin-java
)

setup_say() {
    printf '== %s\n' "$*"
}

# setup_missing_packages <package>...: those of them that are not installed.
setup_missing_packages() {
    local package
    for package in "$@"; do
        if [[ "$(dpkg-query -W -f='${db:Status-Status}\n' "$package" 2>/dev/null | head -n 1)" != installed ]]; then
            printf '%s\n' "$package"
        fi
    done
}

# Runs a command as root; fails when there is no way to become root.
setup_as_root() {
    if [[ "$(id -u)" == 0 ]]; then
        "$@"
    elif command -v sudo >/dev/null && { sudo -n true 2>/dev/null || [[ -t 0 ]]; }; then
        sudo "$@"
    else
        return 1
    fi
}

# setup_install_packages [package...]: what everybody needs, and the ones named.
setup_install_packages() {
    local missing
    set -- "${setup_packages[@]}" "$@"
    mapfile -t missing < <(setup_missing_packages "$@")
    if [[ ${#missing[@]} == 0 ]]; then
        return 0
    fi
    setup_say "installing ${missing[*]}"
    if setup_as_root env DEBIAN_FRONTEND=noninteractive apt-get update &&
        setup_as_root env DEBIAN_FRONTEND=noninteractive apt-get install -y --no-install-recommends "${missing[@]}"; then
        return 0
    fi
    printf 'These Debian packages are missing and could not be installed from here. Run this as root, then try again:\n' >&2
    printf '    apt-get update && apt-get install -y --no-install-recommends %s\n' "${missing[*]}" >&2
    return 1
}

# What judges pages for people who do not see them, in build/axe. Without it the tests of the page leave that out, and say so.
setup_page_judge() {
    if [[ ! -f build/axe/node_modules/axe-core/axe.min.js ]]; then
        command -v npm >/dev/null || setup_install_packages npm
        npm install --silent --no-audit --no-fund --ignore-scripts --prefix build/axe axe-core@4.10.3 ||
            setup_say "axe-core could not be installed: accessibility of the page is not tested"
    fi
}

# setup_build <preset> [setting of CMake...] [--target <target>]: one line for each step that is compiled on a terminal, else
# compilers' own words only.
setup_build() {
    local quiet=() target=()
    [[ -t 1 ]] || quiet=(-- --quiet)
    if [[ $# -gt 2 && "${*: -2:1}" == --target ]]; then
        target=(--target "${*: -1}")
        set -- "${@:1:$#-2}"
    fi
    setup_say "configuring build/$1"
    cmake --preset "$@" >/dev/null
    setup_say "building build/$1"
    cmake --build --preset "$1" -j "$(nproc)" "${target[@]}" "${quiet[@]}"
}
