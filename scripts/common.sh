# Shared by ./cases, ./explain, ./replay, ./check and the scripts: sourced, not run. Needs bash and $root.

say() { printf '== %s\n' "$*" >&2; }
die() {
    printf 'error: %s\n' "$*" >&2
    exit 1
}

# as_root COMMAND...: with sudo where the user is not root.
as_root() {
    if [ "$(id -u)" = 0 ]; then
        "$@"
    elif command -v sudo >/dev/null; then
        sudo "$@"
    else
        die "this needs root (or sudo) to run: $*"
    fi
}

# need_packages NAME...: installs the Debian packages that are missing; silent when none is.
need_packages() {
    local missing=() name
    for name in "$@"; do
        [ "$(dpkg-query -W -f '${db:Status-Status}' "$name" 2>/dev/null)" = installed ] ||
            missing+=("$name")
    done
    [ ${#missing[@]} -gt 0 ] || return 0
    say "installing ${missing[*]}"
    as_root apt-get update -qq
    as_root env DEBIAN_FRONTEND=noninteractive \
        apt-get install -y -qq --no-install-recommends "${missing[@]}" >"$root/build/install.log" 2>&1 ||
        { tail -n 20 "$root/build/install.log" >&2; die "the packages could not be installed"; }
}

packages_build=(g++ cmake ninja-build libc-ares-dev libcli11-dev libmaxminddb-dev nettle-dev zlib1g-dev)
packages_test=(googletest dpkg-dev file jq nsd python3 python3-jsonschema strace iproute2 util-linux pkg-config libpcre2-dev parallel python3-distributed swaks)
packages_windows=(libz-mingw-w64-dev g++-mingw-w64-x86-64-posix wine wine64 wixl msitools dpkg-dev googletest nsd python3)
packages_all=(clang libclang-rt-14-dev chromium)
packages_tidy=(clang clang-tidy clang-format python3)

# configure_preset NAME: when that was not done before; output only when it fails.
configure_preset() {
    local preset=$1 log="$root/build/$1.log"
    [ ! -e "$root/build/$preset/build.ninja" ] || return 0
    say "configuring build/$preset"
    (cd "$root" && cmake --preset "$preset") >"$log" 2>&1 ||
        { rm -f "$root/build/$preset/build.ninja"; tail -n 40 "$log" >&2; die "configuring failed"; }
}

# build_preset NAME [TARGET...]: configures when needed and builds; output only when it fails.
build_preset() {
    local preset=$1 log="$root/build/$1.log"
    mkdir -p "$root/build"
    configure_preset "$preset"
    shift
    if (cd "$root" && cmake --build "build/$preset" "${@/#/--target=}" -- -n) 2>/dev/null |
        grep -q 'no work to do'; then
        return 0
    fi
    say "building build/$preset"
    (cd "$root" && cmake --build "build/$preset" "${@/#/--target=}") >"$log" 2>&1 ||
        { grep -E -A 12 'error|FAILED|undefined' "$log" | head -n 80 >&2; die "the build failed; all of it is in $log"; }
}

# build_program TARGET: a program without the tests, in build/replay, with what that needs installed.
build_program() {
    need_packages "${packages_build[@]}"
    if [ ! -e "$root/build/replay/build.ninja" ]; then
        say "configuring build/replay"
        cmake -S "$root" -B "$root/build/replay" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo \
            -DQUILLFENCE_TESTS=OFF >"$root/build/replay.log" 2>&1 ||
            { rm -f "$root/build/replay/build.ninja"; tail -n 40 "$root/build/replay.log" >&2; die "configuring failed"; }
    fi
    build_preset replay "$1"
}

# sample_configuration: the example's, and events on standard error, unless the environment has others.
sample_configuration() {
    export QUILLFENCE_EVENT_LOG="${QUILLFENCE_EVENT_LOG--}"
    export QUILLFENCE_DRIVE_C="${QUILLFENCE_DRIVE_C:-$root/examples/drive_c}"
}

# start_wine: a prefix in build/wine where there is none, and one Wine server for all that follows;
# starting it anew would cost each program seconds. The first program starts Wine's services, which
# keep its output open: so that is none of the tests.
start_wine() {
    if [ ! -e "$root/build/wine/system.reg" ]; then
        say "making a Wine prefix in build/wine"
        "$root/scripts/wine-run" wineboot --init >"$root/build/wine.log" 2>&1 ||
            { tail -n 20 "$root/build/wine.log" >&2; die "Wine does not start"; }
    fi
    stop_wine
    "$root/scripts/wine-run" --server -p
    "$root/scripts/wine-run" cmd /c exit >>"$root/build/wine.log" 2>&1 </dev/null
}
stop_wine() {
    "$root/scripts/wine-run" --server -k || true
    "$root/scripts/wine-run" --server -w
}
