// Error statuses, redirects, packed bodies.
#include "Download.h"

namespace flow {
namespace {

using origin::Answer;
using origin::Request;
using testing::ElementsAre;
using testing::ElementsAreArray;

constexpr uint64_t kLength = 4 * kSegLen + 11;

using ErrorsTest = FlowTest;

TEST_F(ErrorsTest, TheFirstAnswersStatusIsReportedAndItsBodyDelivered) {
  struct {
    int status;
    int32_t code;
  } const rows[] = {{400, 400}, {401, 401}, {403, 403}, {404, 404}, {410, kUnreachable}, {416, 416},
                    {429, 429}, {500, 500}, {503, 503}, {599, 599}, {201, 201},          {300, 300}};
  for (const auto& row : rows) {
    for (const int connections : {1, 3}) {
      SCOPED_TRACE(row.status);
      server_.ClearLog();
      server_.Handle("/media", [&row](const Request&) { return origin::Status(row.status, "what went wrong"); });
      Download download(connections, 2);
      download.Open(server_.Url("/media"));
      EXPECT_EQ(download.ReadText(), "what went wrong");
      EXPECT_THAT(download.Codes(), ElementsAre(row.code));
      EXPECT_EQ(ZV_HttpBaseGetOpenFlag(download.Get()), 0);
      EXPECT_EQ(server_.RequestCount(), 1);
    }
  }
}

TEST_F(ErrorsTest, AnErrorBodyLargerThanTheRingBufferArrivesWhole) {
  const origin::Resource body = origin::PatternResource(9000000, 5);
  std::string text(body.length, '\0');
  body.read(0, text.data(), text.size());
  for (const int connections : {1, 3}) {
    server_.Handle("/media", [&text](const Request&) { return origin::Status(404, text); });
    Download download(connections);
    download.Open(server_.Url("/media"));
    EXPECT_EQ(download.ReadAll(body), Right(body.length));
    EXPECT_THAT(download.Codes(), ElementsAre(404));
  }
}

TEST_F(ErrorsTest, AnErrorOfALaterRangeEndsTheMediaBeforeIt) {
  const origin::Resource media = Put("/media", kLength);
  for (const int status : {404, 410, 416, 500, 503, 204}) {
    for (const int64_t failing : {1, 2, 4}) {
      SCOPED_TRACE(std::to_string(status) + " for range " + std::to_string(failing));
      server_.Handle("/media", [=](const Request& request) {
        return request.first == failing * kSegLen ? origin::Status(status, "not media") : Answer{};
      });
      Download download(3);
      download.Open(server_.Url("/media"));
      EXPECT_EQ(download.ReadAll(media), Right(static_cast<uint64_t>(failing * kSegLen)));
      const int32_t code = status == 410 ? kUnreachable : status;
      // The error may come before the first bytes of the media.
      EXPECT_THAT(download.Codes(), testing::UnorderedElementsAre(kOk, code, kFailed));
      EXPECT_EQ(download.Codes().back(), kFailed);
    }
  }
}

TEST_F(ErrorsTest, AnErrorOfAResumedRequestIsReportedOnceAndItsBodyDropped) {
  const origin::Resource media = Put("/media", kLength);
  for (const int connections : {1, 3}) {
    for (const int status : {503, 404, 416}) {
      SCOPED_TRACE(status);
      // A request of the download before that is still on its way must not use up the script.
      ASSERT_TRUE(server_.WaitForOpenConnections(0));
      server_.Script("/media", {origin::CutAt(100000)});
      server_.Handle("/media", [status](const Request& request) {
        return request.first == 100000 ? origin::Status(status, "not media") : Answer{};
      });
      Download download(connections, 2);
      download.Open(server_.Url("/media"));
      EXPECT_EQ(download.ReadAll(media), Right(100000));
      EXPECT_THAT(download.Codes(), ElementsAre(kOk, status, kFailed));
    }
  }
}

// Half an error page must not become the beginning of the media.
TEST_F(ErrorsTest, MediaNeverFollowsTheBodyOfAnErrorThatWasCut) {
  Put("/media", kLength);
  for (const int connections : {1, 3}) {
    Answer error = origin::Status(503, std::string(1000, 'x'));
    error.cutAt = 500;
    server_.Script("/media", {error});
    Download download(connections, 2);
    download.Open(server_.Url("/media"));
    EXPECT_EQ(download.ReadText(), std::string(500, 'x'));
    EXPECT_EQ(download.Count(503), 1);
    EXPECT_EQ(download.Count(kFailed), 1);
  }
}

TEST_F(ErrorsTest, StatusesWithoutABodyEndTheDownloadEvenIfOneComes) {
  const origin::Resource media = Put("/media", kLength);
  for (const int status : {204, 304}) {
    for (const bool hasBody : {false, true}) {
      SCOPED_TRACE(status);
      Answer answer = origin::Status(status, "no body may be here");
      answer.forceBody = hasBody;
      server_.Handle("/none", [answer](const Request&) { return answer; });
      Download download(2);
      download.Open(server_.Url("/none"));
      EXPECT_EQ(download.ReadText(), "");
      EXPECT_THAT(download.Codes(), ElementsAre(status));
      download.Close();
      download.Open(server_.Url("/media"));
      EXPECT_EQ(download.ReadAll(media), Right(kLength));
      EXPECT_THAT(download.Codes(), ElementsAre(kOk));
    }
  }
}

TEST_F(ErrorsTest, AUrlThatIsNoneEndsWith11111) {
  const std::string refused[] = {"",        "ftp://127.0.0.1/", "file:///etc/hostname", "127.0.0.1/media", "http",
                                 "http:/x", " http://x"};
  const std::string failing[] = {"http://",
                                 "https://",
                                 "http:///",
                                 "http://a b/",
                                 "http://127.0.0.1:99999/",
                                 "http://127.0.0.1:0x/",
                                 "http://[::/",
                                 "http://127.0.0.1:1\r\nX: y/"};
  Download download;
  for (const std::string& url : refused) {
    SCOPED_TRACE(url);
    download.Open(url);
    EXPECT_EQ(download.ReadText(), "");
    EXPECT_THAT(download.Codes(), ElementsAre(kFailed));
    download.Close();
  }
  for (const std::string& url : failing) {
    for (const int connections : {1, 3}) {
      SCOPED_TRACE(url);
      ZV_HttpBaseSetDownloadThreadNum(download.Get(), connections);
      download.Open(url);
      EXPECT_EQ(download.ReadText(), "");
      EXPECT_THAT(download.Codes(), ElementsAre(testing::AnyOf(kFailed, kUnreachable)));
      download.Close();
    }
  }
}

TEST_F(ErrorsTest, AUrlWithBlanksOrOf64KilobytesGetsACodeAndAnEnd) {
  for (const std::string& target : {std::string("/a b"), "/" + std::string(65000, 'a')}) {
    Download download;
    download.Open(server_.Url(target));
    download.ReadText();
    EXPECT_EQ(download.Codes().size(), 1U);
  }
}

using RedirectTest = FlowTest;

TEST_F(RedirectTest, ARedirectIsFollowedReportedAndUsedForTheOtherRanges) {
  const origin::Resource media = Put("/final", kLength);
  for (const int status : {301, 302, 303, 307, 308}) {
    for (const int connections : {1, 3}) {
      SCOPED_TRACE(status);
      server_.ClearLog();
      server_.Handle("/start", [status](const Request&) {
        Answer answer = origin::Redirect("/middle", status);
        answer.headers = {{"Content-Range", "bytes 0-5/7"}, {"Accept-Ranges", "bytes"}};
        return answer;
      });
      server_.Handle("/middle", [status](const Request&) { return origin::Redirect("/final", status); });
      Download download(connections);
      EXPECT_EQ(ZV_HttpBaseGetRedirectURL(download.Get()), nullptr);
      download.Open(server_.Url("/start"));
      EXPECT_EQ(download.ReadAll(media), Right(kLength));
      ASSERT_GE(download.Codes().size(), 2U);
      EXPECT_EQ(download.Codes()[0], kRedirected);
      EXPECT_EQ(download.Count(kOk), 1);
      EXPECT_EQ(download.Count(kRedirected) + 1, static_cast<int>(download.Codes().size()));
      EXPECT_EQ(ZV_HttpBaseGetRedirectURL(download.Get()), server_.Url("/final"));
      EXPECT_EQ(server_.LogOf("/start").size(), 1U);
      EXPECT_EQ(server_.LogOf("/final").size(), connections == 1 ? 1U : 5U);
    }
  }
}

TEST_F(RedirectTest, WhatARedirectGaveStaysValidUntilTheNextOpen) {
  const origin::Resource media = Put("/final", kLength);
  Put("/plain", 10);
  server_.Handle("/start", [](const Request&) { return origin::Redirect("/final"); });
  Download download(3, 2);
  download.Open(server_.Url("/start"));
  ASSERT_TRUE(download.WaitForCode(kRedirected));
  const char* const url = ZV_HttpBaseGetRedirectURL(download.Get());
  EXPECT_EQ(download.ReadAll(media), Right(kLength));
  download.Close();
  EXPECT_EQ(url, server_.Url("/final"));
  download.Open(server_.Url("/plain"));
  EXPECT_EQ(ZV_HttpBaseGetRedirectURL(download.Get()), nullptr);
}

TEST_F(RedirectTest, ARedirectToAnErrorReportsTheErrorAlone) {
  server_.Handle("/start", [](const Request&) { return origin::Redirect("/missing"); });
  Download download;
  download.Open(server_.Url("/start"));
  EXPECT_EQ(download.ReadText(), "404 Not Found\n");
  EXPECT_THAT(download.Codes(), ElementsAre(404));
}

TEST_F(RedirectTest, ARedirectThatLeadsNowhereFails) {
  for (const char* const target :
       {"/loop", "file:///etc/hostname", "ftp://127.0.0.1/x", "gopher://127.0.0.1/", "http://", "data:,x"}) {
    for (const int connections : {1, 3}) {
      SCOPED_TRACE(target);
      server_.ClearLog();
      server_.Handle("/loop", [target](const Request&) { return origin::Redirect(target); });
      Download download(connections);
      download.Open(server_.Url("/loop"));
      EXPECT_EQ(download.ReadText(), "");
      EXPECT_THAT(download.Codes(), ElementsAre(kFailed));
      EXPECT_LE(server_.RequestCount(), 31);
    }
  }
}

TEST_F(RedirectTest, ARedirectWithoutATargetIsAnAnswerLikeAnyOther) {
  for (const int status : {301, 302, 307, 308}) {
    SCOPED_TRACE(status);
    server_.Handle("/start", [status](const Request&) { return origin::Status(status, "go away"); });
    Download download;
    download.Open(server_.Url("/start"));
    EXPECT_EQ(download.ReadText(), "go away");
    EXPECT_EQ(ZV_HttpBaseGetRedirectURL(download.Get()), nullptr);
    EXPECT_EQ(download.Count(kFailed), 0);
  }
}

class PackedTest : public FlowTest {
 protected:
  PackedTest() {
    server_.Put("/text", text_);
    answer_.gzip = true;
  }

