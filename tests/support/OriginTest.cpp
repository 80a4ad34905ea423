// The origin against a client that is known to be right, and the checks of the platform of the tests against misuse.
#include <curl/curl.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "Deadline.h"
#include "FaultPlatform.h"
#include "Leftovers.h"
#include "Origin.h"
#include "ZVBase.h"

namespace {

using origin::Answer;
using origin::Server;

constexpr uint64_t kMediaBytes = 3000017;
constexpr int kSecondsPerTest = 60;

struct Result {
  CURLcode code = CURLE_OK;
  long status = 0;
  std::string headers;
  std::string body;
};

size_t Append(char* data, size_t size, size_t count, void* text) {
  static_cast<std::string*>(text)->append(data, size * count);
  return size * count;
}

class Client {
 public:
  Client() : easy_(curl_easy_init()) {}
  ~Client() { curl_easy_cleanup(easy_); }
  Client(const Client&) = delete;
  Client& operator=(const Client&) = delete;

  CURL* Easy() { return easy_; }

  Result Get(const std::string& url, const char* range = nullptr) {
    Result result;
    curl_easy_setopt(easy_, CURLOPT_URL, url.c_str());
    curl_easy_setopt(easy_, CURLOPT_RANGE, range);
    curl_easy_setopt(easy_, CURLOPT_NOSIGNAL, 1L);
    curl_easy_setopt(easy_, CURLOPT_TIMEOUT, 30L);
    curl_easy_setopt(easy_, CURLOPT_SSL_VERIFYPEER, 0L);
    curl_easy_setopt(easy_, CURLOPT_SSL_VERIFYHOST, 0L);
    curl_easy_setopt(easy_, CURLOPT_WRITEFUNCTION, Append);
    curl_easy_setopt(easy_, CURLOPT_WRITEDATA, &result.body);
    curl_easy_setopt(easy_, CURLOPT_HEADERFUNCTION, Append);
    curl_easy_setopt(easy_, CURLOPT_HEADERDATA, &result.headers);
    result.code = curl_easy_perform(easy_);
    curl_easy_getinfo(easy_, CURLINFO_RESPONSE_CODE, &result.status);
    return result;
  }

 private:
  CURL* const easy_;
};

bool IsPattern(const std::string& body, uint64_t pos, uint64_t length) {
  return body.size() == length && origin::CheckPattern(body.data(), pos, body.size());
}

class OriginTest : public ::testing::TestWithParam<bool> {
 protected:
  OriginTest() : server_(origin::Options{.https = GetParam()}) {
    server_.Put("/media", origin::PatternResource(kMediaBytes));
  }

  Result Ask(Answer row, const char* range = nullptr) {
    server_.Script("/media", {std::move(row)});
    return client_.Get(server_.Url("/media"), range);
  }

  Watchdog watchdog_{kSecondsPerTest, "origin test"};
  Leftovers leftovers_;
  Server server_;
  Client client_;
};

INSTANTIATE_TEST_SUITE_P(, OriginTest, ::testing::Bool(),
                         [](const auto& row) { return std::string(row.param ? "Https" : "Http"); });

TEST_P(OriginTest, ServesRangesAsAsked) {
  struct Row {
    const char* range;
    long status;
    uint64_t pos;
    uint64_t length;
    const char* contentRange;
  };
  const Row rows[] = {
      {nullptr, 200, 0, kMediaBytes, ""},
      {"0-0", 206, 0, 1, "bytes 0-0/3000017"},
      {"1000003-2000004", 206, 1000003, 1000002, "bytes 1000003-2000004/3000017"},
      {"3000010-", 206, 3000010, 7, "bytes 3000010-3000016/3000017"},
      {"3000010-4000000", 206, 3000010, 7, "bytes 3000010-3000016/3000017"},
      {"-5", 206, 3000012, 5, "bytes 3000012-3000016/3000017"},
      {"-4000000", 206, 0, kMediaBytes, "bytes 0-3000016/3000017"},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.range == nullptr ? "no range" : row.range);
    const Result result = client_.Get(server_.Url("/media?token=1"), row.range);
    EXPECT_EQ(result.code, CURLE_OK);
    EXPECT_EQ(result.status, row.status);
    EXPECT_TRUE(IsPattern(result.body, row.pos, row.length));
    EXPECT_NE(result.headers.find(row.contentRange), std::string::npos) << result.headers;
    EXPECT_NE(result.headers.find("Accept-Ranges: bytes\r\n"), std::string::npos);
  }
  EXPECT_EQ(client_.Get(server_.Url("/media"), "3000017-").status, 416);
  EXPECT_EQ(client_.Get(server_.Url("/none")).status, 404);
  EXPECT_EQ(server_.AcceptedConnections(), 1) << "keep-alive";
  const std::vector<origin::Request> log = server_.Log();
  ASSERT_EQ(log.size(), 9u);
  EXPECT_EQ(log[2].range, "bytes=1000003-2000004");
  EXPECT_EQ(log[2].first, 1000003);
  EXPECT_EQ(log[2].last, 2000004);
  EXPECT_EQ(log[2].onConnection, 3);
  EXPECT_EQ(log[2].bodySent, 1000002u);
}

