// The response headers that the player wants kept. The downloader forgets its own at every close, so the cache keeps
// the keys, and the values that earlier requests brought. Every thread; under `mutex`, which comes before the
// downloader's locks and is never held while it closes.
#include <cstring>

#include "ZVHttpBaseCache/Cache.h"
#include "ZVHttpBaseCache/LogNames.h"

namespace {

CacheRespKey* FindKey(HttpBaseCache* cache, const char* key) ZV_REQUIRES(cache->mutex) {
  CacheRespKey* node = cache->respKeys;
  while (node != nullptr && strcmp(node->key, key) != 0) {
    node = node->next;
  }
  return node;
}

bool AddKey(HttpBaseCache* cache, const char* key) ZV_REQUIRES(cache->mutex) {
  CacheRespKey* node = static_cast<CacheRespKey*>(ZV_Calloc(sizeof(CacheRespKey)));
  if (node == nullptr) {
    return false;
  }
  node->key = CopyText(key);
  if (node->key == nullptr) {
    ZV_Free(&node);
    return false;
  }
  CacheRespKey** end = &cache->respKeys;
  while (*end != nullptr) {
    end = &(*end)->next;
  }
  *end = node;
  return true;
}

void DropKeys(HttpBaseCache* cache) ZV_REQUIRES(cache->mutex) {
  while (cache->respKeys != nullptr) {
    CacheRespKey* node = cache->respKeys;
    cache->respKeys = node->next;
    ZV_Free(&node->key);
    ZV_Free(&node->value);
    ZV_Free(&node);
  }
}

}  // namespace

void FreeRespKeys(HttpBaseCache* cache) {
  const MutexGuard guard(cache->mutex);
  DropKeys(cache);
}

void SaveRespValues(HttpBaseCache* cache) {
  const MutexGuard guard(cache->mutex);
  for (CacheRespKey* node = cache->respKeys; node != nullptr; node = node->next) {
    char* value = nullptr;
    ZV_HttpBaseGetRespbyKey(cache->httpBase, node->key, &value);
    if (value != nullptr) {
      ZV_Free(&node->value);
      node->value = value;
    }
  }
}

void RestoreRespKeys(HttpBaseCache* cache) {
  const MutexGuard guard(cache->mutex);
  if (cache->respKeys == nullptr) {
    return;
  }
  ZV_HttpBaseCleanRespKey(cache->httpBase);
  for (const CacheRespKey* node = cache->respKeys; node != nullptr; node = node->next) {
    ZV_HttpBaseSetRespKey(cache->httpBase, node->key);
  }
}

extern "C" void ZV_HttpBaseCacheSetRespKey(HttpBaseCache* cache, const char* key) {
  if (!HasParams(__func__, cache != nullptr && key != nullptr)) {
    return;
  }
  const MutexGuard guard(cache->mutex);
  if (FindKey(cache, key) == nullptr && AddKey(cache, key)) {
    ZV_HttpBaseSetRespKey(cache->httpBase, key);
  }
}

extern "C" void ZV_HttpBaseCacheCleanRespKey(HttpBaseCache* cache) {
  if (!HasParams(__func__, cache != nullptr)) {
    return;
  }
  const MutexGuard guard(cache->mutex);
  DropKeys(cache);
  ZV_HttpBaseCleanRespKey(cache->httpBase);
}

extern "C" void ZV_HttpBaseCacheGetRespbyKey(HttpBaseCache* cache, const char* key, char** value) {
  if (!HasParams(__func__, cache != nullptr && key != nullptr && value != nullptr && *value != nullptr)) {
    return;
  }
  const MutexGuard guard(cache->mutex);
  ZV_HttpBaseGetRespbyKey(cache->httpBase, key, value);
  const CacheRespKey* const node = FindKey(cache, key);
  if (*value == nullptr && node != nullptr && node->value != nullptr) {
    *value = CopyText(node->value);
  }
}