  const origin::Resource text_ = Lines(6000000);
  Answer answer_;
};

TEST_F(PackedTest, APackedBodyArrivesUnpackedWhateverTheConnections) {
  for (const bool hasRanges : {true, false}) {
    for (const int connections : {1, 3}) {
      SCOPED_TRACE(std::to_string(connections) + (hasRanges ? " with ranges" : " without"));
      answer_.ignoreRange = !hasRanges;
      server_.Handle("/text", [this](const Request&) { return answer_; });
      Download download(connections);
      download.Open(server_.Url("/text"));
      EXPECT_EQ(download.ReadAll(text_), Right(text_.length));
      EXPECT_THAT(download.Codes(), ElementsAre(kOk));
      EXPECT_LE(ZV_HttpBaseGetContentLength(download.Get()), 0);
    }
  }
}

TEST_F(PackedTest, APackedBodyThatWasCutGoesOnWhereItStopped) {
  for (const bool staysPacked : {true, false}) {
    for (const int connections : {1, 3}) {
      SCOPED_TRACE(std::to_string(connections) + (staysPacked ? " stays packed" : " does not"));
      answer_.ignoreRange = true;
      Answer cut = answer_;
      cut.cutAt = 9000;
      server_.Script("/text", {cut});
      answer_.gzip = staysPacked;
      server_.Handle("/text", [this](const Request&) { return answer_; });
      Download download(connections, 1);
      download.Open(server_.Url("/text"));
      EXPECT_EQ(download.ReadAll(text_), Right(text_.length));
      EXPECT_THAT(download.Codes(), ElementsAre(kOk));
      answer_.gzip = true;
    }
  }
}

TEST_F(PackedTest, ALaterRangeThatComesPackedIsAskedForWholeAndCut) {
  const origin::Resource media = Put("/media", kLength);
  server_.Handle("/media", [this](const Request& request) {
    return request.first == kSegLen || request.range.empty() ? answer_ : Answer{};
  });
  Download download(3);
  download.Open(server_.Url("/media"));
  EXPECT_EQ(download.ReadAll(media), Right(kLength));
  EXPECT_THAT(download.Codes(), ElementsAre(kOk));
}

}  // namespace
}  // namespace flow
