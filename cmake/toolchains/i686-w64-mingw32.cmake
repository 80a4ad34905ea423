# Debian's MinGW for 32-bit Windows, the variant with the standard library's threads.
set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR i686)
set(CMAKE_C_COMPILER i686-w64-mingw32-gcc-posix)
set(CMAKE_CXX_COMPILER i686-w64-mingw32-g++-posix)
set(CMAKE_RC_COMPILER i686-w64-mingw32-windres)
set(CMAKE_FIND_ROOT_PATH /usr/i686-w64-mingw32)
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

# scripts/windows_curl puts libcurl there.
if(DEFINED ENV{ZV_WINDOWS_CACHE})
  set(zv_windows_cache $ENV{ZV_WINDOWS_CACHE})
else()
  set(zv_windows_cache ${CMAKE_CURRENT_LIST_DIR}/../../build/windows)
endif()
list(APPEND CMAKE_FIND_ROOT_PATH ${zv_windows_cache}/curl-i686)
# The static one: nothing but the system's libraries is needed at run time.
set(ZLIB_LIBRARY /usr/i686-w64-mingw32/lib/libz.a CACHE FILEPATH "")
set(ZLIB_INCLUDE_DIR /usr/i686-w64-mingw32/include CACHE PATH "")
