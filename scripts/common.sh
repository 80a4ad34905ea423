# What ./demo, ./test and .ci/run share. Sourced with `root` set to the repository's folder.
# shellcheck shell=sh

# A compiler cache is used where there is one; it only saves time.
if command -v ccache >/dev/null; then
  export CMAKE_C_COMPILER_LAUNCHER=ccache CMAKE_CXX_COMPILER_LAUNCHER=ccache
  export CCACHE_SLOPPINESS=pch_defines,time_macros
fi

jobs=$(nproc)

# The first report of a sanitizer ends the program, so that no test passes with one.
export ASAN_OPTIONS="${ASAN_OPTIONS:-detect_stack_use_after_return=1:strict_string_checks=1}"
export UBSAN_OPTIONS="${UBSAN_OPTIONS:-print_stacktrace=1:halt_on_error=1}"
export TSAN_OPTIONS="${TSAN_OPTIONS:-halt_on_error=1:second_deadlock_stack=1}"

# Configures a preset and builds it, or only the targets named after it. Ninja shows its progress on a terminal; elsewhere
# only what compilers say.
build_preset() {
  preset=$1
  shift
  extra=""
  case $preset in
    # Figures of instrumented code mean nothing.
    asan | tsan) extra=-DZV_BENCH=OFF ;;
  esac
  run_quietly "configuring $preset" cmake -S "$root" --preset "$preset" $extra
  echo "building $preset"
  quiet=--quiet
  [ ! -t 1 ] || quiet=""
  cmake --build "$root/build/$preset" --parallel "$jobs" ${1:+--target "$@"} -- $quiet
}

# Runs a command; prints its output only when it fails.
run_quietly() {
  what=$1
  shift
  echo "$what"
  quiet_log=$(mktemp)
  if "$@" >"$quiet_log" 2>&1; then
    rm -f "$quiet_log"
  else
    status=$?
    tail -n 200 "$quiet_log"
    rm -f "$quiet_log"
    echo "failed: $what" >&2
    return "$status"
  fi
}
