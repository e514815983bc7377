#pragma once

#include <cstdint>
#include <map>
#include <memory>
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

  /// The bundle of the loaded library (or program) whose code holds `address`: the directory of
  /// that file, as the phone platform finds a framework's bundle from one of its classes. One
  /// bundle per directory, the same object on every call; null when no loaded file holds the
  /// address. Its dictionaries and tables start empty.
  static std::shared_ptr<Bundle> bundleForAddress(const void* address);

  /// The directory the bundle's files are in; empty for the main bundle, which the host fills
  /// with data rather than files.
  const std::string& bundlePath() const { return path_; }
  /// The path of the file "<name>.<type>" (just "<name>" when `type` is empty) in the bundle's
  /// directory when it exists, else nothing.
  std::optional<std::string> pathForResource(const std::string& name,
                                             const std::string& type) const;

  Value infoDictionary() const;
  void setInfoDictionary(Value info);
  Value localizedInfoDictionary() const;
  void setLocalizedInfoDictionary(Value info);

  /// The information dictionary's value for `key`, or null; one entry is copied, not the
  /// dictionary.
  Value infoDictionaryValue(const std::string& key) const;
  /// The localized information dictionary's value for `key`, or null.
  Value localizedInfoDictionaryValue(const std::string& key) const;
  /// The localized value for `key` when there is one, else the information dictionary's value,
  /// else null.
  Value objectForInfoDictionaryKey(const std::string& key) const;
  /// A number that changes whenever either information dictionary is set or the bundle is reset,
  /// for callers that keep something derived from the dictionaries.
  std::uint64_t infoGeneration() const;
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
  Bundle() = default;
  explicit Bundle(std::string path) : path_(std::move(path)) {}

  const std::string path_;
  mutable std::mutex mutex_;
  Value info_ = Value::object();
  Value localizedInfo_ = Value::object();
  std::uint64_t infoGeneration_ = 0;
  std::map<std::string, std::map<std::string, std::string>> tables_;
};

}  // namespace zorva::platform
