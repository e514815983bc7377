#pragma once

#include <optional>
#include <string>
#include <vector>

namespace zorva::platform {

/// A locale named by its identifier ("en-US", "pt_BR", "zh-Hans-CN").
class Locale {
 public:
  explicit Locale(std::string identifier) : identifier_(std::move(identifier)) {}

  const std::string& localeIdentifier() const { return identifier_; }
  /// The language part of the identifier ("en" for "en-US"), or nothing for an empty one.
  std::optional<std::string> languageCode() const;

  /// The user's languages, most preferred first. Thread-safe.
  static std::vector<std::string> preferredLanguages();
  static void setPreferredLanguages(std::vector<std::string> languages);

 private:
  std::string identifier_;
};

}  // namespace zorva::platform
