// The loopback ad server through a real HTTP client, and the executable run as a subprocess. The
// demo's tour runs every built-in campaign through the SDK (video, wrappers, no fill, broken and
// slow answers); these are what the tour cannot see.
#include <gtest/gtest.h>
#include <httplib.h>
#include <zorva/platform/UUID.h>

#include <filesystem>
#include <fstream>
#include <future>

#include "tools/Subprocess.h"
#include "zorva-adserver/AdServer.h"

namespace zorva::tools {
namespace {

using namespace std::chrono_literals;
using platform::Error;
using platform::Value;

httplib::Result post(const std::string& baseUrl, const std::string& query, const std::string& body,
                     std::chrono::milliseconds timeout = 10s) {
  httplib::Client client(baseUrl);
  client.set_read_timeout(timeout);
  return client.Post((std::string(AdServer::kServadPath) + "?" + query).c_str(), body,
                     "application/json");
}

Value bidOf(const httplib::Result& result) {
  EXPECT_TRUE(result && result->status == 200);
  return Value::parse(result->body).at("seatbid").at(0).at("bid").at(0);
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

// The server's bids echo the request, a taken port is reported and stop cuts a delayed answer
// short. The executable refuses bad command lines and campaign files with a clear message, serves
// the campaigns of a good file, and stops on SIGTERM or SIGINT; asked to be hostile, it misbehaves
// as its mode says.
TEST_F(CampaignsFile, TheServerEchoesBidsAndStopsAndItsExecutableRefusesServesAndMisbehaves) {
  std::optional<Error> error;
  auto server = AdServer::start({.host = "localhost", .slowDelay = 60s, .log = nullptr}, &error);
  ASSERT_TRUE(server);
  EXPECT_EQ(server->baseUrl(), "http://127.0.0.1:" + std::to_string(server->port()));
  auto result = post(server->baseUrl(), "pid=p1&aid=banner",
                     R"({"id": "REQ-1", "imp": [{"id": "IMP-1", "banner": {"w": 320, "h": 50},)"
                     R"( "ext": {"skadn": {"version": "2.0", "sourceapp": "987"}}}]})");
  EXPECT_EQ(Value::parse(result->body)["id"], "REQ-1");
  Value bid = bidOf(result);
  EXPECT_EQ(bid["impid"], "IMP-1");
  EXPECT_EQ(bid["ext"]["skadn"]["sourceapp"], "987");
  result = post(server->baseUrl(), "pid=p&aid=video",
                R"({"id": "R", "imp": [{"id": "I", "video": {"w": 640.0, "h": 360}}]})");
  EXPECT_NE(result->body.find("\"w\":640,\"h\":360"), std::string::npos) << result->body;
  // A body that is not JSON is still answered by aid, with an id of the server's own.
  Value response = Value::parse(post(server->baseUrl(), "pid=p&aid=interstitial", "x")->body);
  EXPECT_TRUE(platform::UUID::fromString(response["id"].get<std::string>()));
  EXPECT_TRUE(response["seatbid"][0]["bid"][0]["adm"].is_string());
  EXPECT_EQ(post(server->baseUrl(), "pid=p", "{}")->status, 400);

  // Players seek in the video with ranged requests.
  auto part = httplib::Client(server->baseUrl()).Get("/media/zorva.mp4", {{"Range", "bytes=4-7"}});
  ASSERT_TRUE(part);
  EXPECT_EQ(part->status, 206);
  EXPECT_EQ(part->body, "ftyp");

  // A taken port is reported.
  EXPECT_FALSE(AdServer::start({.port = server->port(), .log = nullptr}, &error));
  EXPECT_EQ(error->code, Campaign::kCannotListen);
  EXPECT_NE(error->localizedDescription().find("Address already in use"), std::string::npos)
      << error->localizedDescription();

  const auto seen = server->requests().size();
  auto cut = std::async(std::launch::async,
                        [&] { return post(server->baseUrl(), "pid=p&aid=slow", "{}", 120s); });
  while (server->requests().size() == seen) std::this_thread::yield();
  auto before = std::chrono::steady_clock::now();
  server->stop();
  cut.get();
  EXPECT_LT(std::chrono::steady_clock::now() - before, 30s);  // half the delay it would wait

  test::Subprocess help(ZORVA_ADSERVER_EXECUTABLE, {"--help"});
  EXPECT_EQ(help.finish(), 0);
  EXPECT_TRUE(help.out.starts_with("Usage: zorva-adserver [options]\n")) << help.out;
  const auto expectRefused = [](std::vector<std::string> args, int status, const std::string& m) {
    test::Subprocess::expectRefused(ZORVA_ADSERVER_EXECUTABLE, std::move(args), status, m);
  };
  expectRefused({"--verbose"}, 2, "unknown option '--verbose'");
  expectRefused({"--port", "eighty"}, 2, "--port wants a number from 0 to 65535, not 'eighty'");
  expectRefused({"--host", "192.168.1.2"}, 2, "\"192.168.1.2\" is not a loopback address");
  expectRefused({"--hostile", "flaky"}, 2, "unknown hostile mode 'flaky'");
  expectRefused({"--hostile", "500", "--host", "::1"}, 2, "\"::1\" is not an IPv4 loopback");
  expectRefused({"--campaigns", "/nonexistent/x.json"}, 1, "/nonexistent/x.json: cannot read");
  for (const auto& [text, fault] : std::vector<std::pair<const char*, std::string>>{
           {"[{\"aid\": \"x\",]", "not valid JSON"},
           {R"({"aid": "x"})", "expected a JSON array"},
           {R"([{"aid": "a"}, {"aid": "b", "wdth": 3}])", "campaign 2: unknown key \"wdth\""},
           {R"([{"aid": "a", "w": "320"}])", "campaign 1 (aid \"a\"): \"w\" must be a number"},
           {R"([{"aid": "a"}, {"aid": "a"}])", "campaign 2: aid \"a\" appears twice"}}) {
    expectRefused({"--campaigns", write(text)}, 1, path_ + ": " + fault);
  }

  test::Subprocess tool(ZORVA_ADSERVER_EXECUTABLE, {"--campaigns", write(R"([
    {"aid": "banner", "adm": "<p>house</p>", "w": 300, "h": 250},
    {"aid": "mine", "vast": "<VAST><Ad><Wrapper><VASTAdTagURI>{{BASE_URL}}/x</VASTAdTagURI></Wrapper></Ad></VAST>"},
    {"aid": "down", "status": 503, "raw_body": "maintenance"}
  ])")});
  std::string first = tool.readLine();
  ASSERT_TRUE(first.starts_with("zorva-adserver listening on http://127.0.0.1:")) << first;
  const std::string base = first.substr(first.rfind(' ') + 1);
  EXPECT_EQ(tool.readLine(), "bid endpoint: " + base + "/zorva/servad");
  tool.readLine();  // the campaigns

  Value banner = bidOf(post(base, "pid=p&aid=banner", "{}"));
  EXPECT_EQ(banner["adm"], "<p>house</p>");
  EXPECT_EQ(banner["w"], 300);
  EXPECT_FALSE(banner.contains("ext"));
  EXPECT_EQ(tool.readLine(),
            "POST /zorva/servad?pid=p&aid=banner body=2B campaign=banner status=200");
  auto vast = httplib::Client(base).Get("/vast/mine.xml");
  ASSERT_TRUE(vast);
  EXPECT_NE(vast->body.find("<VASTAdTagURI>" + base + "/x<"), std::string::npos) << vast->body;
  EXPECT_EQ(bidOf(post(base, "pid=p&aid=mine", "{}"))["adm"], vast->body);
  auto down = post(base, "pid=p&aid=down", "{}");
  EXPECT_EQ(down->status, 503);
  EXPECT_EQ(down->body, "maintenance");

  tool.signal(SIGTERM);
  EXPECT_EQ(tool.finish(), 0);

  test::Subprocess hostile(ZORVA_ADSERVER_EXECUTABLE, {"--hostile", "500-body"});
  first = hostile.readLine();
  ASSERT_TRUE(first.starts_with("zorva-adserver (hostile: 500-body) listening on ")) << first;
  auto answer = post(first.substr(first.rfind(' ') + 1), "pid=p&aid=banner", "{}");
  ASSERT_TRUE(answer);
  EXPECT_EQ(answer->status, 500);
  EXPECT_EQ(Value::parse(answer->body)["seatbid"][0]["bid"][0]["w"], 320);
  hostile.signal(SIGINT);
  EXPECT_EQ(hostile.finish(), 0);
}

}  // namespace
}  // namespace zorva::tools
