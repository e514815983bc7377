#include "zorva/platform/Bundle.h"

namespace zorva::platform {

Bundle& Bundle::mainBundle() {
  static Bundle* bundle = new Bundle();
  return *bundle;
}

Value Bundle::infoDictionary() const {
  std::lock_guard lock(mutex_);
  return info_;
}

void Bundle::setInfoDictionary(Value info) {
  std::lock_guard lock(mutex_);
  info_ = info.is_object() ? std::move(info) : Value::object();
}

Value Bundle::localizedInfoDictionary() const {
  std::lock_guard lock(mutex_);
  return localizedInfo_;
}

void Bundle::setLocalizedInfoDictionary(Value info) {
  std::lock_guard lock(mutex_);
  localizedInfo_ = info.is_object() ? std::move(info) : Value::object();
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
  tables_.clear();
}

}  // namespace zorva::platform
