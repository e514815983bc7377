#include "zorva/platform/Bundle.h"

#include <dlfcn.h>

#include <filesystem>

namespace zorva::platform {

Bundle& Bundle::mainBundle() {
  static Bundle* bundle = new Bundle();
  return *bundle;
}

std::shared_ptr<Bundle> Bundle::bundleForAddress(const void* address) {
  Dl_info info{};
  if (!dladdr(address, &info) || !info.dli_fname) return nullptr;
  std::error_code error;
  auto file = std::filesystem::canonical(info.dli_fname, error);
  if (error) return nullptr;
  static std::mutex bundlesMutex;
  static auto* bundles = new std::map<std::string, std::shared_ptr<Bundle>>();
  std::lock_guard lock(bundlesMutex);
  auto& bundle = (*bundles)[file.parent_path().string()];
  if (!bundle) bundle.reset(new Bundle(file.parent_path().string()));
  return bundle;
}

std::optional<std::string> Bundle::pathForResource(const std::string& name,
                                                   const std::string& type) const {
  if (path_.empty() || name.empty()) return std::nullopt;
  auto file = std::filesystem::path(path_) / (type.empty() ? name : name + "." + type);
  std::error_code error;
  if (!std::filesystem::is_regular_file(file, error)) return std::nullopt;
  return file.string();
}

Value Bundle::infoDictionary() const {
  std::lock_guard lock(mutex_);
  return info_;
}

void Bundle::setInfoDictionary(Value info) {
  std::lock_guard lock(mutex_);
  info_ = info.is_object() ? std::move(info) : Value::object();
  ++infoGeneration_;
}

Value Bundle::localizedInfoDictionary() const {
  std::lock_guard lock(mutex_);
  return localizedInfo_;
}

void Bundle::setLocalizedInfoDictionary(Value info) {
  std::lock_guard lock(mutex_);
  localizedInfo_ = info.is_object() ? std::move(info) : Value::object();
  ++infoGeneration_;
}

Value Bundle::infoDictionaryValue(const std::string& key) const {
  std::lock_guard lock(mutex_);
  auto it = info_.find(key);
  return it == info_.end() ? Value() : *it;
}

Value Bundle::localizedInfoDictionaryValue(const std::string& key) const {
  std::lock_guard lock(mutex_);
  auto it = localizedInfo_.find(key);
  return it == localizedInfo_.end() ? Value() : *it;
}

std::uint64_t Bundle::infoGeneration() const {
  std::lock_guard lock(mutex_);
  return infoGeneration_;
}

Value Bundle::objectForInfoDictionaryKey(const std::string& key) const {
  std::lock_guard lock(mutex_);
  if (auto it = localizedInfo_.find(key); it != localizedInfo_.end()) return *it;
  if (auto it = info_.find(key); it != info_.end()) return *it;
  return nullptr;
}

std::optional<std::string> Bundle::bundleIdentifier() const {
  std::lock_guard lock(mutex_);
  auto it = info_.find("CFBundleIdentifier");
  if (it == info_.end() || !it->is_string()) return std::nullopt;
  return it->get<std::string>();
}

std::string Bundle::localizedStringForKey(const std::string& key, const std::string& value,
                                          const std::string& table) const {
  std::lock_guard lock(mutex_);
  auto t = tables_.find(table.empty() ? "Localizable" : table);
  if (t != tables_.end()) {
    if (auto s = t->second.find(key); s != t->second.end()) return s->second;
  }
  return value.empty() ? key : value;
}

void Bundle::setStringsTable(const std::string& table, std::map<std::string, std::string> strings) {
  std::lock_guard lock(mutex_);
  tables_[table.empty() ? "Localizable" : table] = std::move(strings);
}

void Bundle::reset() {
  std::lock_guard lock(mutex_);
  info_ = Value::object();
  localizedInfo_ = Value::object();
  ++infoGeneration_;
  tables_.clear();
}

}  // namespace zorva::platform
