// The XML reader and the VAST document model beside expat with empty callbacks on the same bytes
// (the limit of any reader on expat), the memory the tree of a 1 MB document holds, and a
// three-level wrapper chain beside three bare libcurl GETs to the same server, made on the calling
// thread and handed to a thread of their own.
#include <malloc.h>

#include <optional>  // before MainQueue.h, which uses std::optional without including it

#include <benchmark/benchmark.h>
#include <curl/curl.h>
#include <expat.h>
#include <zorva/platform/MainQueue.h>

#include <atomic>
#include <chrono>
#include <stdexcept>
#include <string>

#include "Vast/XMLReader.h"
#include "Vast/ZVVast.h"
#include "Vast/ZVVastParser.h"
#include "support/CurlBody.h"
#include "support/HandOff.h"
#include "support/LoopbackServer.h"
#include "support/ProcessCpu.h"
#include "support/Ratio.h"
#include "support/TestEnvironment.h"

namespace {

using zorva::XMLReader;

std::string trackingEvents(const std::string& prefix) {
  std::string xml = "<TrackingEvents>";
  for (const char* event : {"creativeView", "start", "firstQuartile", "midpoint", "thirdQuartile",
                            "complete", "mute", "unmute", "pause", "resume", "fullscreen"}) {
    xml += "<Tracking event=\"" + std::string(event) + "\">https://track.example.com/" + prefix +
           "/" + event + "?cb=1234567890&amp;ad=42</Tracking>\n";
  }
  return xml + "</TrackingEvents>";
}

// One InLine ad as ad servers send them: impressions, an error URL, trackers, several
// renditions and an extension block.
std::string inlineAd(int n) {
  std::string xml = "<Ad id=\"ad-" + std::to_string(n) +
                    "\"><InLine>\n<AdSystem version=\"4.1\">"
                    "Example Ads</AdSystem><AdTitle>Spring campaign 30s</AdTitle>\n"
                    "<Description>A thirty-second spot</Description>\n"
                    "<Error>https://err.example.com/e?code=[ERRORCODE]&amp;ad=42</Error>\n";
  for (int i = 0; i < 4; ++i) {
    xml += "<Impression id=\"i" + std::to_string(i) + "\">https://imp.example.com/p" +
           std::to_string(i) + "?ad=42&amp;cb=1234567890</Impression>\n";
  }
  xml += "<Creatives><Creative id=\"c1\" sequence=\"1\"><Linear>\n<Duration>00:00:30</Duration>\n" +
         trackingEvents("linear") +
         "<VideoClicks><ClickThrough>https://www.example.com/landing?utm_source=vast"
         "</ClickThrough><ClickTracking>https://track.example.com/click</ClickTracking>"
         "</VideoClicks>\n<MediaFiles>\n";
  for (const char* size : {"640\" height=\"360", "1280\" height=\"720", "1920\" height=\"1080"}) {
    for (const char* type : {"video/mp4", "video/webm"}) {
      xml += "<MediaFile delivery=\"progressive\" type=\"" + std::string(type) + "\" width=\"" +
             size +
             "\" bitrate=\"2000\" scalable=\"true\" maintainAspectRatio=\"true\">"
             "https://cdn.example.com/creatives/spring/30s_" +
             std::to_string(n) + ".bin</MediaFile>\n";
    }
  }
  xml +=
      "</MediaFiles></Linear></Creative></Creatives>\n<Extensions><Extension type=\"meta\">"
      "<Meta name=\"campaign\">spring</Meta><Meta name=\"advertiser\">Example</Meta>"
      "</Extension></Extensions>\n</InLine></Ad>\n";
  return xml;
}

// One Wrapper ad as ad servers send them: its own impressions, error URL, trackers, click
// tracking and extensions around the URL of the next document.
std::string wrapperAd(int n, const std::string& next) {
  std::string xml = "<Ad id=\"wrap-" + std::to_string(n) +
                    "\"><Wrapper followAdditionalWrappers=\"true\">\n"
                    "<AdSystem version=\"2.3\">Example Exchange</AdSystem>\n"
                    "<VASTAdTagURI>" +
                    next +
                    "</VASTAdTagURI>\n"
                    "<Error>https://err.example.net/w?code=[ERRORCODE]&amp;w=" +
                    std::to_string(n) + "</Error>\n";
  for (int i = 0; i < 3; ++i) {
    xml += "<Impression id=\"w" + std::to_string(i) + "\">https://imp.example.net/w" +
           std::to_string(n) + "/" + std::to_string(i) +
           "?cb=1234567890&amp;bid=abcdef</Impression>\n";
  }
  xml += "<Creatives><Creative sequence=\"1\"><Linear>\n" + trackingEvents("wrapper") +
         "<VideoClicks><ClickTracking>https://track.example.net/click?w=" + std::to_string(n) +
         "</ClickTracking></VideoClicks>\n</Linear></Creative></Creatives>\n"
         "<Extensions><Extension type=\"waterfall\" fallback_index=\"0\"/>"
         "<Extension type=\"geo\"><Country>FR</Country><Bandwidth>4</Bandwidth></Extension>"
         "</Extensions>\n</Wrapper></Ad>\n";
  return xml;
}

std::string wrapperTo(const std::string& url) {
  return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<VAST version=\"4.0\">\n" +
         wrapperAd(1, url) + "</VAST>\n";
}

std::string documentOfSize(std::size_t size) {
  std::string xml =
      "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<VAST version=\"4.1\" "
      "xmlns=\"http://www.iab.com/VAST\">\n";
  for (int n = 0; xml.size() < size; ++n) xml += inlineAd(n);
  return xml + "</VAST>\n";
}

const std::string& typicalDocument() {
  static const std::string xml = documentOfSize(6 * 1024);
  return xml;
}

const std::string& largeDocument() {
  static const std::string xml = documentOfSize(1024 * 1024);
  return xml;
}

const std::string& wrapperDocument() {
  static const std::string xml = wrapperTo("https://ads.example.net/vast/next?slot=pre");
  return xml;
}

// Heap bytes in use, as the allocator counts them: small blocks and the ones it maps on their own.
std::size_t heapInUse() {
  const auto info = mallinfo2();
  return info.uordblks + info.hblkhd;
}

void readerOn(benchmark::State& state, const std::string& xml) {
  {
    // What holding the tree costs, measured once outside the timed loop.
    const std::size_t before = heapInUse();
    std::optional<zorva::Error> error;
    auto tree = XMLReader::dictionaryForXMLData(xml, XMLReader::kProcessNamespaces, &error);
    const auto held = static_cast<double>(heapInUse() - before);
    state.counters["tree_bytes"] = held;
    state.counters["tree_per_doc_byte"] = held / static_cast<double>(xml.size());
  }
  for (auto _ : state) {
    std::optional<zorva::Error> error;
    auto tree = XMLReader::dictionaryForXMLData(xml, XMLReader::kProcessNamespaces, &error);
    if (!tree) throw std::runtime_error("the benchmark document does not parse");
    benchmark::DoNotOptimize(tree);
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * xml.size()));
}

