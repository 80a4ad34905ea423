#ifndef EXAMPLES_DEMO_CACHE_H
#define EXAMPLES_DEMO_CACHE_H

#include <string>

// Plays a media file from a server of its own through the progressive cache, seeks ten times inside and outside of what is
// cached, prints a row for each and compares every byte read with the file. Whether all was right.
bool ShowCache(const std::string& path);

#endif
