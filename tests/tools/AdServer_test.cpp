// The loopback ad server through real HTTP clients (cpp-httplib, and the SDK's libcurl stack for
// the wrapper chain), its campaigns file, and the executable run as a subprocess.
#include <expat.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <httplib.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>
#include <zorva/platform/UUID.h>

#include <filesystem>
#include <fstream>
#include <future>

#include "Common/ZVAdLoader.h"
#include "Common/ZVInstanceFactory.h"
#include "Network/ZVNetworkHandler.h"
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

// A VAST document read the way the SDK's reader reads it: text of CDATA sections is dropped, so
// a URL the server wrapped in CDATA would show up here as missing.
struct Element {
  std::string path;
  std::map<std::string, std::string> attributes;
  std::string text;
};
struct Xml {
  std::vector<Element> elements;
  std::vector<std::size_t> open;
  bool inCdata = false;

  static Xml parse(const std::string& text) {
    Xml xml;
    XML_Parser parser = XML_ParserCreate(nullptr);
    XML_SetUserData(parser, &xml);
    XML_SetElementHandler(
        parser,
        [](void* data, const XML_Char* name, const XML_Char** attributes) {
          auto& xml = *static_cast<Xml*>(data);
          std::string parent = xml.open.empty() ? "" : xml.elements[xml.open.back()].path + "/";
          Element element{parent + name, {}, ""};
          for (int i = 0; attributes[i]; i += 2)
            element.attributes[attributes[i]] = attributes[i + 1];
          xml.open.push_back(xml.elements.size());
          xml.elements.push_back(std::move(element));
        },
        [](void* data, const XML_Char*) { static_cast<Xml*>(data)->open.pop_back(); });
    XML_SetCharacterDataHandler(parser, [](void* data, const XML_Char* s, int length) {
      auto& xml = *static_cast<Xml*>(data);
      if (!xml.inCdata) xml.elements[xml.open.back()].text.append(s, length);
    });
    XML_SetCdataSectionHandler(
        parser, [](void* data) { static_cast<Xml*>(data)->inCdata = true; },
        [](void* data) { static_cast<Xml*>(data)->inCdata = false; });
    bool wellFormed = XML_Parse(parser, text.data(), static_cast<int>(text.size()), 1);
    EXPECT_TRUE(wellFormed) << XML_ErrorString(XML_GetErrorCode(parser)) << "\n" << text;
    XML_ParserFree(parser);
    return xml;
  }
  std::vector<const Element*> all(const std::string& suffix) const {
    std::vector<const Element*> found;
    for (const auto& e : elements) {
      if (e.path.ends_with(suffix)) found.push_back(&e);
    }
    return found;
  }
  const Element& one(const std::string& suffix) const {
    auto found = all(suffix);
    EXPECT_EQ(found.size(), 1u) << suffix;
    return *found.at(0);
  }
};

// Impression, Error with the macro, and the five progress trackers, all on the server's /track
// with the document's name.
void expectTracking(const Xml& vast, const std::string& ad, const AdServer& server,
                    const std::string& document) {
  std::string track = server.baseUrl() + "/track?doc=" + document + "&event=";
  EXPECT_EQ(vast.one(ad + "/Impression").text, track + "impression");
  EXPECT_EQ(vast.one(ad + "/Error").text, track + "error&code=[ERRORCODE]");
  std::vector<std::string> events;
  for (const auto* tracking : vast.all(ad + "/Creatives/Creative/Linear/TrackingEvents/Tracking")) {
    events.push_back(tracking->attributes.at("event"));
    EXPECT_EQ(tracking->text, track + events.back());
    EXPECT_EQ(get(tracking->text)->status, 200);
  }
  EXPECT_EQ(events, (std::vector<std::string>{"start", "firstQuartile", "midpoint", "thirdQuartile",
                                              "complete"}));
}

