# Sourced by ./run, ./check and bench/run: installs what is missing and builds a preset.

modla_packages="cmake ninja-build g++-multilib libopenblas-serial-dev:i386 libgmp-dev:i386 libreadline-dev
libreadline8:i386 libgtest-dev:i386 libbenchmark-dev:i386 libflint-dev libflint17:i386 zlib1g-dev zlib1g:i386
libcli11-dev nlohmann-json3-dev libxxhash-dev libstb-dev"
# For ./check only.  (libclang-rt-14-dev of amd64 holds the 32-bit runtimes; that of i386 would remove g++-multilib.)
check_packages="clang-14 clang-format-14 clang-tidy-14 libclang-rt-14-dev:amd64 qemu-user parallel python3 pkgconf dpkg-dev"
# For bench/run only.
peer_packages="python3 libflint-dev libntl-dev libm4ri-dev fflas-ffpack libgivaro-dev libopenblas-serial-dev:amd64"
peer_packages_i386="libflint-dev libflint17 libntl-dev libntl44 libm4ri-dev fflas-ffpack libgivaro-dev libgivaro9
libmpfr-dev libmpfr6"

# Is the package of this name and architecture installed?
installed() {
    [ "$(dpkg-query -W -f '${db:Status-Status}' "$1" 2>/dev/null)" = installed ]
}

# install_packages [PACKAGE...]: modLA's, and these.
install_packages() {
    missing=""
    for package in $modla_packages "$@"; do
        installed "$package" || missing="$missing $package"
    done
    [ -z "$missing" ] && return 0
    echo "Installing:$missing"
    if ! command -v apt-get >/dev/null; then
        echo "This is no Debian system; install the i386 equivalents of these packages yourself." >&2
        return 1
    fi
    as_root=""
    [ "$(id -u)" = 0 ] || as_root=sudo
    $as_root dpkg --add-architecture i386
    # An index in the middle of a mirror's update makes this fail although the others are usable.
    $as_root apt-get update -q || echo "apt-get update reported a problem; going on with the indices that there are"
    $as_root env DEBIAN_FRONTEND=noninteractive apt-get install -q -y --no-install-recommends $missing
}

# unpack_packages DIRECTORY PACKAGE...: those of i386, into a directory instead of the system.
unpack_packages() {
    directory=$1
    shift
    [ -d "$directory" ] && return 0
    echo "Unpacking for i386:" "$@"
    rm -rf "$directory.new"
    mkdir -p "$directory.new/archives"
    for package in "$@"; do
        (cd "$directory.new/archives" && apt-get download -qq -o APT::Sandbox::User=root "$package:i386") || return 1
    done
    for archive in "$directory.new"/archives/*.deb; do
        dpkg -x "$archive" "$directory.new" || return 1
    done
    mv "$directory.new" "$directory"
}

# build PRESET TARGET
build() {
    log=build/$1.log
    mkdir -p build
    echo "Building ($1)"
    if ! { cmake --preset "$1" && cmake --build --preset "$1" --target "$2"; } >"$log" 2>&1; then
        tail -n 40 "$log" >&2
        echo "The build failed; the whole log is in $log" >&2
        return 1
    fi
}

# The formatting, and the checks of .clang-tidy, of the sources that the sanitize preset compiles.
read_sources() {
    find . -name build -prune -o \( -name '*.h' -o -name '*.cpp' -o -name '*.c' \) -print0 |
        xargs -0 clang-format-14 --dry-run -Werror
    # Only what the database compiles: the rest of the tree has no commands there.
    sed -n 's|^ *"file": "\(.*\.cpp\)",*$|\1|p' build/sanitize/compile_commands.json | grep -v /tests/ | sort -u |
        xargs -P 2 -n 1 clang-tidy-14 -p build/sanitize --quiet 2>/dev/null
}
