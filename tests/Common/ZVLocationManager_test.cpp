#include "Common/ZVLocationManager.h"

#include <zorva/platform/MainQueue.h>

#include <gtest/gtest.h>

#include <vector>

namespace zorva {
namespace {

using platform::AuthorizationStatus;
using platform::Location;
using platform::LocationManager;

struct Fixes {
  std::vector<std::optional<Location>> got;
  ZVLocationManager::LocationCallback callback() {
    return [this](std::optional<Location> fix) { got.push_back(fix); };
  }
};

TEST(ZVLocationManager, DeniedAccessAnswersAtOnceWithNothingAndAsksNoFix) {
  LocationManager::setAuthorizationStatus(AuthorizationStatus::Denied);
  auto manager = ZVLocationManager::create();
  Fixes fixes;
  manager->fetchLocation(fixes.callback());
  ASSERT_EQ(fixes.got.size(), 1u);
  EXPECT_FALSE(fixes.got[0]);
  EXPECT_FALSE(manager->locationManager()->isRequestingLocation());
  // The callback stays stored until a fix or a newer fetch replaces it.
  EXPECT_TRUE(manager->hasPendingCallback());
}

TEST(ZVLocationManager, TheFirstDeliveredFixAnswersOnTheMainQueueOnce) {
  LocationManager::setAuthorizationStatus(AuthorizationStatus::AuthorizedWhenInUse);
  auto manager = ZVLocationManager::create();
  Fixes fixes;
  bool onMain = false;
  manager->fetchLocation([&](std::optional<Location> fix) {
    onMain = platform::MainQueue::shared().isCurrent();
    fixes.got.push_back(fix);
  });
  EXPECT_TRUE(manager->locationManager()->isRequestingLocation());
  LocationManager::deliverLocations({Location(12.97, 77.59), Location(1, 1)});
  EXPECT_TRUE(fixes.got.empty());
  platform::MainQueue::shared().runUntilIdle();
  ASSERT_EQ(fixes.got.size(), 1u);
  EXPECT_EQ(fixes.got[0]->coordinate.latitude, 12.97);
  EXPECT_TRUE(onMain);
  EXPECT_FALSE(manager->hasPendingCallback());

  // A later update (another app's request, say) finds no callback.
  manager->locationManager()->requestLocation();
  LocationManager::deliverLocations({Location(2, 2)});
  platform::MainQueue::shared().runUntilIdle();
  EXPECT_EQ(fixes.got.size(), 1u);

  // An update without a fix still answers, with nothing, so the request build goes on.
  manager->fetchLocation(fixes.callback());
  LocationManager::deliverLocations({});
  platform::MainQueue::shared().runUntilIdle();
  ASSERT_EQ(fixes.got.size(), 2u);
  EXPECT_FALSE(fixes.got[1]);
  EXPECT_FALSE(manager->hasPendingCallback());
}

TEST(ZVLocationManager, ANewFetchReplacesThePendingCallbackAndAPlatformFailureCallsNothing) {
  LocationManager::setAuthorizationStatus(AuthorizationStatus::AuthorizedAlways);
  auto manager = ZVLocationManager::create();
  Fixes first, second;
  manager->fetchLocation(first.callback());
  manager->fetchLocation(second.callback());
  LocationManager::failPendingRequests(Error("kCLErrorDomain", 0));
  platform::MainQueue::shared().runUntilIdle();
  EXPECT_TRUE(second.got.empty());
  ASSERT_TRUE(manager->hasPendingCallback());
  manager->locationManager()->requestLocation();
  LocationManager::deliverLocations({Location(3, 4)});
  platform::MainQueue::shared().runUntilIdle();
  EXPECT_TRUE(first.got.empty());
  ASSERT_EQ(second.got.size(), 1u);
  EXPECT_EQ(second.got[0]->coordinate.longitude, 4);
}

TEST(ZVLocationManager, AFixForAManagerThatIsGoneIsDropped) {
  LocationManager::setAuthorizationStatus(AuthorizationStatus::AuthorizedAlways);
  LocationManager::setSimulatedLocation(Location(5, 6));
  Fixes fixes;
  auto manager = ZVLocationManager::create();
  manager->fetchLocation(fixes.callback());
  manager.reset();
  platform::MainQueue::shared().runUntilIdle();
  EXPECT_TRUE(fixes.got.empty());
}

}  // namespace
}  // namespace zorva
