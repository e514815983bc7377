#include "Common/ZorvaAdBuilder.h"

#include <limits>
#include <string>
#include <type_traits>

#include <zorva/platform/Text.h>

#include "Common/Exception.h"

namespace zorva {

namespace {

const char* kindOf(const Value& v) {
  switch (v.type()) {
    case Value::value_t::null:
      return "null";
    case Value::value_t::boolean:
      return "boolean";
    case Value::value_t::string:
      return "string";
    case Value::value_t::array:
      return "array";
    case Value::value_t::object:
      return "object";
    default:
      return "number";
  }
}

[[noreturn]] void raise(const std::string& operation, const Value& receiver) {
  throw Exception(Exception::kInvalidArgumentException,
                  operation + " sent to a " + kindOf(receiver) + " value");
}

// The value under `key`, or nullptr when there is none. Only objects have keys.
template <typename Json>
Json* objectForKey(Json& object, const char* key) {
  if (!object.is_object()) raise(std::string("objectForKey:\"") + key + "\"", object);
  auto it = object.find(key);
  return it == object.end() ? nullptr : &*it;
}

// The element count of an array or object; anything else has none.
std::size_t count(const Value& collection) {
  if (!collection.is_array() && !collection.is_object()) raise("count", collection);
  return collection.size();
}

template <typename Json>
Json& firstObject(Json& array) {
  if (!array.is_array()) raise("firstObject", array);
  return array.front();
}

// Single-precision conversion of a number or a numeric string; anything else gives 0.
float floatValue(const Value* v) {
  if (v == nullptr) return 0.0f;
  if (v->is_number()) {
    // Out of float's range the conversion saturates to infinity, as a float widening would.
    const double d = v->get<double>();
    if (d > std::numeric_limits<float>::max()) return std::numeric_limits<float>::infinity();
    if (d < -std::numeric_limits<float>::max()) return -std::numeric_limits<float>::infinity();
    return static_cast<float>(d);
  }
  if (v->is_boolean()) return v->get<bool>() ? 1.0f : 0.0f;
  if (v->is_string()) {
    // Leading white space skipped, as much of a decimal number read as there is, else 0.
    return platform::floatFromText(v->get_ref<const std::string&>());
  }
  return 0.0f;
}

// The ad of `response`, its values copied (`Json` is const) or moved out of it.
template <typename Json>
std::shared_ptr<ZorvaAd> readAd(Json& response) {
  auto take = [](Json* value) -> Value {
    if constexpr (std::is_const_v<Json>) {
      return *value;
    } else {
      return std::move(*value);
    }
  };
  auto ad = std::make_shared<ZorvaAd>();
  Json* seatbid = objectForKey(response, "seatbid");
  if (seatbid == nullptr || count(*seatbid) == 0) return nullptr;
  Json* bids = objectForKey(firstObject(*seatbid), "bid");
  if (bids == nullptr || count(*bids) == 0) return nullptr;
  Json& bid = firstObject(*bids);

  if (Json* adm = objectForKey(bid, "adm")) ad->creative = take(adm);
  ad->size.width = static_cast<double>(floatValue(objectForKey(bid, "w")));
  ad->size.height = static_cast<double>(floatValue(objectForKey(bid, "h")));
  if (Json* id = objectForKey(bid, "id")) ad->bidId = take(id);
  if (Json* price = objectForKey(bid, "price")) ad->price = take(price);
  if (Json* ext = objectForKey(bid, "ext")) {
    if (Json* skadn = objectForKey(*ext, "skadn")) ad->skadn = take(skadn);
  }
  return ad;
}

}  // namespace

std::shared_ptr<ZorvaAd> ZorvaAdBuilder::build() const { return readAd(json_); }

std::shared_ptr<ZorvaAd> ZorvaAdBuilder::buildTakingJson() { return readAd(json_); }

}  // namespace zorva
