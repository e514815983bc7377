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

/// Refuses a load whose request lacks an id (missing or empty; the SDK would abort on a missing
/// one and send an empty one): emits `failed` with %ZORVA_ERROR_INVALID_REQUEST on the next turn,
/// like the SDK's own failures, never inside the call. False when both ids are there.
bool refuseWithoutIds(const ZVAdRequest& request, const std::shared_ptr<Relay>& relay,
                      guint failed);

/// Emits `failed` (signal id `failed`) on `object` with `error` as a %ZORVA_ERROR.
void emitFailure(gpointer object, guint failed, const platform::Error& error);

/// The `state` property's last notified value, and where its live value is read.
struct StateWatch {
  ZorvaAdState (*live)(gpointer object);
  ZorvaAdState last = ZORVA_AD_STATE_IDLE;
};

/// Tells "state" watchers when the SDK's state moved: now, and again on the next turn, as the SDK
/// moves some states just after telling its delegate.
void syncState(gpointer object, StateWatch& watch, const std::shared_ptr<Relay>& relay);

/// Registers the signals both formats have: "loaded" and "failed" (a GError).
void addLoadSignals(GType type, guint* loaded, guint* failed);

}  // namespace zorva::gobject
