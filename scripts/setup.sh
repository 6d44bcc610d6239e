# Sourced by the other scripts: progress lines, installation of packages, the build, and how the
# kernel shares the processors.

PACKAGES=(cmake g++ make git pkg-config libxmlrpc-c++8-dev libxmlrpc-core-c3-dev libudev-dev
          libcli11-dev nlohmann-json3-dev libarchive-dev libcurl4-openssl-dev libncurses-dev
          libmicrohttpd-dev libjs-dygraphs umockdev libumockdev-dev libgtest-dev libbenchmark-dev
          python3 python3-pyte systemd nftables faketime bash-completion)
# Node may have been installed from another source.
command -v node >/dev/null || PACKAGES+=(nodejs)

# Packages that scripts/test needs in addition: a browser for the page of tavrikweb, and monitoring.
TEST_PACKAGES=(chromium chromium-driver python3-selenium prometheus prometheus-alertmanager)

# Packages that scripts/package needs in addition.
PACKAGING_PACKAGES=(debhelper lintian)

# Packages that scripts/test-package needs in addition.
CONTAINER_PACKAGES=(mmdebstrap systemd-container)

# Packages that scripts/test-usb needs in addition to those.
USB_PACKAGES=(qemu-system-x86 e2fsprogs xz-utils)

# Packages that the presets asan and fuzz need in addition.
CLANG_PACKAGES=(clang-14 libclang-rt-14-dev llvm-14)

# Packages that scripts/lint, memcheck, coverage and fuzz need in addition.
CHECK_PACKAGES=(clang-format clang-tidy cppcheck valgrind libc6-dbg gcovr "${CLANG_PACKAGES[@]}")

# Packages that scripts/bench needs in addition, for plots and for Node's packages.
BENCH_PACKAGES=(gnuplot-nox)
command -v npm >/dev/null || BENCH_PACKAGES+=(npm)

say() { printf '\n== %s\n' "$*"; }

fail() {
    printf '%s\n' "$*" >&2
    exit 1
}

is_installed() { dpkg-query -W -f '${db:Status-Status}\n' "$1" 2>/dev/null | grep -qx installed; }

# Installs the missing ones of PACKAGES, as root or with sudo.
install_packages() {
    local missing=() package run=()
    for package in "${PACKAGES[@]}"; do
        is_installed "$package" || missing+=("$package")
    done
    if [ ${#missing[@]} -eq 0 ]; then
        say "All ${#PACKAGES[@]} packages are installed"
        return
    fi
    if [ "$(id -u)" -ne 0 ]; then
        command -v sudo >/dev/null || fail "Packages are missing (${missing[*]}): run this as root"
        run=(sudo)
    fi
    say "Installing ${missing[*]}"
    "${run[@]}" apt-get update
    "${run[@]}" env DEBIAN_FRONTEND=noninteractive \
        apt-get install --yes --no-install-recommends "${missing[@]}"
}

# build PRESET OPTION...: configures with the options and builds.
build() {
    say "Building: $1"
    cmake --preset "$@" && cmake --build --preset "$1"
}

# Groups of processes that the kernel makes by session. With them, Linux 6.18 now and then gives
# tests beside other work no processor for up to 12 s, whatever the priorities.
AUTOGROUP=/proc/sys/kernel/sched_autogroup_enabled

# Switches them off; fails if it may not. At its end, the caller must call restore_autogroup.
switch_autogroup_off() {
    local before=0
    [ ! -e "$AUTOGROUP" ] || before=$(<"$AUTOGROUP")
    [ "$before" = 0 ] || { echo 0 >"$AUTOGROUP" && autogroup=$before; } 2>/dev/null
}

restore_autogroup() { [ ! -v autogroup ] || echo "$autogroup" >"$AUTOGROUP"; }
