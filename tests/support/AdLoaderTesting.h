#pragma once

// A loader's load with the request builder and the delegate in the test's hands.

#include <zorva/platform/MainQueue.h>

#include <mutex>
#include <thread>

#include "Common/ZVAdLoader.h"
#include "support/TestEnvironment.h"

namespace zorva::test {

/// Hands the loader a fixed POST, or fails on a thread of its own.
class FixedRequestBuilder : public ZVRequestBuilding {
 public:
  explicit FixedRequestBuilder(std::string url, double timeout = 10) {
    request_.url = platform::URL::URLWithString(url);
    request_.HTTPMethod = "POST";
    request_.HTTPBody = R"({"id":"req"})";
    request_.timeoutInterval = timeout;
  }
  std::optional<Error> failure;
  std::thread::id failureThread;

  void build(Completion completion) override {
    if (!failure) {
      completion(request_, std::nullopt);
      return;
    }
    std::thread worker([this, completion] {
      failureThread = std::this_thread::get_id();
      completion(std::nullopt, failure);
    });
    worker.join();
  }

 private:
  platform::URLRequest request_;
};

/// Notes each call, and where it came from.
class RecordingLoaderDelegate : public ZVAdLoaderDelegate {
 public:
  void didReceiveAd(std::shared_ptr<ZorvaAd> ad) override {
    record([&] { this->ad = std::move(ad); });
  }
  void didFailToReceivedAd(const Error& e) override {
    record([&] { error = e; });
  }

  bool done() const {
    std::lock_guard lock(mutex);
    return calls > 0;
  }
  // Waits for the first call, running the main queue meanwhile.
  bool waitForCall() {
    return test::runMainQueueUntil([this] { return done(); });
  }

  mutable std::mutex mutex;
  int calls = 0;
  std::shared_ptr<ZorvaAd> ad;
  std::optional<Error> error;
  bool onMainQueue = false;
  std::thread::id thread;

 private:
  template <typename F>
  void record(F&& f) {
    std::lock_guard lock(mutex);
    ++calls;
    onMainQueue = platform::MainQueue::shared().isCurrent();
    thread = std::this_thread::get_id();
    f();
  }
};

/// A loader wired to `builder`, heard by a recording delegate.
struct Load {
  std::shared_ptr<ZVAdLoader> loader = ZVAdLoader::create(std::make_shared<ZVAdLoaderConfig>());
  std::shared_ptr<RecordingLoaderDelegate> delegate = std::make_shared<RecordingLoaderDelegate>();
  std::shared_ptr<FixedRequestBuilder> builder;

  explicit Load(std::shared_ptr<FixedRequestBuilder> b) : builder(std::move(b)) {
    loader->setDelegate(delegate);
    loader->setRequestBuilder(builder);
  }
};

}  // namespace zorva::test
