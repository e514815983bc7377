#include "zorva/platform/DeviceProfile.h"

#include "zorva/platform/Application.h"
#include "zorva/platform/Locale.h"
#include "zorva/platform/Screen.h"
#include "zorva/platform/TelephonyNetworkInfo.h"
#include "zorva/platform/ViewController.h"
#include "zorva/platform/Window.h"

namespace zorva::platform {

DeviceProfile DeviceProfile::phone() {
  DeviceProfile profile;
  profile.model = "iPhone";
  profile.systemVersion = "17.0";
  profile.idiom = UserInterfaceIdiom::Phone;
  profile.portraitScreenSize = Size{375, 812};
  profile.scale = 3;
  profile.carrier = Carrier{"Zorva Mobile", "us", "310", "260"};
  return profile;
}

DeviceProfile DeviceProfile::tablet() {
  DeviceProfile profile;
  profile.model = "iPad";
  profile.systemVersion = "17.0";
  profile.idiom = UserInterfaceIdiom::Pad;
  profile.portraitScreenSize = Size{768, 1024};
  profile.scale = 2;
  profile.supportedOrientations = kInterfaceOrientationMaskAll;
  return profile;
}

Rect DeviceProfile::screenBounds() const {
  const Size& s = portraitScreenSize;
  return isLandscape(orientation) ? Rect(0, 0, s.height, s.width) : Rect(0, 0, s.width, s.height);
}

void DeviceProfile::apply() const {
  auto& device = Device::currentDevice();
  device.setModel(model);
  device.setSystemVersion(systemVersion);
  device.setUserInterfaceIdiom(idiom);
  Screen::mainScreen().setBounds(screenBounds());
  Screen::mainScreen().setScale(scale);
  auto& application = Application::shared();
  application.setStatusBarOrientation(orientation);
  application.setSupportedInterfaceOrientations(supportedOrientations);
  for (const auto& window : application.windows()) {
    if (window->windowScene()) window->windowScene()->setInterfaceOrientation(orientation);
  }
  TelephonyNetworkInfo::setSubscriberCarrier(carrier);
  Locale::setPreferredLanguages(preferredLanguages);
}

std::shared_ptr<Window> DeviceProfile::makeKeyWindow(std::shared_ptr<ViewController> root) const {
  auto window = Window::create(screenBounds());
  if (Device::compareVersions(systemVersion, "13.0") >= 0) {
    window->setWindowScene(WindowScene::create(orientation));
  }
  window->setRootViewController(std::move(root));
  window->makeKeyAndVisible();
  return window;
}

}  // namespace zorva::platform
