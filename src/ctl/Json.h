#pragma once

#include <nlohmann/json.hpp>
#include <string>

namespace kennly {

/// Members keep the order in which they were added.
using Json = nlohmann::ordered_json;

/// The text of a value, indented; bytes that are no UTF-8 become the replacement character.
/// Any thread may call it.
inline std::string TextOf(const Json& json) {
    constexpr int indentation = 2;
    return json.dump(indentation, ' ', false, Json::error_handler_t::replace);
}

}  // namespace kennly