// Raw expat with empty callbacks: the least reading a document can cost.
void expatReads(const std::string& xml) {
  XML_Parser parser = XML_ParserCreateNS(nullptr, '\x01');
  XML_SetElementHandler(
      parser, [](void*, const XML_Char*, const XML_Char**) {}, [](void*, const XML_Char*) {});
  XML_SetCharacterDataHandler(parser, [](void*, const XML_Char*, int) {});
  const auto status = XML_Parse(parser, xml.data(), static_cast<int>(xml.size()), XML_TRUE);
  XML_ParserFree(parser);
  if (status != XML_STATUS_OK) throw std::runtime_error("the benchmark document does not parse");
}

void expatOn(benchmark::State& state, const std::string& xml) {
  for (auto _ : state) expatReads(xml);
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * xml.size()));
}

// Text to document model, as the VAST parser reads each answer.
void modelOn(benchmark::State& state, const std::string& xml) {
  std::size_t ads = 0;
  for (auto _ : state) {
    std::optional<zorva::Error> error;
    const auto root = XMLReader::dictionaryForXMLData(xml, XMLReader::kProcessNamespaces, &error);
    if (!root || root->find("VAST") == nullptr) {
      throw std::runtime_error("the benchmark document does not parse");
    }
    auto vast = zorva::ZVVast::create((*root)["VAST"]);
    ads = vast->ads.size();
    benchmark::DoNotOptimize(vast);
  }
  state.counters["ads"] = static_cast<double>(ads);
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * xml.size()));
}

void BM_XMLReader_Typical(benchmark::State& state) { readerOn(state, typicalDocument()); }
void BM_Expat_Typical(benchmark::State& state) { expatOn(state, typicalDocument()); }
void BM_XMLReader_1MB(benchmark::State& state) { readerOn(state, largeDocument()); }
void BM_Expat_1MB(benchmark::State& state) { expatOn(state, largeDocument()); }
void BM_XMLReader_Wrapper(benchmark::State& state) { readerOn(state, wrapperDocument()); }
void BM_Expat_Wrapper(benchmark::State& state) { expatOn(state, wrapperDocument()); }
void BM_VastModel_Typical(benchmark::State& state) { modelOn(state, typicalDocument()); }
void BM_VastModel_Wrapper(benchmark::State& state) { modelOn(state, wrapperDocument()); }
void BM_VastModel_1MB(benchmark::State& state) { modelOn(state, largeDocument()); }
BENCHMARK(BM_XMLReader_Typical);
BENCHMARK(BM_Expat_Typical);
BENCHMARK(BM_XMLReader_Wrapper);
BENCHMARK(BM_Expat_Wrapper);
BENCHMARK(BM_XMLReader_1MB);
BENCHMARK(BM_Expat_1MB);
BENCHMARK(BM_VastModel_Typical);
BENCHMARK(BM_VastModel_Wrapper);
BENCHMARK(BM_VastModel_1MB);

