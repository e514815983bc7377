#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <zorva/ZVTypes.h>
#include <zorva/platform/URLSession.h>

namespace zorva {

/// A thin fetcher over the shared URL session. Completions run on the session's worker thread,
/// one at a time, with (body, error): the HTTP status is not looked at, so any answer with a body
/// is a success and only transport failures are errors.
class ZVNetworkHandler {
 public:
  using Completion = std::function<void(std::optional<Data> data, std::optional<Error> error)>;

  /// A handler on the process-wide URL session.
  static std::shared_ptr<ZVNetworkHandler> create();
  virtual ~ZVNetworkHandler() = default;

  const std::shared_ptr<platform::URLSession>& session() const { return session_; }

  /// GET of the URL in `urlString` (an invalid text fails in the transport).
  virtual void fetchUrlString(const std::string& urlString, Completion completion);
  /// GET with the platform's default cache policy and time-out.
  virtual void fetchUrl(const std::optional<platform::URL>& url, Completion completion);
  /// Sends `request`; logs the body at level 3 before calling back.
  virtual void fetchRequest(const platform::URLRequest& request, Completion completion);
  /// (body, HTTP status (0 without an answer), error).
  using StatusCompletion =
      std::function<void(std::optional<Data> data, long status, std::optional<Error> error)>;
  /// `fetchRequest` that also hands over the answer's HTTP status; `fetchRequest` goes through it.
  virtual void fetchRequestWithStatus(const platform::URLRequest& request,
                                      StatusCompletion completion);
  /// Tracking hand-over. With `ZorvaSDK::trackingTransport` off (the default) it deliberately
  /// does nothing: no request is sent. On, the URLs go to the tracking transport, whose thread
  /// stores them just after this returns. `completion` is never called.
  virtual void fetchUrls(const std::vector<std::string>& urls, Completion completion);

 protected:
  explicit ZVNetworkHandler(std::shared_ptr<platform::URLSession> session)
      : session_(std::move(session)) {}

 private:
  std::shared_ptr<platform::URLSession> session_;
};

}  // namespace zorva
