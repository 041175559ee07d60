# Shared by the scripts in this folder: paths, messages, the private Wine prefix. Sourced, not run.

set -euo pipefail

project_root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
build_root=${VORNA_BUILD_ROOT:-$project_root/build}
deps_root=$build_root/deps

# Environment of Wine. The prefix is the project's own, not the one in the home folder.
export WINEARCH=win32
export WINEPREFIX=$build_root/wine
# Without Wine's debugger a program that crashes ends at once.
export WINEDLLOVERRIDES="mscoree,mshtml,winedbg.exe="
export WINEDEBUG=${WINEDEBUG:--all}
unset DISPLAY

say() { printf '== %s\n' "$*"; }

fail() {
    printf '!! %s\n' "$1" >&2
    shift
    for line in "$@"; do printf '   %s\n' "$line" >&2; done
    exit 1
}

# preset_folder PRESET: where a CMake preset builds.
preset_folder() { printf '%s/%s' "$build_root" "$1"; }

# windows_path PATH: the path of the same file for programs in Wine.
windows_path() { printf 'Z:%s' "${1//\//\\}"; }

# quiet LOG COMMAND...: runs the command with its output in a file; shows the end of the file on failure.
quiet() {
    local log=$1
    shift
    mkdir -p "$(dirname "$log")"
    if ! "$@" >"$log" 2>&1; then
        tail -n 40 "$log" >&2
        fail "failed: $*" "the whole output is in $log"
    fi
}