TEST_P(OriginTest, ServesPiecesOfFiveGigabytes) {
  const uint64_t length = 5368709120;
  server_.Put("/huge", origin::PatternResource(length, 7));
  const Result result = client_.Get(server_.Url("/huge"), "5368709000-");
  EXPECT_EQ(result.body.size(), 120u);
  EXPECT_TRUE(origin::CheckPattern(result.body.data(), 5368709000, 120, 7));
  curl_easy_setopt(client_.Easy(), CURLOPT_NOBODY, 1L);
  EXPECT_NE(client_.Get(server_.Url("/huge")).headers.find("Content-Length: 5368709120\r\n"), std::string::npos);
}

TEST_P(OriginTest, EndsAnAnswerAtEveryByte) {
  const Result whole = Ask(Answer{}, "100-119");
  const size_t headBytes = whole.headers.size();
  ASSERT_EQ(whole.body.size(), 20u);
  // On a connection of its own each, since the client asks again when a kept one ends without a word.
  curl_easy_setopt(client_.Easy(), CURLOPT_FRESH_CONNECT, 1L);
  for (size_t n = 0; n < headBytes + 20; ++n) {
    const Result cut = Ask(origin::CutAtWire(n), "100-119");
    EXPECT_LE(cut.headers.size(), n);
    EXPECT_EQ(cut.body.size(), n > headBytes ? n - headBytes : 0) << n;
    // The client takes an end between two headers for the end of the head.
    EXPECT_TRUE(cut.code != CURLE_OK || (cut.headers.size() > 0 && cut.body.empty())) << n;
  }
  EXPECT_EQ(Ask(origin::CutAtWire(headBytes + 20), "100-119").code, CURLE_OK);
}

TEST_P(OriginTest, EndsABodyWhereItIsTold) {
  for (const int64_t n : {int64_t{0}, int64_t{1}, int64_t{262144}, int64_t{1000003}, int64_t{kMediaBytes - 1}}) {
    const Result cut = Ask(origin::CutAt(n));
    EXPECT_NE(cut.code, CURLE_OK);
    EXPECT_TRUE(IsPattern(cut.body, 0, static_cast<uint64_t>(n))) << n;
    const Result reset = Ask(origin::ResetAt(n));
    EXPECT_EQ(reset.code, CURLE_RECV_ERROR);
    EXPECT_TRUE(IsPattern(reset.body, 0, static_cast<uint64_t>(n))) << n;
  }
  const CURLcode unanswered = Ask(origin::CutAt(origin::kBeforeAnswer)).code;
  EXPECT_TRUE(unanswered == CURLE_GOT_NOTHING || unanswered == CURLE_RECV_ERROR) << unanswered;
  EXPECT_EQ(Ask(origin::ResetAt(origin::kBeforeAnswer)).code, CURLE_RECV_ERROR);
  EXPECT_TRUE(server_.WaitForOpenConnections(0));
}

