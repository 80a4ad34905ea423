#include <stdio.h>
#include <stdlib.h>

#include "ZVBase.h"
#include "ZVHttpBaseCache.h"

/* What the callbacks tell, on threads of the handle. */
typedef struct Player {
  _Atomic int32_t failure;    /* 0, or the last code that was no success */
  _Atomic int32_t bufferedMs; /* media time that can be read without the network */
} Player;

static int32_t OnMessage(void* player, int32_t code) {
  if (code != ZV_HTTP_CODE_OK) {
    ((Player*)player)->failure = code;
  }
  return 0;
}

static void OnBuffered(void* player, int32_t state, int32_t ms) {
  if (state == ZV_CACHE_STATE_BUFFERED) {
    ((Player*)player)->bufferedMs = ms;
  }
}

/* Plays from where the cache stands: to the end, or the given number of bytes. Gives how many bytes came. */
static int64_t Play(HttpBaseCache* cache, const Player* player, int64_t most) {
  static char block[65536];
  int64_t played = 0;
  int32_t more = 1;
  while (more == 1 && played < most && player->failure == 0) {
    const int64_t left = most - played;
    uint32_t bytes = 0;
    more = ZV_HttpBaseCacheRead(cache, block, left < (int64_t)sizeof(block) ? (uint32_t)left : sizeof(block), &bytes);
    fwrite(block, 1, bytes, stdout);
    played += bytes;
    if (more == 1 && bytes == 0) {
      ZV_SleepFor(5); /* Nothing has arrived yet, and Read does not wait. */
    }
  }
  return played;
}

/* Usage: play URL FOLDER/ DURATION_MS: plays a megabyte, goes back to byte 1000 and plays from there to the end. */
int main(int argc, char** argv) {
  Player player = {0, 0};
  const char* url = argc > 1 ? argv[1] : NULL;
  const int32_t durationMs = argc > 3 ? atoi(argv[3]) : 0;
  const LocalCacheParam files = {60, argc > 2 ? argv[2] : ""};
  HttpBaseCache* cache = ZV_HttpBaseCacheInit(OnMessage, &player);
  ZV_HttpBaseCacheSetCacheStateCallback(cache, OnBuffered);
  ZV_HttpBaseCacheSetLocalCache(cache, &files);
  int32_t opened = ZV_HttpBaseCacheOpen(cache, url) == 0;
  if (opened) {
    ZV_HttpBaseCacheSetDuration(cache, &durationMs);
    Play(cache, &player, 1000000);
    ZV_HttpBaseCacheSetRange(cache, 1000, -1); /* A seek: cached bytes come at once, without a request. */
    opened = ZV_HttpBaseCacheOpen(cache, url) == 0;
    fprintf(stderr, "from 1000: %lld bytes\n", (long long)Play(cache, &player, INT64_MAX));
  }
  ZV_HttpBaseCacheRelease(&cache); /* Stops everything and deletes the files. */
  if (player.failure != 0) {
    fprintf(stderr, "failed: %d\n", (int)player.failure);
  }
  return !opened || player.failure != 0;
}
