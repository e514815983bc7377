// What the banner and the interstitial share: the engines' start-up, the errors and states told
// in GLib's terms, the request's fields as properties, and the relay that carries the SDK's
// callbacks to the object's signals.
#pragma once

#include <zorva/ZVAdRequest.h>
#include <zorva/platform/Error.h>

#include <functional>
#include <memory>

#include "zorva-gobject/zorva.h"

namespace zorva::gobject {

/// Installs WebKitGTK, GStreamer and the GLib main loop bridge, once per process; later calls
/// do nothing. Warns when an engine cannot start.
void installEngines();

/// A %ZORVA_ERROR error for a failure the SDK reports; the original's domain, code and
/// description in the message.
GError* toGError(const platform::Error& error);

/// The SDK's state numbers (0 to 3) of a banner or an interstitial.
ZorvaAdState toAdState(long state, bool interstitial);

/// Where an ad object's delegate sends what it hears. The object is held by a GWeakRef, which
/// GObject clears when the object is disposed, so a callback that arrives later (a failure posted
/// from the network thread, say) emits nothing. Callbacks from another thread hop to the main
/// queue.
class Relay : public std::enable_shared_from_this<Relay> {
 public:
  explicit Relay(gpointer object);
  ~Relay();
  Relay(const Relay&) = delete;
  Relay& operator=(const Relay&) = delete;

  /// Runs `emit` with the object on the main thread, unless it has been disposed by then.
  void send(std::function<void(gpointer object)> emit);

 private:
  GWeakRef object_;
};

/// The property ids every ad object has, in the order its class installs them first.
enum RequestProperty : guint {
  kPublisherId = 1,
  kAdUnitId,
  kServerUrl,
  kNetworkTimeout,
  kState,
  kFirstOwnProperty,
};

/// Installs the request's properties and `state` on an ad object's class.
void installRequestProperties(GObjectClass* klass);
/// Sets or reads a request property; false for an id that is not one.
bool setRequestProperty(ZVAdRequest& request, guint id, const GValue* value);
bool getRequestProperty(const ZVAdRequest& request, guint id, GValue* value);

/// The invalid-request error of a request without its ids (the SDK would abort on it); null when
/// both are set.
GError* missingIds(const ZVAdRequest& request);

/// Registers the signals both formats have: "loaded" and "failed" (a GError).
void addLoadSignals(GType type, guint* loaded, guint* failed);

}  // namespace zorva::gobject
