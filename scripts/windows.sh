# What ./test-windows and its scripts share. Sourced with `root` set, behind common.sh.
# shellcheck shell=sh

# Where libcurl, Wine's folder and the emulated machine's image are kept.
ZV_WINDOWS_CACHE=${ZV_WINDOWS_CACHE:-$root/build/windows}
export ZV_WINDOWS_CACHE

# Wine without a display, without what it would fetch, and without words of its own.
export WINEDEBUG=-all
export WINEDLLOVERRIDES="mscoree,mshtml,winemenubuilder.exe=d"

# build_windows win32|win64 [TARGET...]: libcurl first, once.
build_windows() {
  case $1 in
    win32) "$root/scripts/windows_curl" i686 >/dev/null ;;
    win64) "$root/scripts/windows_curl" x86_64 >/dev/null ;;
  esac
  build_preset "$@"
}
