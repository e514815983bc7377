#include "Network/ZVNetworkHandler.h"

#include <zorva/ZorvaSDK.h>
#include <zorva/platform/Text.h>

#include "Common/ZVLog.h"
#include "Network/ZVTrackingTransport.h"

namespace zorva {

std::shared_ptr<ZVNetworkHandler> ZVNetworkHandler::create() {
  return std::shared_ptr<ZVNetworkHandler>(
      new ZVNetworkHandler(platform::URLSession::sharedSession()));
}

void ZVNetworkHandler::fetchUrlString(const std::string& urlString, Completion completion) {
  fetchUrl(platform::URL::URLWithString(urlString), std::move(completion));
}

void ZVNetworkHandler::fetchUrl(const std::optional<platform::URL>& url, Completion completion) {
  fetchRequest(platform::URLRequest(url), std::move(completion));
}

void ZVNetworkHandler::fetchRequest(const platform::URLRequest& request, Completion completion) {
  fetchRequestWithStatus(request, [completion = std::move(completion)](
                                      std::optional<Data> data, long, std::optional<Error> error) {
    if (completion) completion(std::move(data), std::move(error));
  });
}

void ZVNetworkHandler::fetchRequestWithStatus(const platform::URLRequest& request,
                                              StatusCompletion completion) {
  auto task = session_->dataTaskWithRequest(
      request, [completion = std::move(completion)](
                   std::optional<Data> data, std::optional<platform::HTTPURLResponse> response,
                   std::optional<Error> error) {
        if (ZVLog::level() >= 3) {
          const auto text = data ? platform::stringFromUTF8Data(*data) : std::nullopt;
          ZV_LOG(3, "-[ZVNetworkHandler fetchRequest:completion:]_block_invoke", "%s",
                 platform::describe(text).c_str());
        }
        if (completion)
          completion(std::move(data), response ? response->statusCode : 0, std::move(error));
      });
  task->resume();
}

void ZVNetworkHandler::fetchUrls(const std::vector<std::string>& urls, Completion) {
  if (urls.empty() || !ZorvaSDK::shared()->trackingTransport()) return;
  auto transport = ZVTrackingTransport::running();
  if (!transport) return;
  // Only web URLs are kept for sending: the session would refuse any other at every attempt.
  // (Text that is no URL at all is the transport's to drop.)
  std::vector<std::string> web;
  web.reserve(urls.size());
  for (const auto& url : urls) {
    const auto parsed = platform::URL::URLWithString(url);
    if (parsed && !parsed->isWeb()) {
      ZV_LOG(1, "-[ZVNetworkHandler fetchUrls:completion:]",
             "dropped a tracking URL that is not http or https: %s", url.c_str());
    } else {
      web.push_back(url);
    }
  }
  if (!web.empty()) transport->send(web);
}

}  // namespace zorva
