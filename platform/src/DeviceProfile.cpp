#include "zorva/platform/DeviceProfile.h"

#include <sys/utsname.h>

#include <atomic>
#include <cctype>
#include <fstream>

#include "zorva/platform/Application.h"
#include "zorva/platform/Locale.h"
#include "zorva/platform/Screen.h"
#include "zorva/platform/TelephonyNetworkInfo.h"
#include "zorva/platform/ViewController.h"
#include "zorva/platform/Window.h"

namespace zorva::platform {

namespace {

// The first line of a firmware file, without trailing blanks or NULs (the device tree ends its
// strings with one); empty when the file is missing or unreadable.
std::string firmwareText(const char* path) {
  std::ifstream in(path, std::ios::binary);
  std::string text;
  std::getline(in, text);
  while (!text.empty() &&
         (text.back() == '\0' || std::isspace(static_cast<unsigned char>(text.back())))) {
    text.pop_back();
  }
  return text;
}

DeviceProfile linuxMachine(int openRTBDeviceType, UserInterfaceIdiom idiom) {
  DeviceProfile profile;
  // PCs describe themselves through DMI; boards without it (most set-top boxes) through the
  // device tree, whose model names maker and board together.
  std::string make = firmwareText("/sys/class/dmi/id/sys_vendor");
  std::string model = firmwareText("/sys/class/dmi/id/product_name");
  if (model.empty()) model = firmwareText("/proc/device-tree/model");
  profile.make = make.empty() ? "unknown" : make;
  profile.model = model.empty() ? "unknown" : model;
  profile.systemName = "Linux";
  utsname system{};
  profile.systemVersion = uname(&system) == 0 ? system.release : "";
  profile.idiom = idiom;
  profile.openRTBDeviceType = openRTBDeviceType;
  profile.portraitScreenSize = Size{1080, 1920};
  profile.orientation = InterfaceOrientation::LandscapeLeft;
  profile.supportedOrientations = kInterfaceOrientationMaskLandscape;
  return profile;
}

}  // namespace

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

DeviceProfile DeviceProfile::desktop() { return linuxMachine(2, UserInterfaceIdiom::Unspecified); }

DeviceProfile DeviceProfile::tv() { return linuxMachine(3, UserInterfaceIdiom::TV); }

DeviceProfile DeviceProfile::setTopBox() { return linuxMachine(7, UserInterfaceIdiom::TV); }

Rect DeviceProfile::screenBounds() const {
  const Size& s = portraitScreenSize;
  return isLandscape(orientation) ? Rect(0, 0, s.height, s.width) : Rect(0, 0, s.width, s.height);
}

namespace {
std::atomic<bool> applied{false};
}  // namespace

bool DeviceProfile::anyApplied() { return applied; }

void DeviceProfile::forgetApplied() { applied = false; }

void DeviceProfile::apply() const {
  applied = true;
  auto& device = Device::currentDevice();
  device.setModel(model);
  device.setSystemVersion(systemVersion);
  device.setUserInterfaceIdiom(idiom);
  device.setMake(make);
  device.setSystemName(systemName);
  device.setOpenRTBDeviceType(openRTBDeviceType);
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
