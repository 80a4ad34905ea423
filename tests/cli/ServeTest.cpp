// zvhttp serve: a folder is served until a signal comes.
#include <csignal>

#include "CliFixture.h"

namespace {

TEST_F(CliTest, ServedFolderCanBeFetched) {
  WriteFile("film.ts", std::string(300000, 'f'));
  for (const int number : {SIGINT, SIGTERM}) {
    Process serve(Zvhttp({"serve", PathOf(""), "--pattern", "1000000"}));
    const std::string url = serve.AwaitLine();
    ASSERT_EQ(url.rfind("http://127.0.0.1:", 0), 0u) << url;
    EXPECT_EQ(Get({"-o", "-", "-n", "2", url + "film.ts"}).output, std::string(300000, 'f'));
    ExpectPattern(Get({"-o", "-", url + "pattern/1000000"}).output, 0, kMegabyte);
    EXPECT_EQ(Get({"-o", "-", url + "missing"}).exitCode, 4);
    serve.Signal(number);
    const ProcessResult result = serve.Wait();
    EXPECT_EQ(result.exitCode, 0);
    for (const char* line : {"GET /film.ts", "GET /pattern/1000000", "GET /missing -> 404"}) {
      EXPECT_NE(result.error.find(line), std::string::npos) << line << " is missing in\n" << result.error;
    }
  }
}

TEST_F(CliTest, ServeWorksOverHttpsAndCanBeQuiet) {
  Process serve(Zvhttp({"serve", "--pattern", "1000000", "--https", "--quiet"}));
  const std::string url = serve.AwaitLine();
  ASSERT_EQ(url.rfind("https://127.0.0.1:", 0), 0u) << url;
  ExpectPattern(Get({"-o", "-", "-n", "2", url + "pattern/1000000"}).output, 0, kMegabyte);
  serve.Signal(SIGTERM);
  EXPECT_EQ(serve.Wait().error, "");
}

TEST_F(CliTest, PortThatIsTakenIsAnError) {
  const ProcessResult result = RunProcess(Zvhttp({"serve", PathOf(""), "--port", std::to_string(server_.Port())}));
  ExpectFailure(result, 3, "cannot serve: ");
}

}  // namespace
