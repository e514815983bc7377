// The loopback ad server through a real HTTP client, its campaigns file, and the executable run as
// a subprocess.
#include <gtest/gtest.h>
#include <httplib.h>
#include <zorva/platform/UUID.h>

#include <filesystem>
#include <fstream>
#include <future>

#include "Common/ZVAdLoader.h"
#include "tools/Subprocess.h"
#include "zorva-adserver/AdServer.h"

namespace zorva::tools {
namespace {

using namespace std::chrono_literals;

// A server that logs only where a test asks it to, so that test output stays readable.
std::unique_ptr<AdServer> startServer(AdServer::Options options = {}) {
  if (options.log.target<void (*)(const RequestRecord&)>()) options.log = nullptr;
  std::optional<Error> error;
  auto server = AdServer::start(std::move(options), &error);
  EXPECT_TRUE(server) << (error ? error->localizedDescription() : "");
  return server;
}

httplib::Result post(const AdServer& server, const std::string& query, const std::string& body,
                     std::chrono::milliseconds timeout = 10s) {
  httplib::Client client(server.baseUrl());
  client.set_read_timeout(timeout);
  return client.Post((std::string(AdServer::kServadPath) + "?" + query).c_str(), body,
                     "application/json");
}

httplib::Result get(const std::string& url) {
  auto slash = url.find('/', std::string("http://").size());
  return httplib::Client(url.substr(0, slash)).Get(url.substr(slash).c_str());
}

Value bidOf(const httplib::Result& result) {
  EXPECT_TRUE(result && result->status == 200);
  return Value::parse(result->body).at("seatbid").at(0).at("bid").at(0);
}

const Value kBannerRequest = {
    {"id", "REQ-1"},
    {"imp",
     {{{"id", "IMP-1"},
       {"banner", {{"w", 320}, {"h", 50}}},
       {"ext", {{"skadn", {{"version", "2.0"}, {"sourceapp", "987"}}}}}}}}};

// The demo's tour runs every built-in campaign through the SDK (video, wrappers, no fill, broken
// and slow answers); these are what the tour cannot see.
TEST(AdServer, BidsEchoTheRequestWithFreshSkadnAndSizesFromTheImpression) {
  auto server = startServer();
  auto result = post(*server, "pid=p1&aid=banner", kBannerRequest.dump());
  EXPECT_EQ(Value::parse(result->body)["id"], "REQ-1");
  Value bid = bidOf(result);
  EXPECT_EQ(bid["impid"], "IMP-1");
  EXPECT_EQ(bid["ext"]["skadn"]["sourceapp"], "987");
  auto ad = ZVAdLoader::readResponse(result->body).ad;
  ASSERT_TRUE(ad);
  EXPECT_EQ(ad->skadn, bid["ext"]["skadn"]);
  Value again = bidOf(post(*server, "pid=p1&aid=banner", kBannerRequest.dump()));
  EXPECT_NE(again["id"], bid["id"]);
  EXPECT_NE(again["ext"]["skadn"]["nonce"], bid["ext"]["skadn"]["nonce"]);

  Value video = {{"id", "R"}, {"imp", {{{"id", "I"}, {"video", {{"w", 640.0}, {"h", 360}}}}}}};
  result = post(*server, "pid=p&aid=video", video.dump());
  EXPECT_NE(result->body.find("\"w\":640,\"h\":360"), std::string::npos) << result->body;
  // A body that is not JSON is still answered by aid, with an id of the server's own.
  Value response = Value::parse(post(*server, "pid=p&aid=interstitial", "not json")->body);
  EXPECT_TRUE(platform::UUID::fromString(response["id"].get<std::string>()));
  EXPECT_TRUE(response["seatbid"][0]["bid"][0]["adm"].is_string());
  EXPECT_EQ(post(*server, "pid=p", "{}")->status, 400);
}

TEST(AdServer, SlowAnswersAfterItsDelayAndStopCutsTheWaitShort) {
  auto server = startServer({.slowDelay = 400ms});
  EXPECT_FALSE(post(*server, "pid=p&aid=slow", kBannerRequest.dump(), 100ms));
  auto hanging = startServer({.slowDelay = 60s});
  auto answer =
      std::async(std::launch::async, [&] { return post(*hanging, "pid=p&aid=slow", "{}", 120s); });
  while (hanging->requests().empty()) std::this_thread::yield();
  auto before = std::chrono::steady_clock::now();
  hanging->stop();
  answer.get();
  EXPECT_LT(std::chrono::steady_clock::now() - before, 10s);
}

TEST(AdServer, ServesItsMediaWithRangesAsPlayersSeek) {
  auto server = startServer();
  httplib::Client client(server->baseUrl());
  auto mp4 = client.Get("/media/zorva.mp4");
  ASSERT_TRUE(mp4);
  EXPECT_EQ(mp4->get_header_value("Content-Type"), "video/mp4");
  auto part = client.Get("/media/zorva.mp4", {{"Range", "bytes=4-7"}});
  EXPECT_EQ(part->status, 206);
  EXPECT_EQ(part->body, "ftyp");
}

TEST(AdServer, LogsEveryRequestWithItsCampaign) {
  std::vector<std::string> lines;
  auto server = startServer({.log = [&](const RequestRecord& r) { lines.push_back(r.line()); }});
  std::string body = kBannerRequest.dump();
  post(*server, "pid=p1&aid=banner", body);
  get(server->baseUrl() + "/track?doc=inline&event=start");
  get(server->baseUrl() + "/nowhere");
  EXPECT_EQ(lines, (std::vector<std::string>{
                       "POST /zorva/servad?pid=p1&aid=banner body=" + std::to_string(body.size()) +
                           "B campaign=banner status=200",
                       "GET /track?doc=inline&event=start body=0B campaign=inline status=200",
                       "GET /nowhere body=0B campaign=- status=404"}));
}

class CampaignsFile : public testing::Test {
 protected:
  std::string write(const std::string& text) {
    std::ofstream(path_) << text;
    return path_;
  }
  void TearDown() override { std::filesystem::remove(path_); }
  std::string path_ = testing::TempDir() + "campaigns-" + std::to_string(getpid()) + ".json";
};

TEST_F(CampaignsFile, CampaignsReplaceBuiltInsAndServeTheirVast) {
  std::optional<Error> error;
  auto campaigns = Campaign::loadFile(write(R"([
    {"aid": "banner", "adm": "<b>house</b>", "w": 300, "h": 250, "price": 7},
    {"aid": "mine", "vast": "<VAST version=\"2.0\"><Ad><Wrapper><VASTAdTagURI>{{BASE_URL}}/vast/inline.xml</VASTAdTagURI></Wrapper></Ad></VAST>"},
    {"aid": "down", "status": 503, "raw_body": "maintenance", "delay_ms": 1}
  ])"),
                                      &error);
  ASSERT_TRUE(campaigns) << error->localizedDescription();
  auto server = startServer({.campaigns = *campaigns});