TEST_P(OriginTest, FramesTheBodyInEveryWay) {
  struct Row {
    const char* name;
    Answer answer;
    CURLcode code;
  };
  Answer chunked;
  chunked.chunkBytes = 60007;
  chunked.trailers = {{"X-Trailer", "t"}};
  Answer unended = chunked;
  unended.noLastChunk = true;
  Answer cutInChunk = chunked;
  cutInChunk.cutAt = kMediaBytes;
  Answer byClose;
  byClose.noContentLength = true;
  Answer lower;
  lower.lowerCaseNames = true;
  lower.bareLf = true;
  lower.interim = {100, 103};
  lower.headers = {{"X-Folded", "a\r\n b"}, {"X-Twice", "1"}, {"X-Twice", "2"}};
  lower.fillerHeaderBytes = 20000;
  Answer closing;
  closing.closeAfter = true;
  Answer tooMuch;
  tooMuch.contentLength = "9223372036854775807";
  Answer dripped;
  dripped.dripBytes = 500000;
  dripped.dripMs = 1;
  const Row rows[] = {
      {"chunked", chunked, CURLE_OK},
      {"no last chunk", unended, CURLE_PARTIAL_FILE},
      {"cut before last chunk", cutInChunk, CURLE_PARTIAL_FILE},
      {"by close", byClose, CURLE_OK},
      {"odd head", lower, CURLE_OK},
      {"closing", closing, CURLE_OK},
      {"promised more", tooMuch, CURLE_PARTIAL_FILE},
      {"dripped", dripped, CURLE_OK},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    const Result result = Ask(row.answer);
    const bool mayBeTlsError = GetParam() && row.code != CURLE_OK && result.code == CURLE_RECV_ERROR;
    EXPECT_TRUE(result.code == row.code || mayBeTlsError) << curl_easy_strerror(result.code);
    EXPECT_TRUE(IsPattern(result.body, 0, kMediaBytes)) << result.body.size();
  }
}

TEST_P(OriginTest, LiesAboutRanges) {
  Answer ignoring;
  ignoring.ignoreRange = true;
  EXPECT_TRUE(IsPattern(Ask(ignoring, "10-19").body, 0, kMediaBytes));
  Answer shifted;
  shifted.shift = 4;
  const Result moved = Ask(shifted, "10-19");
  EXPECT_TRUE(IsPattern(moved.body, 14, 6));
  EXPECT_NE(moved.headers.find("bytes 14-19/3000017"), std::string::npos);
  Answer few;
  few.maxBytes = 3;
  EXPECT_TRUE(IsPattern(Ask(few, "10-19").body, 10, 3));
  Answer wrong;
  wrong.headers = {{"content-range", "bytes 0-4/*"}};
  wrong.without = {"Accept-Ranges"};
  const Result lied = Ask(wrong, "10-19");
  EXPECT_TRUE(IsPattern(lied.body, 10, 10));
  EXPECT_EQ(lied.headers.find("bytes 10-19"), std::string::npos);
  EXPECT_EQ(lied.headers.find("Accept-Ranges"), std::string::npos);
}

TEST_P(OriginTest, PacksWithGzipAndServesRangesOfIt) {
  Answer packed;
  packed.gzip = true;
  const std::string all = Ask(packed).body;
  const Result part = Ask(packed, "1000-2999");
  EXPECT_EQ(part.status, 206);
  EXPECT_EQ(part.body, all.substr(1000, 2000));
  curl_easy_setopt(client_.Easy(), CURLOPT_ACCEPT_ENCODING, "gzip");
  EXPECT_TRUE(IsPattern(Ask(packed).body, 0, kMediaBytes));
}

TEST_P(OriginTest, AnswersWithStatusRedirectAndRawBytes) {
  EXPECT_EQ(Ask(origin::Status(503, "busy")).body, "busy");
  Answer rude = origin::Status(204, "body");
  rude.forceBody = true;
  EXPECT_EQ(Ask(rude).status, 204);
  const Result raw = Ask(origin::Raw("HTTP/1.1 299 Odd\nContent-Length: 2\n\nok"));
  EXPECT_EQ(raw.status, 299);
  EXPECT_EQ(raw.body, "ok");
  curl_easy_setopt(client_.Easy(), CURLOPT_FOLLOWLOCATION, 1L);
  server_.Script("/moved", {origin::Redirect("/media", 307)});
  EXPECT_TRUE(IsPattern(client_.Get(server_.Url("/moved")).body, 0, kMediaBytes));
  EXPECT_EQ(Ask(origin::Redirect("file:///etc/hostname")).code, CURLE_UNSUPPORTED_PROTOCOL);
}

TEST_P(OriginTest, HoldsAnswersAtGatesAndStalls) {
  const auto gate = std::make_shared<origin::Gate>();
  Answer held;
  held.gate = gate;
  held.stallAt = 1000;
  server_.Script("/media", {held});
  Result result;
  std::thread asking([&] { result = client_.Get(server_.Url("/media")); });
  EXPECT_TRUE(gate->AwaitWaiting(1));
  EXPECT_EQ(server_.Log()[0].bodySent, 0u);
  gate->Open();
  EXPECT_TRUE(server_.WaitForStalls(1));
  EXPECT_TRUE(server_.WaitForLog([](const auto& log) { return log[0].bodySent == 1000; }));
  server_.ReleaseStalls();
  asking.join();
  EXPECT_TRUE(IsPattern(result.body, 0, kMediaBytes));
  EXPECT_TRUE(server_.WaitForEnded(1));
  EXPECT_TRUE(server_.Log()[0].complete);
}

