#include <stdio.h>
#include <stdlib.h>

#include "ZVBase.h"
#include "ZVHttpBaseSegCache.h"

/* What the callbacks tell, on threads of the handle. */
typedef struct Player {
  _Atomic int32_t failure; /* 0, or what became of the segment being read */
  _Atomic int32_t aheadMs; /* media time cached ahead */
} Player;

static int32_t OnMessage(void* player, int32_t code) {
  if (code != ZV_HTTP_CODE_OK && code != ZV_HTTP_CODE_REDIRECTED) {
    ((Player*)player)->failure = code;
  }
  return 0;
}

static void OnState(void* player, int32_t state, int32_t value) {
  if (state == ZV_SEG_CACHE_STATE_BUFFERED) {
    ((Player*)player)->aheadMs = value;
  }
}

/* Plays one listed segment to its end. 0 when all of it has come. */
static int32_t Play(HttpBaseSegCache* cache, const Player* player, const char* url) {
  static char block[65536];
  int32_t more = ZV_HttpBaseSegCacheOpen(cache, url) == 0 ? 1 : -1;
  while (more == 1 && player->failure == 0) {
    uint32_t bytes = 0;
    more = ZV_HttpBaseSegCacheRead(cache, block, sizeof(block), &bytes);
    fwrite(block, 1, bytes, stdout);
    if (more == 1 && bytes == 0) {
      ZV_SleepFor(5); /* Nothing has arrived yet, and Read does not wait. */
    }
  }
  ZV_HttpBaseSegCacheClose(cache);
  return more;
}

/* Usage: playlist FOLDER/ URL DURATION_MS [URL DURATION_MS]...: plays these segments one after another, while five workers
 * fetch those that follow into files in the folder. */
int main(int argc, char** argv) {
  static const char listInfo[ZV_SEG_CACHE_LIST_INFO_BYTES];
  Player player = {0, 0};
  const LocalCacheParam files = {60, argc > 1 ? argv[1] : ""};
  HttpBaseSegCache* cache = ZV_HttpBaseSegCacheInit(OnMessage, &player);
  int32_t rest = 0;
  ZV_HttpBaseSegCacheSetCacheStateCallback(cache, OnState);
  ZV_HttpBaseSegCacheSetThreadNumber(cache, 5);
  ZV_HttpBaseSegCacheSetLocalCache(cache, &files, 1); /* 1: the list is complete, 0: it is live */
  ZV_HttpBaseSegCacheSetList(cache, listInfo, argc / 2, 0);
  for (int i = 2; i + 1 < argc; i += 2) {
    ZV_HttpBaseSegCacheAddSegment(cache, argv[i], atoi(argv[i + 1]), 0, 0, 0, i / 2 - 1);
  }
  for (int i = 2; i + 1 < argc && rest == 0; i += 2) {
    rest = Play(cache, &player, argv[i]);
    fprintf(stderr, "%s, %d ms ahead\n", rest == 0 ? "played" : "broken off", (int)player.aheadMs);
  }
  ZV_HttpBaseSegCacheRelease(&cache); /* Stops everything and deletes the files. */
  if (player.failure != 0) {
    fprintf(stderr, "failed: %d\n", (int)player.failure);
  }
  return rest != 0;
}
