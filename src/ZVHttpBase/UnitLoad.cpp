// At load, on Windows: the module turns off its per-thread notifications, and lets the runtime open more files than the 512
// that it allows a process at first, since a cache may hold 300. Both are improvements that may be refused.
#if defined(_WIN32)
#include <windows.h>

#include <cstdio>

constexpr int kOpenFiles = 2048;

extern "C" BOOL WINAPI DllMain(HINSTANCE module, DWORD reason, LPVOID) {
  if (reason == DLL_PROCESS_ATTACH) {
    DisableThreadLibraryCalls(module);
    _setmaxstdio(kOpenFiles);
  }
  return TRUE;
}
#endif