TEST_P(OriginTest, NoticesThatAClientLeaves) {
  server_.Script("/media", {origin::StallAt(0), origin::StallAt(origin::kBeforeAnswer)});
  for (int i = 1; i <= 2; ++i) {
    Client leaving;
    curl_easy_setopt(
        leaving.Easy(), CURLOPT_XFERINFOFUNCTION, +[](void* server, curl_off_t, curl_off_t, curl_off_t, curl_off_t) {
          return static_cast<Server*>(server)->WaitForStalls(1, 0) ? 1 : 0;
        });
    curl_easy_setopt(leaving.Easy(), CURLOPT_XFERINFODATA, &server_);
    curl_easy_setopt(leaving.Easy(), CURLOPT_NOPROGRESS, 0L);
    EXPECT_EQ(leaving.Get(server_.Url("/media")).code, CURLE_ABORTED_BY_CALLBACK);
    EXPECT_TRUE(server_.WaitForEnded(i));
    EXPECT_TRUE(server_.WaitForOpenConnections(0));
  }
  EXPECT_FALSE(server_.Log()[0].complete);
}

TEST_P(OriginTest, EndsWithEveryAnswerUnderWay) {
  server_.Handle([](const origin::Request& request) { return origin::StallAt(request.forTarget * 100); });
  std::vector<std::thread> clients;
  for (int i = 0; i < 5; ++i) {
    clients.emplace_back([this] { EXPECT_NE(Client().Get(server_.Url("/media")).code, CURLE_OK); });
  }
  EXPECT_TRUE(server_.WaitForStalls(5));
  server_.DropConnections(true);
  for (std::thread& client : clients) {
    client.join();
  }
  EXPECT_EQ(server_.OpenConnections(), 0);
}

// Sends the bytes on a connection of its own and gives back what arrives until the server closes.
std::string Converse(const Server& server, const std::string& bytes) {
  Client client;
  curl_easy_setopt(client.Easy(), CURLOPT_CONNECT_ONLY, 1L);
  EXPECT_EQ(client.Get(server.Url("/")).code, CURLE_OK);
  size_t sent = 0;
  EXPECT_EQ(curl_easy_send(client.Easy(), bytes.data(), bytes.size(), &sent), CURLE_OK);
  EXPECT_EQ(sent, bytes.size());
  std::string answers;
  char block[4096];
  size_t n = 0;
  WaitUntil([&] {
    CURLcode code;
    while ((code = curl_easy_recv(client.Easy(), block, sizeof block, &n)) == CURLE_OK && n > 0) {
      answers.append(block, n);
    }
    return code != CURLE_AGAIN;
  });
  return answers;
}

TEST_P(OriginTest, AnswersPipelinedRequestsInOrder) {
  const std::string ask = "GET /media HTTP/1.1\r\nHost: x\r\nRange: bytes=";
  const std::string answers = Converse(
      server_, ask + "7-8\r\n\r\n" + ask + "9-11\r\n\r\nnothing\r\n\r\nGET /media HTTP/1.1\r\nHost: x\r\n\r\n");
  const size_t first = answers.find("bytes 7-8/");
  const size_t second = answers.find("bytes 9-11/");
  const size_t refusal = answers.find("HTTP/1.1 400 Bad Request\r\n");
  EXPECT_LT(first, second);
  EXPECT_LT(second, refusal);
  EXPECT_NE(refusal, std::string::npos) << answers;
  EXPECT_EQ(server_.RequestCount(), 2);
}

