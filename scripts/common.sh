# What ./demo, ./test and .ci/run share. Sourced with `root` set to the repository's folder.
# shellcheck shell=sh

# A compiler cache is used where there is one; it only saves time.
if command -v ccache >/dev/null; then
  export CMAKE_C_COMPILER_LAUNCHER=ccache CMAKE_CXX_COMPILER_LAUNCHER=ccache
fi

jobs=$(nproc)

# Configures a preset and builds it, or only the targets named after it. The output is shown only when it fails, since a
# successful build has nothing to tell; on a terminal ninja's own progress is shown.
build_preset() {
  preset=$1
  shift
  extra=""
  case $preset in
    # Figures of instrumented code mean nothing.
    asan | tsan | clang) extra=-DZV_BENCH=OFF ;;
  esac
  run_quietly "configuring $preset" cmake -S "$root" --preset "$preset" $extra
  if [ -t 1 ]; then
    cmake --build "$root/build/$preset" --parallel "$jobs" ${1:+--target "$@"}
  else
    run_quietly "building $preset" cmake --build "$root/build/$preset" --parallel "$jobs" ${1:+--target "$@"}
  fi
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