struct Chain {
  zorva::test::LoopbackServer server;
  Chain() {
    server.respond("/w1", {200, wrapperTo(server.url("/w2")), "application/xml"});
    server.respond("/w2", {200, wrapperTo(server.url("/w3")), "application/xml"});
    server.respond("/w3",
                   {200, "<VAST version=\"4.0\">" + inlineAd(0) + "</VAST>", "application/xml"});
  }
};

void BM_WrapperChain_3Levels(benchmark::State& state) {
  zorva::test::resetProcessState();
  Chain chain;
  const std::string first = wrapperTo(chain.server.url("/w1"));
  const zorva::bench::ProcessCpu cpu;
  for (auto _ : state) {
    auto done = std::make_shared<std::atomic<bool>>(false);
    zorva::ZVVastParser::create()->parse(
        first, [done](std::shared_ptr<zorva::ZVVast> vast, std::optional<zorva::Error>) {
          if (!vast) throw std::runtime_error("the wrapper chain did not resolve");
          *done = true;
        });
    zorva::test::runMainQueueUntil([&] { return done->load(); });
  }
  cpu.report(state);
}

// The chain's three documents fetched one after the other with one bare curl handle.
class BareGets {
 public:
  BareGets() : curl_(curl_easy_init()) {
    curl_easy_setopt(curl_, CURLOPT_WRITEFUNCTION, zorva::bench::appendToString);
    curl_easy_setopt(curl_, CURLOPT_WRITEDATA, &body_);
    // The encodings the SDK asks for, so that both sides make the same exchanges.
    curl_easy_setopt(curl_, CURLOPT_ACCEPT_ENCODING, "gzip, deflate");
  }
  ~BareGets() { curl_easy_cleanup(curl_); }
  BareGets(const BareGets&) = delete;
  BareGets& operator=(const BareGets&) = delete;

  // Fetches the three documents; `read` has expat read each one as it comes.
  void fetchAll(bool read = false) {
    for (const char* path : {"/w1", "/w2", "/w3"}) {
      body_.clear();
      curl_easy_setopt(curl_, CURLOPT_URL, chain_.server.url(path).c_str());
      if (curl_easy_perform(curl_) != CURLE_OK) throw std::runtime_error("GET failed");
      if (read) expatReads(body_);
    }
  }
  // The wrapper the chain starts from, as the SDK's benchmark gives it to the parser.
  std::string firstDocument() const { return wrapperTo(chain_.server.url("/w1")); }

 private:
  Chain chain_;
  std::string body_;
  CURL* curl_;
};

void BM_BareCurl_3Gets(benchmark::State& state) {
  BareGets gets;
  const zorva::bench::ProcessCpu cpu;
  for (auto _ : state) gets.fetchAll();
  cpu.report(state);
}

// The three GETs made on a thread of its own while the calling thread sleeps: the chain's two
// wake-ups (its first fetch handed to the network thread, its result to the main queue). `read`
// has raw expat read the first document on the calling thread and each fetched one on the
// network thread, where the parser reads them.
void handedOverGets(benchmark::State& state, bool read) {
  BareGets gets;
  const std::string first = gets.firstDocument();
  zorva::bench::HandOff handOff;
  const zorva::bench::ProcessCpu cpu;
  for (auto _ : state) {
    if (read) expatReads(first);
    handOff.run([&] { gets.fetchAll(read); });
  }
  cpu.report(state);
}
// Without the SDK's reading of the documents.
void BM_BareCurl_3GetsHandedOver(benchmark::State& state) { handedOverGets(state, false); }
// The least any client resolving the chain can cost.
void BM_BareCurl_3GetsReadHandedOver(benchmark::State& state) { handedOverGets(state, true); }
BENCHMARK(BM_WrapperChain_3Levels)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_BareCurl_3Gets)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_BareCurl_3GetsHandedOver)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_BareCurl_3GetsReadHandedOver)->Unit(benchmark::kMicrosecond);

[[maybe_unused]] const bool ratios =
    zorva::bench::reportRatio("BM_XMLReader_Typical", "BM_Expat_Typical") &&
    zorva::bench::reportRatio("BM_XMLReader_Wrapper", "BM_Expat_Wrapper") &&
    zorva::bench::reportRatio("BM_XMLReader_1MB", "BM_Expat_1MB") &&
    zorva::bench::reportRatio("BM_VastModel_Typical", "BM_Expat_Typical") &&
    zorva::bench::reportRatio("BM_VastModel_Wrapper", "BM_Expat_Wrapper") &&
    zorva::bench::reportRatio("BM_VastModel_1MB", "BM_Expat_1MB") &&
    zorva::bench::reportRatio("BM_WrapperChain_3Levels", "BM_BareCurl_3Gets") &&
    zorva::bench::reportRatio("BM_WrapperChain_3Levels", "BM_BareCurl_3GetsHandedOver") &&
    zorva::bench::reportRatio("BM_BareCurl_3GetsHandedOver", "BM_BareCurl_3Gets") &&
    zorva::bench::reportRatio("BM_WrapperChain_3Levels", "BM_BareCurl_3GetsReadHandedOver") &&
    zorva::bench::reportRatio("BM_BareCurl_3GetsReadHandedOver", "BM_BareCurl_3Gets");

}  // namespace