TEST(AdServer, BannerBidEchoesTheRequestAndCarriesSkadnTheSdkReads) {
  auto server = startServer();
  auto result = post(*server, "pid=p1&aid=banner", kBannerRequest.dump());
  Value response = Value::parse(result->body);
  EXPECT_EQ(response["id"], "REQ-1");
  EXPECT_EQ(response["seatbid"][0]["seat"], "zorva");
  Value bid = bidOf(result);
  EXPECT_EQ(bid["impid"], "IMP-1");
  EXPECT_NE(bid["adm"].get<std::string>().find("<a href=\"https://"), std::string::npos);

  const Value& skadn = bid["ext"]["skadn"];
  for (const char* key : {"version", "network", "campaign", "itunesitem", "nonce", "sourceapp",
                          "timestamp", "signature"}) {
    EXPECT_TRUE(skadn.contains(key) && skadn[key].is_string()) << key;
  }
  EXPECT_EQ(skadn["version"], "2.0");
  EXPECT_EQ(skadn["sourceapp"], "987");
  EXPECT_TRUE(platform::UUID::fromString(skadn["nonce"].get<std::string>()));
  auto now = std::chrono::duration_cast<std::chrono::milliseconds>(
      std::chrono::system_clock::now().time_since_epoch());
  EXPECT_NEAR(std::stod(skadn["timestamp"].get<std::string>()), now.count(), 60'000);

  auto ad = ZVAdLoader::readResponse(result->body).ad;
  ASSERT_TRUE(ad);
  EXPECT_EQ(ad->size.width, 320);
  EXPECT_EQ(ad->size.height, 50);
  EXPECT_EQ(ad->skadn, skadn);
  EXPECT_EQ(ad->price, 0.5);

  Value again = bidOf(post(*server, "pid=p1&aid=banner", kBannerRequest.dump()));
  EXPECT_NE(again["id"], bid["id"]);
  EXPECT_NE(again["ext"]["skadn"]["nonce"], skadn["nonce"]);
}

TEST(AdServer, SizesComeFromTheImpressionWhenTheCampaignHasNone) {
  auto server = startServer();
  Value interstitial = {
      {"id", "R"}, {"imp", {{{"id", "I"}, {"banner", {{"w", 320.0}, {"h", 480}, {"pos", 7}}}}}}};
  auto result = post(*server, "pid=p&aid=interstitial", interstitial.dump());
  EXPECT_NE(result->body.find("\"w\":320,\"h\":480"), std::string::npos) << result->body;
  EXPECT_FALSE(bidOf(result).contains("ext"));

  Value video = {{"id", "R"}, {"imp", {{{"id", "I"}, {"video", {{"w", 640}, {"h", 360}}}}}}};
  Value bid = bidOf(post(*server, "pid=p&aid=video", video.dump()));
  EXPECT_EQ(bid["w"], 640);
  EXPECT_EQ(bid["h"], 360);

  // A body that is not JSON is still answered by aid, with an id of the server's own.
  auto blind = post(*server, "pid=p&aid=interstitial", "not json");
  Value response = Value::parse(blind->body);
  EXPECT_TRUE(platform::UUID::fromString(response["id"].get<std::string>()));
  bid = response["seatbid"][0]["bid"][0];
  EXPECT_FALSE(bid.contains("impid") || bid.contains("w") || bid.contains("h"));
  EXPECT_TRUE(bid["adm"].is_string());
}

TEST(AdServer, NoFillBrokenUnknownAndMissingAid) {
  auto server = startServer();
  auto nofill = post(*server, "pid=p&aid=nofill", kBannerRequest.dump());
  EXPECT_EQ(nofill->body, "{}");
  auto read = ZVAdLoader::readResponse(nofill->body);
  EXPECT_FALSE(read.ad || read.error);

  auto broken = post(*server, "pid=p&aid=broken", kBannerRequest.dump());
  EXPECT_EQ(broken->status, 200);
  EXPECT_EQ(broken->get_header_value("Content-Type"), "application/json");
  EXPECT_TRUE(ZVAdLoader::readResponse(broken->body).error);

  EXPECT_EQ(post(*server, "pid=p&aid=no-such-unit", kBannerRequest.dump())->body, "{}");
  EXPECT_EQ(post(*server, "pid=p", kBannerRequest.dump())->status, 400);
}

TEST(AdServer, SlowAnswersAfterItsDelayAndStopCutsTheWaitShort) {
  auto server = startServer({.slowDelay = 400ms});
  EXPECT_FALSE(post(*server, "pid=p&aid=slow", kBannerRequest.dump(), 100ms));
  auto before = std::chrono::steady_clock::now();
  auto late = post(*server, "pid=p&aid=slow", kBannerRequest.dump());
  EXPECT_GE(std::chrono::steady_clock::now() - before, 400ms);
  EXPECT_EQ(bidOf(late)["w"], 320);

  auto hanging = startServer({.slowDelay = 60s});
  auto answer =
      std::async(std::launch::async, [&] { return post(*hanging, "pid=p&aid=slow", "{}", 120s); });
  while (hanging->requests().empty()) std::this_thread::yield();
  before = std::chrono::steady_clock::now();
  hanging->stop();
  answer.get();
  EXPECT_LT(std::chrono::steady_clock::now() - before, 10s);
}

TEST(AdServer, VideoIsAnInLineLinearWhoseMediaTheServerServes) {
  auto server = startServer();
  Xml vast = Xml::parse(bidOf(post(*server, "pid=p&aid=video", "{}"))["adm"]);
  EXPECT_EQ(vast.one("VAST").attributes.at("version"), "3.0");
  const std::string ad = "VAST/Ad/InLine";
  expectTracking(vast, ad, *server, "inline");
  EXPECT_TRUE(vast.one(ad + "/Creatives/Creative/Linear/VideoClicks/ClickThrough")
                  .text.starts_with("https://"));
  const Element& media = vast.one("Linear/MediaFiles/MediaFile");
  EXPECT_EQ(media.attributes.at("type"), "video/mp4");
  ASSERT_EQ(media.text, server->baseUrl() + "/media/zorva.mp4");

  auto mp4 = get(media.text);
  ASSERT_TRUE(mp4);
  EXPECT_EQ(mp4->get_header_value("Content-Type"), "video/mp4");
  EXPECT_EQ(mp4->body.substr(4, 4), "ftyp");
  EXPECT_LT(mp4->body.size(), 200'000u);
  // Media players seek with ranges.
  httplib::Client client(server->baseUrl());
  auto part = client.Get("/media/zorva.mp4", {{"Range", "bytes=4-7"}});
  EXPECT_EQ(part->status, 206);
  EXPECT_EQ(part->body, "ftyp");
}

TEST(AdServer, WrapperChainResolvesToTheInLineThroughTheSdkNetworkStack) {
  auto server = startServer();
  std::string document = bidOf(post(*server, "pid=p&aid=video-wrapper", "{}"))["adm"];
  for (const char* name : {"wrapper1", "wrapper2"}) {
    Xml wrapper = Xml::parse(document);
    expectTracking(wrapper, "VAST/Ad/Wrapper", *server, name);
    std::promise<std::optional<Data>> fetched;
    ZVInstanceFactory::sharedNetworkhandler()->fetchUrlString(
        wrapper.one("Wrapper/VASTAdTagURI").text,
        [&](std::optional<Data> data, std::optional<Error>) { fetched.set_value(data); });
    auto body = fetched.get_future().get();
    ASSERT_TRUE(body) << name;
    document = *body;
  }
  Xml inlined = Xml::parse(document);
  EXPECT_EQ(inlined.one("Linear/MediaFiles/MediaFile").text,
            server->baseUrl() + "/media/zorva.mp4");
  EXPECT_TRUE(inlined.all("VAST/Ad/Wrapper").empty());

  std::vector<std::string> vastFetches;
  for (const auto& r : server->requests()) {
    if (r.path.starts_with("/vast/")) vastFetches.push_back(r.path);
  }
  EXPECT_EQ(vastFetches, (std::vector<std::string>{"/vast/wrapper2.xml", "/vast/inline.xml"}));
}

TEST(AdServer, NonLinearShowsAStaticImageForASuggestedDuration) {
  auto server = startServer();
  Xml vast = Xml::parse(bidOf(post(*server, "pid=p&aid=video-nonlinear", "{}"))["adm"]);
  const Element& nonLinear = vast.one("InLine/Creatives/Creative/NonLinearAds/NonLinear");
  EXPECT_EQ(nonLinear.attributes.at("minSuggestedDuration"), "00:00:05");
  const Element& resource = vast.one("NonLinear/StaticResource");
  EXPECT_EQ(resource.attributes.at("creativeType"), "image/png");
  auto png = get(resource.text);
  ASSERT_TRUE(png);
  EXPECT_EQ(png->get_header_value("Content-Type"), "image/png");
  EXPECT_EQ(png->body.substr(1, 3), "PNG");
  EXPECT_TRUE(vast.all("/Linear").empty());
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
  EXPECT_EQ(server->requests().size(), 3u);
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
  EXPECT_EQ(banner["price"], 7);
  EXPECT_FALSE(banner.contains("ext"));

  auto vast = get(server->baseUrl() + "/vast/mine.xml");
  EXPECT_EQ(Xml::parse(vast->body).one("VASTAdTagURI").text,
            server->baseUrl() + "/vast/inline.xml");
  EXPECT_EQ(bidOf(post(*server, "pid=p&aid=mine", "{}"))["adm"], vast->body);

  auto down = post(*server, "pid=p&aid=down", "{}");
  EXPECT_EQ(down->status, 503);
  EXPECT_EQ(down->body, "maintenance");
  EXPECT_EQ(server->campaignIds().back(), "down");
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
  std::optional<Error> error;
  EXPECT_FALSE(Campaign::loadFile("/nonexistent/campaigns.json", &error));
  EXPECT_EQ(error->code, Campaign::kUnreadableFile);
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

  first->stop();
  auto again = startServer({.host = "127.0.0.2", .port = first->port()});
  EXPECT_EQ(again->baseUrl(), "http://127.0.0.2:" + std::to_string(first->port()));
  EXPECT_EQ(post(*again, "pid=p&aid=nofill", "{}")->body, "{}");
}

// The executable, with its standard output and error on pipes.
class Tool {
 public:
  explicit Tool(std::vector<std::string> args) {
    args.insert(args.begin(), ZORVA_ADSERVER_EXECUTABLE);
    int out[2], err[2];
    EXPECT_EQ(pipe2(out, O_CLOEXEC) | pipe2(err, O_CLOEXEC), 0);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, out[1], 1);
    posix_spawn_file_actions_adddup2(&actions, err[1], 2);
    std::vector<char*> argv;
    for (auto& arg : args) argv.push_back(arg.data());
    argv.push_back(nullptr);
    EXPECT_EQ(posix_spawn(&pid_, argv[0], &actions, nullptr, argv.data(), environ), 0);
    posix_spawn_file_actions_destroy(&actions);
    close(out[1]);
    close(err[1]);
    out_ = out[0];
    err_ = err[0];
  }
  ~Tool() {
    if (pid_ > 0) {
      kill(pid_, SIGKILL);
      waitpid(pid_, nullptr, 0);
    }
    close(out_);
    close(err_);
  }

  /// The next line of standard output, waiting at most 10 s.
  std::string readLine() {
    std::string line;
    char c;
    pollfd fd{out_, POLLIN, 0};
    while (poll(&fd, 1, 10'000) == 1 && read(out_, &c, 1) == 1 && c != '\n') line += c;
    return line;
  }
  /// Waits for the exit; the exit status and the rest of both outputs.
  int finish() {
    int status = 0;
    waitpid(pid_, &status, 0);
    pid_ = 0;
    out = drain(out_);
    err = drain(err_);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  }
  void signal(int number) { kill(pid_, number); }

  std::string out, err;

 private:
  static std::string drain(int fd) {
    std::string text;
    char buffer[4096];
    for (ssize_t n; (n = read(fd, buffer, sizeof(buffer))) > 0;) text.append(buffer, n);
    return text;
  }
  pid_t pid_ = 0;
  int out_ = -1, err_ = -1;
};

TEST(AdServerExecutable, HelpAndBadCommandLines) {
  Tool help({"--help"});
  EXPECT_EQ(help.finish(), 0);
  for (const char* flag : {"--port N", "--host ADDR", "--campaigns FILE", "--slow-ms N"}) {
    EXPECT_NE(help.out.find(flag), std::string::npos) << flag;
  }
  const std::pair<std::vector<std::string>, const char*> bad[] = {
      {{"--verbose"}, "unknown option '--verbose'"},
      {{"--port", "eighty"}, "--port wants a number from 0 to 65535, not 'eighty'"},
      {{"--port=70000"}, "not '70000'"},
      {{"--campaigns"}, "option '--campaigns' needs a value"},
      {{"--host", "192.168.1.2"}, "\"192.168.1.2\" is not a loopback address"},
  };
  for (const auto& [args, message] : bad) {
    Tool tool(args);
    EXPECT_EQ(tool.finish(), 2) << args[0];
    EXPECT_NE(tool.err.find(message), std::string::npos) << tool.err;
    EXPECT_TRUE(tool.out.empty());
  }
}

TEST(AdServerExecutable, StartupFailuresExitWithOne) {
  auto taken = startServer();
  Tool busy({"--port", std::to_string(taken->port())});
  EXPECT_EQ(busy.finish(), 1);
  EXPECT_NE(busy.err.find("cannot listen on 127.0.0.1:" + std::to_string(taken->port()) +
                          ": Address already in use"),
            std::string::npos)
      << busy.err;

  Tool missing({"--campaigns", "/nonexistent/campaigns.json"});
  EXPECT_EQ(missing.finish(), 1);
  EXPECT_NE(missing.err.find("/nonexistent/campaigns.json: cannot read"), std::string::npos);
}

TEST_F(CampaignsFile, ExecutableServesFileCampaignsLogsAndStopsOnSigterm) {
  Tool tool({"--campaigns", write(R"([{"aid": "house", "adm": "<p>house</p>"}])")});
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