TEST_P(OriginTest, ServesADirectoryAndNothingOutsideOfIt) {
  namespace fs = std::filesystem;
  const fs::path base = fs::path(::testing::TempDir()) / ("origin_test_" + std::to_string(server_.Port()));
  fs::create_directories(base / "media" / "sub");
  std::ofstream(base / "secret.txt") << "secret";
  std::ofstream(base / "media" / "a b&.mp4") << "0123456789";
  fs::create_symlink(base / "secret.txt", base / "media" / "link.txt");
  server_.ServeDirectory((base / "media").string());
  curl_easy_setopt(client_.Easy(), CURLOPT_PATH_AS_IS, 1L);

  const Result part = client_.Get(server_.Url("/a%20b%26.mp4?x=1"), "3-5");
  EXPECT_EQ(part.body, "345");
  EXPECT_NE(part.headers.find("Content-Type: video/mp4\r\n"), std::string::npos);
  const std::string listing = client_.Get(server_.Url("/")).body;
  EXPECT_NE(listing.find("<a href=\"a%20b%26.mp4\">a b&amp;.mp4</a></td><td>10</td>"), std::string::npos) << listing;
  EXPECT_NE(client_.Get(server_.Url("/sub")).headers.find("Location: /sub/\r\n"), std::string::npos);
  for (const char* target : {"/../secret.txt", "/%2e%2e/secret.txt", "/sub/../../secret.txt", "//../secret.txt",
                             "/link.txt", "/..%2fsecret.txt", "/%00", "/%zz", "/none", "/a%20b%26.mp4/"}) {
    EXPECT_EQ(client_.Get(server_.Url(target)).status, 404) << target;
  }
  fs::remove_all(base);
}

TEST(FaultPlatform, FailsTheNthCreationAndCountsWhatLives) {
  Leftovers leftovers(fault_platform::LiveGauges());
  fault_platform::Reset();
  fault_platform::FailNth(fault_platform::Kind::kAllocation, 2);
  void* blocks[3] = {ZV_Malloc(1), ZV_Calloc(1), ZV_Malloc(1)};
  EXPECT_NE(blocks[0], nullptr);
  EXPECT_EQ(blocks[1], nullptr);
  EXPECT_NE(blocks[2], nullptr);
  EXPECT_EQ(fault_platform::Failed(fault_platform::Kind::kAllocation), 1);
  EXPECT_EQ(fault_platform::Live(fault_platform::Kind::kAllocation), 2);
  for (void*& block : blocks) {
    ZV_Free(&block);
  }
  fault_platform::FailNth(fault_platform::Kind::kThread, 1, true);
  EXPECT_EQ(ZV_ThreadInit([](void*) { return 0; }, nullptr), nullptr);
  EXPECT_EQ(ZV_ThreadInit([](void*) { return 0; }, nullptr), nullptr);
  fault_platform::Reset();
}

TEST(FaultPlatform, ClockRunsFasterOrAsTold) {
  fault_platform::SetTimeScale(1000);
  const auto realBegin = std::chrono::steady_clock::now();
  const int64_t begin = ZV_ChronoGetTick();
  ZV_SleepFor(60000);
  EXPECT_GE(ZV_ChronoGetTick() - begin, 59000);
  EXPECT_LT(std::chrono::steady_clock::now() - realBegin, std::chrono::seconds(10));
  fault_platform::SetTimeScale(0);
  const int64_t still = ZV_ChronoGetTick();
  fault_platform::AdvanceClock(1234);
  EXPECT_EQ(ZV_ChronoGetTick() - still, 1234);
  fault_platform::Reset();
}

#if defined(__clang__)
#define ZV_UNCHECKED __attribute__((no_thread_safety_analysis))
#else
#define ZV_UNCHECKED
#endif

// Each misuse that must end the program.
ZV_UNCHECKED void Misuse(int way) {
  ZVMutex* mutex = ZV_MutexInit();
  ZVMutex* copy = mutex;
  ZVCondition* const condition = ZV_ConditionInit();
  const std::function<void()> ways[] = {
      [&]() ZV_UNCHECKED { ZV_MutexLock(mutex), ZV_MutexLock(mutex); },
      [&]() ZV_UNCHECKED { ZV_MutexUnlock(mutex); },
      [&]() ZV_UNCHECKED { ZV_MutexLock(mutex), ZV_MutexRelease(&mutex); },
      [&]() ZV_UNCHECKED { ZV_MutexRelease(&mutex), ZV_MutexRelease(&copy); },
      [&]() ZV_UNCHECKED { ZV_ConditionSignal(condition); },
      [&]() ZV_UNCHECKED { ZV_ConditionWaitFor(condition, 1); },
  };
  ways[way]();
}

TEST(FaultPlatformDeathTest, LockMisuseEndsTheProgram) {
  ::testing::FLAGS_gtest_death_test_style = "threadsafe";
  const char* const messages[] = {"holds the lock already", "does not hold", "held or waited on", "is no lock",
                                  "does not hold",          "does not hold"};
  for (int way = 0; way < 6; ++way) {
    EXPECT_DEATH(Misuse(way), messages[way]) << way;
  }
}

}  // namespace
