// Servers that lie about lengths, speak no HTTP, never stop their headers, or close anywhere.
#include "Download.h"

namespace flow {
namespace {

using origin::Answer;
using origin::Request;
using testing::ElementsAre;
using testing::ElementsAreArray;

Answer With(const std::function<void(Answer*)>& change) {
  Answer answer;
  change(&answer);
  return answer;
}

std::function<Answer(const Request&)> Always(const std::function<void(Answer*)>& change) {
  return [answer = With(change)](const Request&) { return answer; };
}

using BrokenAnswersTest = FlowTest;

TEST_F(BrokenAnswersTest, ALengthThatLiesEndsInTheRightBytesOrACode) {
  struct {
    const char* text;
    bool ranged;
    uint64_t delivered;
    std::vector<int32_t> codes;
  } const rows[] = {
      {"500", false, 500, {kOk}},  // nobody can know better
      {"9999", false, 1000, {kOk, kFailed}},
      {"9223372036854775808", false, 1000, {kOk}},  // no length at all
      {"99999999999999999999999999", false, 1000, {kOk}},
      {"-5", false, 0, {kFailed}},
      {"abc", false, 0, {kFailed}},
      {"500", true, 500, {kOk, kFailed}},  // the range was longer: not all is there
      {"9999", true, 1000, {kOk}},
  };
  const origin::Resource media = Put("/media", 1000);
  for (const auto& row : rows) {
    SCOPED_TRACE(std::string(row.text) + (row.ranged ? ", ranged" : ""));
    server_.Handle("/media", Always([&row](Answer* a) { a->contentLength = row.text; }));
    Download download;
    if (row.ranged) {
      ZV_HttpBaseSetRange(download.Get(), 0, 999);
    }
    download.Open(server_.Url("/media"));
    EXPECT_EQ(download.ReadAll(media), Right(row.delivered));
    EXPECT_THAT(download.Codes(), ElementsAreArray(row.codes));
  }
}

TEST_F(BrokenAnswersTest, WhatIsNoHttpAnswerFails) {
  const std::string rows[] = {
      "",
      "garbage\r\n\r\nmore of it",
      "HTTP/1.1\r\n\r\n",
      "HTTP/1.1 abc OK\r\nContent-Length: 3\r\n\r\nabc",
      "\r\n\r\n\r\n",
      std::string(300, '\0'),
      "HTTP/1.1 200 OK\r\nContent-Length: 3\r\n",
      "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\nzz\r\nabc",
      "HTTP/1.1 206 Partial Content\r\nContent-Range: bytes 5-9/20\r\nContent-Length: 5\r\n\r\nabcde",
      "HTTP/1.1 200 OK\r\nContent-Encoding: gzip\r\nContent-Length: 5\r\n\r\nabcde",
      "HTTP/1.1 100 Continue\r\n\r\n",
  };
  for (const std::string& raw : rows) {
    SCOPED_TRACE(raw);
    server_.Handle("/media", [&raw](const Request&) {
      Answer answer = origin::Raw(raw);
      answer.closeAfter = true;
      return answer;
    });
    for (const int connections : {1, 3}) {
      Download download(connections);
      download.Open(server_.Url("/media"));
      EXPECT_EQ(download.ReadText(), "");
      ASSERT_FALSE(download.Codes().empty());
      EXPECT_EQ(download.Codes().back(), kFailed);
    }
  }
}

TEST_F(BrokenAnswersTest, HeadersWithoutEndFailSoonAndWithoutMuchMemory) {
  for (const int connections : {1, 3}) {
    server_.Handle("/media", [connections](const Request&) {
      return With([connections](Answer* a) {
        a->fillerHeaderBytes = 20000000;
        a->fillerLineBytes = connections == 1 ? 10000 : 90000;
      });
    });
    Download download(connections);
    download.Open(server_.Url("/media"));
    EXPECT_EQ(download.ReadText(), "");
    EXPECT_THAT(download.Codes(), ElementsAre(kFailed));
  }
}

// Cut at any byte: either all the bytes are there, or a failure is told and what came before it is right.
TEST_F(BrokenAnswersTest, ACutAtAnyByteOfASmallAnswerIsNeverTakenForSuccess) {
  const origin::Resource media = Put("/small", 12);
  const std::function<void(Answer*)> shapes[] = {
      [](Answer*) {},
      [](Answer* a) { a->chunkBytes = 5; },
      [](Answer* a) { a->interim = {103}; },
  };
  for (const auto& shape : shapes) {
    for (const int64_t start : {-1, 0}) {
      Download download;
      bool wasWhole = false;
      for (uint64_t n = 0; !wasWhole; ++n) {
        SCOPED_TRACE("cut at " + std::to_string(n));
        Answer answer = With(shape);
        answer.cutAtWire = n;
        server_.Script("/small", {answer});
        ZV_HttpBaseSetRange(download.Get(), start, -1);
        download.Open(server_.Url("/small"));
        const std::string got = download.ReadAll(media);
        ASSERT_THAT(got, testing::HasSubstr("right bytes, end"));
        ASSERT_TRUE(server_.WaitForLog([](const auto& log) { return !log.empty() && log.back().ended; }));
        wasWhole = server_.Log().back().bodySent == media.length && download.Count(kFailed) == 0;
        ASSERT_EQ(wasWhole, got == Right(media.length) && download.Codes() == std::vector<int32_t>{kOk});
        ASSERT_EQ(download.Count(kFailed), wasWhole ? 0 : 1);
        ASSERT_LT(n, 1000U);
        download.Close();
      }
    }
  }
}

}  // namespace
}  // namespace flow
