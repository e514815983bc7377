#include "zorva-demo/DemoHost.h"

#include <zorva/ZorvaSDK.h>
#include <zorva/platform/Bundle.h>
#include <zorva/platform/DeviceProfile.h>
#include <zorva/platform/HeadlessMediaEngine.h>
#include <zorva/platform/HeadlessWebEngine.h>
#include <zorva/platform/ViewController.h>
#include <zorva/platform/Window.h>

namespace zorva::demo {

DemoHost::DemoHost() {
  const auto profile = platform::DeviceProfile::phone();
  profile.apply();
  root_ = platform::ViewController::create();
  window_ = profile.makeKeyWindow(root_);

  platform::Value skadnetworkItems = platform::Value::array();
  for (const char* id : kSKAdNetworkIds)
    skadnetworkItems.push_back({{"SKAdNetworkIdentifier", id}});
  platform::Bundle::mainBundle().setInfoDictionary({
      {"CFBundleIdentifier", "io.zorva.demo"},
      {"CFBundleName", "ZorvaDemo"},
      {"CFBundleDisplayName", "Zorva Demo"},
      {"CFBundleShortVersionString", "1.0"},
      {"SKAdNetworkItems", std::move(skadnetworkItems)},
  });

  auto settings = ZorvaSDK::shared();
  settings->setStoreURL(platform::URL::URLWithString("https://apps.apple.com/app/id1234567890"));
  settings->setAppkeywords("demo,tour");
  // A location the app knows already, so no load waits for a fix.
  settings->setLocation(platform::Location(52.52, 13.405));

  // No display and no decoder here: pages "load" and videos "play" in the headless engines,
  // driven by the main queue's clock.
  platform::HeadlessWebEngine::setAutomaticByDefault(true);
  platform::HeadlessMediaEngine::setAutomaticByDefault(true);
  platform::HeadlessMediaEngine::setAutomaticDuration(kMediaSeconds);
}

DemoHost::~DemoHost() { window_->setRootViewController(nullptr); }

std::string DemoHost::deviceDescription() const {
  const auto profile = platform::DeviceProfile::phone();
  char size[48];
  std::snprintf(size, sizeof size, "%.0fx%.0f points", profile.portraitScreenSize.width,
                profile.portraitScreenSize.height);
  return profile.model + ", system " + profile.systemVersion + ", " + size + ", portrait";
}

}  // namespace zorva::demo
