#include "zorva/platform/Device.h"

#include <charconv>

namespace zorva::platform {

namespace {

// Splits off the next dotted component as a number; a non-number counts as 0.
long nextComponent(std::string_view& rest) {
  auto dot = rest.find('.');
  auto part = rest.substr(0, dot);
  rest = dot == std::string_view::npos ? std::string_view() : rest.substr(dot + 1);
  long value = 0;
  auto [end, error] = std::from_chars(part.data(), part.data() + part.size(), value);
  if (error != std::errc() || end != part.data() + part.size()) return 0;
  return value;
}

}  // namespace

Device& Device::currentDevice() {
  static Device* device = new Device();
  return *device;
}

Device::Device() : model_("iPhone"), systemVersion_("17.0") {}

std::string Device::model() const {
  std::lock_guard lock(mutex_);
  return model_;
}

void Device::setModel(std::string model) {
  std::lock_guard lock(mutex_);
  model_ = std::move(model);
}

std::string Device::systemVersion() const {
  std::lock_guard lock(mutex_);
  return systemVersion_;
}

void Device::setSystemVersion(std::string version) {
  std::lock_guard lock(mutex_);
  systemVersion_ = std::move(version);
}

UserInterfaceIdiom Device::userInterfaceIdiom() const {
  std::lock_guard lock(mutex_);
  return idiom_;
}

void Device::setUserInterfaceIdiom(UserInterfaceIdiom idiom) {
  std::lock_guard lock(mutex_);
  idiom_ = idiom;
}

std::optional<UUID> Device::identifierForVendor() const {
  std::lock_guard lock(mutex_);
  return identifierForVendor_;
}

void Device::setIdentifierForVendor(std::optional<UUID> identifier) {
  std::lock_guard lock(mutex_);
  identifierForVendor_ = identifier;
}

std::optional<std::string> Device::make() const {
  std::lock_guard lock(mutex_);
  return make_;
}

void Device::setMake(std::optional<std::string> make) {
  std::lock_guard lock(mutex_);
  make_ = std::move(make);
}

std::optional<std::string> Device::systemName() const {
  std::lock_guard lock(mutex_);
  return systemName_;
}

void Device::setSystemName(std::optional<std::string> name) {
  std::lock_guard lock(mutex_);
  systemName_ = std::move(name);
}

std::optional<int> Device::openRTBDeviceType() const {
  std::lock_guard lock(mutex_);
  return openRTBDeviceType_;
}

void Device::setOpenRTBDeviceType(std::optional<int> type) {
  std::lock_guard lock(mutex_);
  openRTBDeviceType_ = type;
}

bool Device::systemVersionAtLeast(std::string_view version) const {
  return compareVersions(systemVersion(), version) >= 0;
}

int Device::compareVersions(std::string_view a, std::string_view b) {
  while (!a.empty() || !b.empty()) {
    long x = nextComponent(a);
    long y = nextComponent(b);
    if (x != y) return x < y ? -1 : 1;
  }
  return 0;
}

}  // namespace zorva::platform
