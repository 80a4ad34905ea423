// zvhttp hls and stream with what ffmpeg makes, through nginx: the decoded frames are those of the source.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <thread>

#include "Process.h"
#include "RealTest.h"

namespace {

namespace fs = std::filesystem;

constexpr std::chrono::seconds kListLimit{30};
constexpr int64_t kPictures = 100;  // of the film

// ffmpeg with these words, and more that may have blanks in them.
ProcessSetup Ffmpeg(const fs::path& folder, const std::string& arguments, const std::vector<std::string>& more) {
  ProcessSetup setup;
  setup.arguments = {"/usr/bin/env", "ffmpeg", "-nostdin", "-y", "-v", "error"};
  std::istringstream words(arguments);
  for (std::string word; words >> word;) {
    setup.arguments.push_back(word);
  }
  setup.arguments.insert(setup.arguments.end(), more.begin(), more.end());
  setup.directory = folder;
  return setup;
}

std::string RunFfmpeg(const fs::path& folder, const std::string& arguments, const std::vector<std::string>& more = {}) {
  const ProcessResult result = RunProcess(Ffmpeg(folder, arguments, more));
  EXPECT_EQ(result.exitCode, 0) << arguments << ": " << result.error;
  return result.output;
}

ProcessResult Zvhttp(std::vector<std::string> arguments) {
  arguments.insert(arguments.begin(), ZV_ZVHTTP);
  ProcessSetup setup;
  setup.arguments = std::move(arguments);
  return RunProcess(setup);
}

class RealHls : public testing::Test {
 protected:
  RealHls() {
    fs::create_directories(folder_);
    RunFfmpeg(folder_,
              "-f lavfi -i testsrc2=size=96x64:rate=10 -f lavfi -i sine=frequency=440 -t 10 -c:v libx264 -g 10 -bf 2 "
              "-sc_threshold 0 -pix_fmt yuv420p -c:a aac -movflags +faststart film.mp4");
  }
  ~RealHls() override { fs::remove_all(folder_); }

  // One line per frame of the picture: its size and checksum. Where a stream begins to count time differs.
  std::string Pictures(const std::string& name) const {
    std::istringstream lines(RunFfmpeg(folder_, "-i " + name + " -map 0:v -f framemd5 -"));
    std::string pictures;
    for (std::string line; std::getline(lines, line);) {
      if (!line.empty() && line.front() != '#') {
        pictures += line.substr(line.rfind(',', line.rfind(',') - 1)) + "\n";
      }
    }
    return pictures;
  }
  std::string Url(const std::string& name) const { return Server().Url(Protocol::kHttp, "/hls/" + name); }
  // What zvhttp writes to its standard output, as a file in the folder.
  void Save(const std::string& bytes, const std::string& name) const {
    std::ofstream(folder_ / name, std::ios::binary) << bytes;
  }

  const fs::path folder_ = Server().Folder() + "/files/hls";
};

TEST_F(RealHls, EveryKindOfRenditionPlaysAsItsSource) {
  const std::string copy = "-i film.mp4 -c copy -hls_time 2 -hls_list_size 0 -f hls ";
  RunFfmpeg(folder_, copy + "ts.m3u8");
  RunFfmpeg(folder_, copy + "-hls_segment_type fmp4 -hls_flags single_file one.m3u8");
  RunFfmpeg(folder_, copy + "-hls_segment_type fmp4 -hls_fmp4_init_filename init.mp4 many.m3u8");
  RunFfmpeg(folder_,
            "-i film.mp4 -map 0:v -map 0:v -c:v:0 libx264 -s:v:0 48x32 -b:v:0 50k -c:v:1 copy -b:v:1 300k -hls_time 2 "
            "-hls_list_size 0 -master_pl_name master.m3u8",
            {"-var_stream_map", "v:0,name:low v:1,name:high", "-f", "hls", "v_%v.m3u8"});
  const struct {
    std::vector<std::string> arguments;
    const char* source;
  } rows[] = {{{"ts.m3u8"}, "film.mp4"},     {{"one.m3u8"}, "film.mp4"},
              {{"many.m3u8"}, "film.mp4"},   {{"one.m3u8", "--workers", "1"}, "film.mp4"},
              {{"master.m3u8"}, "film.mp4"}, {{"master.m3u8", "--variant", "0"}, "v_low.m3u8"}};
  for (const auto& row : rows) {
    SCOPED_TRACE(testing::PrintToString(row.arguments));
    std::vector<std::string> arguments = row.arguments;
    arguments[0] = Url(arguments[0]);
    arguments.insert(arguments.begin(), "hls");
    const ProcessResult result = Zvhttp(arguments);
    EXPECT_EQ(result.exitCode, 0) << result.error;
    Save(result.output, "played");
    const std::string pictures = Pictures("played");
    EXPECT_EQ(std::count(pictures.begin(), pictures.end(), '\n'), kPictures);
    EXPECT_EQ(pictures, Pictures(row.source));
  }
}

TEST_F(RealHls, LiveListIsPlayedWhileItIsWritten) {
  Process live(Ffmpeg(
      folder_, "-re -i film.mp4 -c copy -f hls -hls_time 1 -hls_list_size 6 -hls_flags delete_segments live.m3u8", {}));
  const auto deadline = std::chrono::steady_clock::now() + kListLimit;
  while (!fs::exists(folder_ / "live.m3u8") && std::chrono::steady_clock::now() < deadline) {
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  const ProcessResult result = Zvhttp({"hls", "--start", "0", "--json", Url("live.m3u8")});
  EXPECT_EQ(result.exitCode, 0) << result.error;
  EXPECT_EQ(live.Wait().exitCode, 0);
  EXPECT_THAT(result.error, testing::HasSubstr("\"live\":true"));
  EXPECT_THAT(result.error, testing::HasSubstr("\"segments\":10,\"skipped\":0"));
  Save(result.output, "played");
  EXPECT_EQ(Pictures("played"), Pictures("film.mp4"));
}

TEST_F(RealHls, StreamedFilmIsTheFilm) {
  const ProcessResult result = Zvhttp({"stream", "--duration", "10000", Url("film.mp4")});
  EXPECT_EQ(result.exitCode, 0) << result.error;
  Save(result.output, "played");
  EXPECT_EQ(RunFfmpeg(folder_, "-i played -f framemd5 -"), RunFfmpeg(folder_, "-i film.mp4 -f framemd5 -"));
}

}  // namespace
