#include "Common/ZVAdLoader.h"

#include <zorva/ZorvaSDK.h>
#include <zorva/platform/JSONSerialization.h>
#include <zorva/platform/MainQueue.h>
#include <zorva/platform/Text.h>

#include "Common/Exception.h"
#include "Common/ZVInstanceFactory.h"
#include "Common/ZVLog.h"
#include "Common/ZVUtility.h"
#include "Common/ZorvaAdBuilder.h"
#include "Network/ZVNetworkHandler.h"

namespace zorva {

std::shared_ptr<ZVAdLoader> ZVAdLoader::create(std::shared_ptr<ZVAdLoaderConfig> config) {
  return std::shared_ptr<ZVAdLoader>(new ZVAdLoader(std::move(config)));
}

std::shared_ptr<ZVAdLoaderDelegate> ZVAdLoader::delegate() const {
  std::lock_guard lock(mutex_);
  return delegate_.lock();
}

void ZVAdLoader::setDelegate(std::weak_ptr<ZVAdLoaderDelegate> delegate) {
  std::lock_guard lock(mutex_);
  delegate_ = std::move(delegate);
}

std::shared_ptr<ZVRequestBuilding> ZVAdLoader::requestBuilder() const {
  std::lock_guard lock(mutex_);
  return requestBuilder_;
}

void ZVAdLoader::setRequestBuilder(std::shared_ptr<ZVRequestBuilding> builder) {
  std::lock_guard lock(mutex_);
  requestBuilder_ = std::move(builder);
}

void ZVAdLoader::load() {
  auto builder = requestBuilder();
  if (!builder) return;
  std::weak_ptr<ZVAdLoader> weakSelf = weak_from_this();
  builder->build(
      [weakSelf](std::optional<platform::URLRequest> request, std::optional<Error> error) {
        auto self = weakSelf.lock();
        if (!self) return;
        if (error) {
          // Building failures go to the delegate on the builder's thread (see tellFailure).
          self->tellFailure(*error);
          return;
        }
        // A builder that answers with neither sends a request without a URL, which the transport
        // turns into an error.
        if (request) {
          self->makeRequest(*request);
        } else {
          self->makeRequest(platform::URLRequest());
        }
      });
}

void ZVAdLoader::makeRequest(const platform::URLRequest& request) {
  std::weak_ptr<ZVAdLoader> weakSelf = weak_from_this();
  ZVInstanceFactory::sharedNetworkhandler()->fetchRequestWithStatus(
      request, [weakSelf](std::optional<Data> data, long status, std::optional<Error> error) {
        auto self = weakSelf.lock();
        if (!self) return;
        if (error) {
          ZV_LOG(1, "-[ZVAdLoader makeRequest:]_block_invoke", "\nError - %s\n",
                 error->localizedDescription().c_str());
          // Transport failures are reported right here, on the session's thread (see
          // tellFailure).
          self->tellFailure(*error);
          return;
        }
        Data body = std::move(data).value_or(Data());
        if (ZVLog::level() >= 3) {
          ZV_LOG(3, "-[ZVAdLoader makeRequest:]_block_invoke", "\nResponse - %s\n",
                 platform::describe(platform::stringFromUTF8Data(body)).c_str());
        }
        auto settings = ZorvaSDK::shared();
        ResponseReading reading;
        if (status >= 400 && settings->httpStatusAsFailure()) {
          reading.error = ZVUtility::httpStatusError(status);
        } else {
          const bool noBody = body.empty();
          reading = readResponse(std::move(body));
          if (settings->noFillAsFailure()) reading = noFillAsFailure(noBody, std::move(reading));
        }
        // The queued work holds the loader; the delegate is read when it runs.
        platform::MainQueue::shared().post([self, reading = std::move(reading)] {
          auto delegate = self->delegate();
          if (!delegate) return;
          if (reading.error) {
            delegate->didFailToReceivedAd(*reading.error);
          } else {
            delegate->didReceiveAd(reading.ad);
          }
        });
      });
}

// Failures are told on the calling thread, or on the main queue when the app asks for it.
void ZVAdLoader::tellFailure(const Error& error) {
  if (!ZorvaSDK::shared()->callbacksOnMainQueue()) {
    if (auto delegate = this->delegate()) delegate->didFailToReceivedAd(error);
    return;
  }
  // Like the response's outcomes: the queued work holds the loader, the delegate is read then.
  platform::MainQueue::shared().post([self = shared_from_this(), error] {
    if (auto delegate = self->delegate()) delegate->didFailToReceivedAd(error);
  });
}

ZVAdLoader::ResponseReading ZVAdLoader::noFillAsFailure(bool noBody, ResponseReading reading) {
  // No body (HTTP 204) is no bid too, not JSON the parser could not read.
  if (noBody || (!reading.ad && !reading.error)) return {nullptr, ZVUtility::noFillError()};
  return reading;
}

ZVAdLoader::ResponseReading ZVAdLoader::readResponse(Data data) {
  try {
    std::optional<Error> parseError;
    auto json = platform::JSONSerialization::JSONObjectWithData(
        std::move(data),
        platform::JSONSerialization::MutableContainers |
            platform::JSONSerialization::FragmentsAllowed,
        &parseError);
    if (!json) return {nullptr, std::move(parseError)};
    auto builder = ZorvaAdBuilder::create();
    builder->setJson(std::move(*json));
    return {builder->buildTakingJson(), std::nullopt};
  } catch (const Exception& exception) {
    Value info = Value::object();
    info["ExceptionName"] = exception.name();
    info["ExceptionReason"] = exception.reason();
    return {nullptr, ZVUtility::errorWithCode(0, info.dump())};
  }
}

}  // namespace zorva
