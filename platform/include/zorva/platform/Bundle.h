#pragma once

#include <map>
#include <mutex>
#include <optional>
#include <string>

#include "zorva/platform/Value.h"

namespace zorva::platform {

/// The host application's bundle: its information dictionary (what an app's property list holds:
/// "CFBundleDisplayName", "CFBundleShortVersionString", "SKAdNetworkItems"...), its localized
/// information dictionary and its string tables. The host fills it at start-up; tests set it per
/// case. Thread-safe.
class Bundle {
 public:
  static Bundle& mainBundle();

  Value infoDictionary() const;
  void setInfoDictionary(Value info);
  Value localizedInfoDictionary() const;
  void setLocalizedInfoDictionary(Value info);

  /// The localized value for `key` when there is one, else the information dictionary's value,
  /// else null.
  Value objectForInfoDictionaryKey(const std::string& key) const;
  /// "CFBundleIdentifier" of the information dictionary.
  std::optional<std::string> bundleIdentifier() const;

  /// The translation of `key` in `table` ("Localizable" when empty). Without one: `value` when it
  /// is not empty, else the key itself.
  std::string localizedStringForKey(const std::string& key, const std::string& value,
                                    const std::string& table) const;
  /// Installs a string table (key → translation).
  void setStringsTable(const std::string& table, std::map<std::string, std::string> strings);

  /// Back to an empty bundle (tests).
  void reset();

 private:
  mutable std::mutex mutex_;
  Value info_ = Value::object();
  Value localizedInfo_ = Value::object();
  std::map<std::string, std::map<std::string, std::string>> tables_;
};

}  // namespace zorva::platform
