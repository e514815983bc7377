#pragma once

#include <condition_variable>
#include <functional>
#include <mutex>
#include <thread>

namespace zorva::bench {

/// A second baseline for exchanges the SDK runs on its network thread and answers on the main
/// thread: `run` hands the work to a thread of its own and sleeps until that thread is done, so
/// the baseline pays the same two wake-ups of a sleeping thread (there and back) and nothing else.
class HandOff {
 public:
  HandOff() : thread_([this] { loop(); }) {}

  ~HandOff() {
    {
      std::lock_guard lock(mutex_);
      stopping_ = true;
    }
    workReady_.notify_one();
    thread_.join();
  }

  HandOff(const HandOff&) = delete;
  HandOff& operator=(const HandOff&) = delete;

  void run(std::function<void()> work) {
    {
      std::lock_guard lock(mutex_);
      work_ = std::move(work);
      done_ = false;
    }
    workReady_.notify_one();
    std::unique_lock lock(mutex_);
    workDone_.wait(lock, [this] { return done_; });
  }

 private:
  void loop() {
    std::unique_lock lock(mutex_);
    for (;;) {
      workReady_.wait(lock, [this] { return work_ || stopping_; });
      if (stopping_) return;
      auto work = std::move(work_);
      work_ = nullptr;
      lock.unlock();
      work();
      lock.lock();
      done_ = true;
      lock.unlock();
      workDone_.notify_one();
      lock.lock();
    }
  }

  std::mutex mutex_;
  std::condition_variable workReady_;
  std::condition_variable workDone_;
  std::function<void()> work_;
  bool done_ = false;
  bool stopping_ = false;
  std::thread thread_;
};

}  // namespace zorva::bench
