#pragma once

#include <memory>

#include "zorva/platform/SafariViewControllerDelegate.h"
#include "zorva/platform/URL.h"
#include "zorva/platform/ViewController.h"

namespace zorva::platform {

/// The in-app browser, open on one web address. It shows nothing here: the controller records
/// its URL, and a host (or a test) plays the user closing it with `finish`. Main thread only.
class SafariViewController : public ViewController {
 public:
  /// A browser on `url`, or null when the URL is not http or https: the phone platform refuses
  /// other schemes (it raises), and here the refusal is an absent controller.
  static std::shared_ptr<SafariViewController> create(const URL& url);

  const URL& url() const { return url_; }

  std::shared_ptr<SafariViewControllerDelegate> delegate() const { return delegate_.lock(); }
  /// Held weakly.
  void setDelegate(std::weak_ptr<SafariViewControllerDelegate> delegate) {
    delegate_ = std::move(delegate);
  }

  /// The user tapped Done: the browser takes itself down from its presenter, then the
  /// delegate hears `safariViewControllerDidFinish`.
  void finish();

 private:
  explicit SafariViewController(URL url) : url_(std::move(url)) {}

  URL url_;
  std::weak_ptr<SafariViewControllerDelegate> delegate_;
};

}  // namespace zorva::platform
