#include <stdio.h>

#include "ZVBase.h"
#include "ZVHttpBase.h"

/* Called on a thread of the handle: 200 means that bytes arrive, 302 that a redirect was followed. */
static int32_t OnMessage(void* failure, int32_t code) {
  if (code != ZV_HTTP_CODE_OK && code != ZV_HTTP_CODE_REDIRECTED) {
    *(int32_t*)failure = code;
  }
  return 0;
}

int main(int argc, char** argv) {
  int32_t failure = 0;
  HttpBase* hb = ZV_HttpBaseInit(OnMessage, &failure);
  ZV_HttpBaseSetDownloadThreadNum(hb, 5);
  const int32_t opened = ZV_HttpBaseOpen(hb, argc > 1 ? argv[1] : NULL) == 0;
  int32_t more = opened;
  while (more == 1) {
    static char block[65536];
    uint32_t bytes = 0;
    more = ZV_HttpBaseRead(hb, block, sizeof(block), &bytes);
    fwrite(block, 1, bytes, stdout);
    if (more == 1 && bytes == 0) {
      ZV_SleepFor(5); /* Nothing has arrived yet, and Read does not wait. */
    }
  }
  ZV_HttpBaseRelease(&hb); /* Stops and joins the threads: from here on failure does not change. */
  if (failure != 0) {
    fprintf(stderr, "failed: %d\n", (int)failure);
  }
  return !opened || failure != 0;
}
