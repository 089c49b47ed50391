# Shared by the scripts of this folder; to be sourced. Sets `root` to the project's folder and goes
# there, so that a script can be started from anywhere.
set -euo pipefail
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
cd "$root"
program=scripts/$(basename "$0")
step="starting"

# Says what is done now; a failure names it.
begin() {
    step=$1
    printf '\n== %s\n' "$step"
}

fail() {
    printf '%s: %s\n' "$program" "$1" >&2
    trap - EXIT
    exit 1
}

trap '[ $? -eq 0 ] || printf "%s: failed while %s\n" "$program" "$step" >&2' EXIT

# With ccache a second configuration, or a second run, compiles much less.
if command -v ccache >/dev/null; then
    export CMAKE_CXX_COMPILER_LAUNCHER=${CMAKE_CXX_COMPILER_LAUNCHER-ccache}
    # It passes over precompiled headers unless told that their times say nothing.
    export CCACHE_SLOPPINESS=${CCACHE_SLOPPINESS-pch_defines,time_macros,include_file_mtime,include_file_ctime}
fi