  Value banner = bidOf(post(*server, "pid=p&aid=banner", kBannerRequest.dump()));
  EXPECT_EQ(banner["adm"], "<b>house</b>");
  EXPECT_EQ(banner["w"], 300);
  EXPECT_FALSE(banner.contains("ext"));

  auto vast = get(server->baseUrl() + "/vast/mine.xml");
  EXPECT_NE(vast->body.find("<VASTAdTagURI>" + server->baseUrl() + "/vast/inline.xml<"),
            std::string::npos);
  EXPECT_EQ(bidOf(post(*server, "pid=p&aid=mine", "{}"))["adm"], vast->body);

  auto down = post(*server, "pid=p&aid=down", "{}");
  EXPECT_EQ(down->status, 503);
  EXPECT_EQ(down->body, "maintenance");
}

TEST_F(CampaignsFile, MalformedFilesNameTheFileTheEntryAndTheFault) {
  const std::pair<const char*, const char*> cases[] = {
      {"[{\"aid\": \"x\",]", "not valid JSON"},
      {R"({"aid": "x"})", "expected a JSON array"},
      {R"([{"adm": "x"}])", "campaign 1: \"aid\" must be a non-empty string"},
      {R"([{"aid": "a"}, {"aid": "b", "wdth": 3}])", "campaign 2: unknown key \"wdth\""},
      {R"([{"aid": "a", "adm": "x", "vast": "y"}])", "\"adm\" and \"vast\" exclude each other"},
      {R"([{"aid": "a", "w": "320"}])", "(aid \"a\"): \"w\" must be a number"},
      {R"([{"aid": "a", "status": 700}])", "\"status\" must be an integer from 100 to 599"},
      {R"([{"aid": "a"}, {"aid": "a"}])", "campaign 2: aid \"a\" appears twice"},
  };
  for (auto [text, expected] : cases) {
    std::optional<Error> error;
    EXPECT_FALSE(Campaign::loadFile(write(text), &error)) << text;
    ASSERT_TRUE(error) << text;
    EXPECT_EQ(error->code, Campaign::kMalformedFile);
    EXPECT_TRUE(error->localizedDescription().starts_with(path_)) << error->localizedDescription();
    EXPECT_NE(error->localizedDescription().find(expected), std::string::npos)
        << error->localizedDescription();
  }
}

TEST(AdServer, ListensOnlyOnLoopbackAndReportsATakenPort) {
  std::optional<Error> error;
  EXPECT_FALSE(AdServer::start({.host = "0.0.0.0", .log = nullptr}, &error));
  EXPECT_EQ(error->code, Campaign::kBadHost);

  auto first = startServer({.host = "localhost"});
  EXPECT_EQ(first->baseUrl(), "http://127.0.0.1:" + std::to_string(first->port()));
  EXPECT_FALSE(AdServer::start({.port = first->port(), .log = nullptr}, &error));
  EXPECT_EQ(error->code, Campaign::kCannotListen);
  EXPECT_NE(error->localizedDescription().find("Address already in use"), std::string::npos)
      << error->localizedDescription();
}

test::Subprocess adserver(std::vector<std::string> args) {
  return test::Subprocess(ZORVA_ADSERVER_EXECUTABLE, std::move(args));
}

TEST(AdServerExecutable, HelpAndBadCommandLines) {
  auto help = adserver({"--help"});
  EXPECT_EQ(help.finish(), 0);
  for (const char* flag : {"--port N", "--host ADDR", "--campaigns FILE", "--slow-ms N"}) {
    EXPECT_NE(help.out.find(flag), std::string::npos) << flag;
  }
  const std::pair<std::vector<std::string>, const char*> bad[] = {
      {{"--verbose"}, "unknown option '--verbose'"},
      {{"--port", "eighty"}, "--port wants a number from 0 to 65535, not 'eighty'"},
      {{"--host", "192.168.1.2"}, "\"192.168.1.2\" is not a loopback address"},
  };
  for (const auto& [args, message] : bad) {
    auto tool = adserver(args);
    EXPECT_EQ(tool.finish(), 2) << args[0];
    EXPECT_NE(tool.err.find(message), std::string::npos) << tool.err;
    EXPECT_TRUE(tool.out.empty());
  }
  auto missing = adserver({"--campaigns", "/nonexistent/campaigns.json"});
  EXPECT_EQ(missing.finish(), 1);
  EXPECT_NE(missing.err.find("/nonexistent/campaigns.json: cannot read"), std::string::npos);
}

TEST_F(CampaignsFile, ExecutableServesFileCampaignsLogsAndStopsOnSigterm) {
  auto tool = adserver({"--campaigns", write(R"([{"aid": "house", "adm": "<p>house</p>"}])")});
  std::string first = tool.readLine();
  ASSERT_TRUE(first.starts_with("zorva-adserver listening on http://127.0.0.1:")) << first;
  std::string base = first.substr(first.rfind(' ') + 1);
  EXPECT_TRUE(tool.readLine().starts_with("bid endpoint: " + base + "/zorva/servad?"));
  EXPECT_TRUE(tool.readLine().ends_with(" slow house"));

  auto result = httplib::Client(base).Post("/zorva/servad?pid=p&aid=house", "{}", "text/plain");
  ASSERT_TRUE(result);
  EXPECT_EQ(bidOf(result)["adm"], "<p>house</p>");
  EXPECT_EQ(tool.readLine(),
            "POST /zorva/servad?pid=p&aid=house body=2B campaign=house status=200");

  tool.signal(SIGTERM);
  EXPECT_EQ(tool.finish(), 0);
  EXPECT_NE(tool.out.find("stopping"), std::string::npos);
}

}  // namespace
}  // namespace zorva::tools
