// Playlists and the URLs in them: as ffmpeg and others write them, and as nobody should.
#include "Playlist.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

#include "HlsList.h"
#include "Url.h"

namespace {

constexpr const char* kBase = "http://h/a/list.m3u8";

TEST(ResolveUrl, LeadsWhereBrowsersGo) {
  const struct {
    const char* base;
    const char* reference;
    const char* url;
  } rows[] = {{"http://h/a/list.m3u8", "s.ts", "http://h/a/s.ts"},
              {"http://h/a/list.m3u8?token=/x/y", "s.ts?n=1", "http://h/a/s.ts?n=1"},
              {"http://h/a/list.m3u8", "/s.ts", "http://h/s.ts"},
              {"http://h/a/list.m3u8", "https://i:8/b/s.ts#t", "https://i:8/b/s.ts"},
              {"https://h/a/list.m3u8", "//i/s.ts", "https://i/s.ts"},
              {"http://h/a/list.m3u8?a", "?b", "http://h/a/list.m3u8?b"},
              {"http://h/a/list.m3u8?a", "", "http://h/a/list.m3u8?a"},
              {"http://h/a/list.m3u8?a", "#f", "http://h/a/list.m3u8?a"},
              {"http://h/a/b/c/list.m3u8", "../../s.ts", "http://h/a/s.ts"},
              {"http://h/a/list.m3u8", "../../../s.ts", "http://h/s.ts"},
              {"http://h/a/list.m3u8", "./b/./s.ts", "http://h/a/b/s.ts"},
              {"http://h/a/b/list.m3u8", "..", "http://h/a/"},
              {"http://h/a/b/list.m3u8", ".", "http://h/a/b/"},
              {"http://h/a/b/list.m3u8", "c/..", "http://h/a/b/"},
              {"http://h/a/list.m3u8", "/b/../c/./s.ts", "http://h/c/s.ts"},
              {"http://h/a/list.m3u8", "..s/.t/s..ts", "http://h/a/..s/.t/s..ts"},
              {"http://h", "s.ts", "http://h/s.ts"},
              {"http://h?q", "s.ts", "http://h/s.ts"},
              {"http://h/a/list.m3u8", "b?c/../d", "http://h/a/b?c/../d"},
              {"http://h/a/list.m3u8", "b c\t.ts", "http://h/a/b%20c%09.ts"},
              {"http://h/a/list.m3u8", "12:30.ts", "http://h/a/12:30.ts"},
              {"http://[::1]:80/list.m3u8", "s.ts", "http://[::1]:80/s.ts"},
              {"", "s.ts", "s.ts"}};
  for (const auto& row : rows) {
    EXPECT_EQ(ResolveUrl(row.base, row.reference), row.url) << row.base << " + " << row.reference;
  }
}

// One line per segment: duration, URL, range, its map, "|" before it at a discontinuity.
std::string Describe(const Playlist& list) {
  std::string text = std::to_string(list.mediaSequence) + "/" + std::to_string(list.targetDurationMs) +
                     (list.isEnded ? " ended\n" : " live\n");
  const auto describe = [](const MediaPart& part) {
    return part.url + (part.IsRange() ? " " + std::to_string(part.length) + "@" + std::to_string(part.first) : "");
  };
  for (const MediaSegment& segment : list.segments) {
    text += segment.isDiscontinuous ? "|" : "";
    text += std::to_string(segment.durationMs) + " " + describe(segment.part);
    text += segment.map >= 0 ? " after " + describe(list.maps[static_cast<size_t>(segment.map)]) : "";
    text += "\n";
  }
  for (const Variant& variant : list.variants) {
    text += std::to_string(variant.bandwidth) + " " + std::to_string(variant.width) + "x" +
            std::to_string(variant.height) + " " + variant.url + "\n";
  }
  return text;
}

std::string Parse(const std::string& text) {
  std::string error;
  const std::optional<Playlist> list = ParsePlaylist(text, kBase, &error);
  EXPECT_EQ(list.has_value(), error.empty());
  return list ? Describe(*list) : error;
}

TEST(Playlist, ReadsWhatFfmpegWrites) {
  const struct {
    const char* name;
    const char* text;
    const char* expected;
  } rows[] = {
      {"TS",
       "#EXTM3U\n#EXT-X-VERSION:3\n#EXT-X-TARGETDURATION:2\n#EXT-X-MEDIA-SEQUENCE:0\n#EXTINF:2.000000,\nts0.ts\n"
       "#EXTINF:1.966667,\nts1.ts\n#EXT-X-ENDLIST\n",
       "0/2000 ended\n2000 http://h/a/ts0.ts\n1966 http://h/a/ts1.ts\n"},
      {"fMP4 in one file",
       "#EXTM3U\n#EXT-X-VERSION:7\n#EXT-X-TARGETDURATION:2\n#EXT-X-MEDIA-SEQUENCE:0\n"
       "#EXT-X-MAP:URI=\"fm.m4s\",BYTERANGE=\"847@0\"\n#EXTINF:2.000000,\n#EXT-X-BYTERANGE:23369@847\nfm.m4s\n"
       "#EXTINF:2.000000,\n#EXT-X-BYTERANGE:26944@24216\nfm.m4s\n#EXT-X-ENDLIST\n",
       "0/2000 ended\n2000 http://h/a/fm.m4s 23369@847 after http://h/a/fm.m4s 847@0\n"
       "2000 http://h/a/fm.m4s 26944@24216 after http://h/a/fm.m4s 847@0\n"},
      {"fMP4 in files",
       "#EXTM3U\n#EXT-X-VERSION:7\n#EXT-X-TARGETDURATION:2\n#EXT-X-MEDIA-SEQUENCE:0\n#EXT-X-MAP:URI=\"init.mp4\"\n"
       "#EXTINF:2.000000,\nf0.m4s\n#EXT-X-ENDLIST\n",
       "0/2000 ended\n2000 http://h/a/f0.m4s after http://h/a/init.mp4\n"},
      {"live",
       "#EXTM3U\n#EXT-X-VERSION:3\n#EXT-X-TARGETDURATION:1\n#EXT-X-MEDIA-SEQUENCE:7\n#EXT-X-DISCONTINUITY\n"
       "#EXTINF:1.000000,\nlv7.ts\n#EXTINF:1.040000,\nlv8.ts\n",
       "7/1000 live\n|1000 http://h/a/lv7.ts\n1040 http://h/a/lv8.ts\n"},
      {"master",
       "#EXTM3U\n#EXT-X-VERSION:3\n#EXT-X-STREAM-INF:BANDWIDTH=330000,RESOLUTION=160x120,CODECS=\"avc1.64000d\"\n"
       "v_hi.m3u8\n\n#EXT-X-STREAM-INF:BANDWIDTH=110000,RESOLUTION=80x60,CODECS=\"avc1.64000b\"\nv_lo.m3u8\n\n",
       "0/1000 live\n330000 160x120 http://h/a/v_hi.m3u8\n110000 80x60 http://h/a/v_lo.m3u8\n"}};
  for (const auto& row : rows) {
    EXPECT_EQ(Parse(row.text), row.expected) << row.name;
  }
}

TEST(Playlist, ReadsWhatOthersWrite) {
  const struct {
    const char* name;
    const char* text;
    const char* expected;
  } rows[] = {
      {"carriage returns, a byte order mark, blanks, no line end",
       "\xef\xbb\xbf#EXTM3U\r\n#EXTINF:3, a title, with commas\r\n\r\n  s.ts \t",
       "0/3000 live\n3000 http://h/a/s.ts\n"},
      {"comments and unknown tags", "#EXTM3U x\n# \n#EXT-X-NEW:7\n#EXTINF:1\n#EXT-X-KEYS:METHOD=X\ns\n",
       "0/1000 live\n1000 http://h/a/s\n"},
      {"ranges that follow each other",
       "#EXTM3U\n#EXTINF:1,\n#EXT-X-BYTERANGE:10@5\na\n#EXTINF:1,\n#EXT-X-BYTERANGE:20\na\n"
       "#EXT-X-BYTERANGE:30\n#EXTINF:1,\na\n#EXT-X-ENDLIST",
       "0/1000 ended\n1000 http://h/a/a 10@5\n1000 http://h/a/a 20@15\n1000 http://h/a/a 30@35\n"},
      {"a map that changes, and one that is told again",
       "#EXTM3U\n#EXT-X-MAP:BYTERANGE=\"9\",URI=\"a,b\"\n#EXTINF:1,\n1\n#EXT-X-MAP:URI=\"a,b\",BYTERANGE=\"9@0\"\n"
       "#EXTINF:1,\n2\n#EXT-X-MAP:URI=\"c\"\n#EXTINF:1,\n3\n",
       "0/1000 live\n1000 http://h/a/1 after http://h/a/a,b 9@0\n1000 http://h/a/2 after http://h/a/a,b 9@0\n"
       "1000 http://h/a/3 after http://h/a/c\n"},
      {"odd durations",
       "#EXTM3U\n#EXT-X-TARGETDURATION:0.5\n#EXTINF:-1,\na\n#EXTINF:.5,\nb\n#EXTINF:7.,\nc\n"
       "#EXTINF:99999999999999999999999.9,\nd\n#EXTINF:0.00049999999999999999999999,\ne\n",
       "0/1000 live\n0 http://h/a/a\n500 http://h/a/b\n7000 http://h/a/c\n86400000 http://h/a/d\n0 http://h/a/e\n"},
      {"a key that is none", "#EXTM3U\n#EXT-X-KEY:METHOD=NONE\n#EXTINF:1,\na\n", "0/1000 live\n1000 http://h/a/a\n"},
      {"a variant with quoted commas and without a bandwidth",
       "#EXTM3U\n#EXT-X-STREAM-INF:CODECS=\"a,RESOLUTION=1x1\", RESOLUTION=3x4,NAME=\nv\n"
       "#EXT-X-STREAM-INF:BANDWIDTH=5,RESOLUTION=axb\nw",
       "0/1000 live\n0 3x4 http://h/a/v\n5 0x0 http://h/a/w\n"},
      {"nothing", "#EXTM3U", "0/1000 live\n"}};
  for (const auto& row : rows) {
    EXPECT_EQ(Parse(row.text), row.expected) << row.name;
  }
}

TEST(Playlist, RefusesWhatCannotBePlayed) {
  const struct {
    const char* text;
    const char* reason;
  } rows[] = {{"", "it does not begin with #EXTM3U"},
              {"<html>", "it does not begin with #EXTM3U"},
              {"#EXTM3U8\n", "it does not begin with #EXTM3U"},
              {"\n#EXTM3U\n", "it does not begin with #EXTM3U"},
              {"#EXTM3U\ns.ts", "line 2: a URI of which no tag says what it is"},
              {"#EXTM3U\n#EXTINF:1,\na\nb", "line 4: a URI of which no tag says what it is"},
              {"#EXTM3U\n#EXTINF:abc,\na", "line 2: the duration is no number"},
              {"#EXTM3U\n#EXTINF:1e3,\na", "line 2: the duration is no number"},
              {"#EXTM3U\n#EXTINF:,\na", "line 2: the duration is no number"},
              {"#EXTM3U\n#EXT-X-TARGETDURATION:x", "line 2: the target duration is no number"},
              {"#EXTM3U\n#EXT-X-MEDIA-SEQUENCE:-1", "line 2: the media sequence number is no number"},
              {"#EXTM3U\n#EXT-X-MEDIA-SEQUENCE:9999999999999999999", "line 2: the media sequence number is no number"},
              {"#EXTM3U\n#EXT-X-BYTERANGE:0@5", "line 2: the byte range is none"},
              {"#EXTM3U\n#EXT-X-BYTERANGE:5@", "line 2: the byte range is none"},
              {"#EXTM3U\n#EXT-X-BYTERANGE:4611686018427387903@4611686018427387903", "line 2: the byte range is none"},
              {"#EXTM3U\n#EXTINF:1,\n#EXT-X-BYTERANGE:5\na", "line 4: a byte range that follows none"},
              {"#EXTM3U\n#EXTINF:1,\n#EXT-X-BYTERANGE:5@0\na\n#EXTINF:1,\n#EXT-X-BYTERANGE:5\nb",
               "line 7: a byte range that follows none"},
              {"#EXTM3U\n#EXT-X-MAP:BYTERANGE=\"5@0\"", "line 2: a map without a URI"},
              {"#EXTM3U\n#EXT-X-MAP:URI=\"a\",BYTERANGE=\"x\"", "line 2: the byte range is none"},
              {"#EXTM3U\n#EXT-X-KEY:METHOD=AES-128,URI=\"k\"",
               "line 2: the segments are encrypted (METHOD=AES-128), which is not supported"},
              {"#EXTM3U\n#EXT-X-KEY", "line 2: the segments are encrypted (METHOD=), which is not supported"},
              {"#EXTM3U\n#EXT-X-STREAM-INF:BANDWIDTH=9999999999999999999\nv", "line 2: the bandwidth is no number"},
              {"#EXTM3U\n#EXTINF:1,\na\n#EXT-X-STREAM-INF:BANDWIDTH=1\nv", "it has both segments and variants"}};
  for (const auto& row : rows) {
    EXPECT_EQ(Parse(row.text), "no usable playlist: " + std::string(row.reason)) << row.text;
  }
}

TEST(Playlist, HasBounds) {
  std::string error;
  EXPECT_FALSE(ParsePlaylist("#EXTM3U\n" + std::string(kMostPlaylistBytes, '\n'), kBase, &error));
  EXPECT_EQ(error, "it is too large");
  EXPECT_EQ(Parse("#EXTM3U\n#EXTINF:1,\n" + std::string(9000, 'a')), "no usable playlist: line 3: the URI is too long");
  std::string many = "#EXTM3U\n";
  for (size_t i = 0; i < kMostPlaylistEntries; ++i) {
    many += "#EXTINF:1,\na\n";
  }
  ASSERT_TRUE(ParsePlaylist(many, kBase, &error)) << error;
  EXPECT_FALSE(ParsePlaylist(many + "#EXTINF:1,\na\n", kBase, &error));
  EXPECT_FALSE(ParsePlaylist(many, "http://h/" + std::string(8000, 'b') + "/list", &error));
}

// A media playlist that lists [first, end), with that text behind every URL.
Playlist Window(int64_t first, int64_t end, const std::string& suffix = "", bool isEnded = false) {
  Playlist list;
  list.mediaSequence = first;
  list.isEnded = isEnded;
  for (int64_t i = first; i < end; ++i) {
    list.segments.push_back({{"http://h/" + std::to_string(i) + suffix}, 1000, -1, false});
  }
  return list;
}

TEST(HlsList, TellsWhatIsNew) {
  HlsList list;
  EXPECT_TRUE(list.Merge(Window(5, 8)));
  EXPECT_FALSE(list.Merge(Window(5, 8)));
  EXPECT_TRUE(list.Merge(Window(6, 9)));
  EXPECT_FALSE(list.Merge(Window(5, 8))) << "an older one is no news";
  EXPECT_EQ(list.Oldest(), 6);
  EXPECT_EQ(list.End(), 9);
  EXPECT_TRUE(list.Merge(Window(6, 9, "?b")));
  EXPECT_TRUE(list.Merge(Window(6, 9, "?b", true))) << "its end is news";
  EXPECT_TRUE(list.IsEnded());
}

TEST(HlsList, KeepsWhatIsNeeded) {
  HlsList list;
  list.Merge(Window(5, 8));
  list.DropBefore(6);
  list.Merge(Window(6, 8, "?b"));
  list.Merge(Window(20, 22));
  EXPECT_EQ(list.FindFrom(0)->part.url, "http://h/6?b") << "it has left the playlist, but may still be had";
  EXPECT_EQ(list.FindFrom(8)->sequence, 20);
  EXPECT_EQ(list.FindFrom(22), nullptr);
  EXPECT_EQ(list.TakeMoved().size(), 2u);
  EXPECT_EQ(list.TakeMoved().size(), 0u);
  list.DropBefore(22);
  list.Merge(Window(20, 22));
  EXPECT_EQ(list.FindFrom(0), nullptr) << "what was dropped stays so";
}

}  // namespace
