/// The values of a foreign JSON document, each with its place in it, so that a message can say which one is wrong.
///
/// Whatever is not as it must be throws BadValue; the reader's door catches it.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "Run.h"
#include "Words.h"

namespace watch::jsonvalues {

using Json = nlohmann::json;

struct BadValue {
    /// "processes[3].pid: must be ..."
    std::string what;
};

/// A value, and where it stands in the document. The value is borrowed.
struct Place {
    const Json& value;
    std::string path;

    [[noreturn]] void refuse(const std::string& why) const { throw BadValue{path + ": " + why}; }
};

/// The value of an object's key.
Place member(const Place& object, const std::string& key);

template <typename Read> auto list(const Place& place, Read read) {
    if (!place.value.is_array()) {
        place.refuse("must be a list");
    }
    std::vector<decltype(read(place))> items;
    for (const Json& item : place.value) {
        items.push_back(read(Place{item, place.path + "[" + std::to_string(items.size()) + "]"}));
    }
    return items;
}

/// Something only if the value is not null.
template <typename Read> auto optional(const Place& place, Read read) {
    using Value = decltype(read(place));
    return place.value.is_null() ? std::optional<Value>() : std::optional<Value>(read(place));
}

/// A whole number; "1.0" is none.
int whole(const Place& place, std::int64_t least, std::int64_t most);

bool flag(const Place& place);

/// A number of seconds, as nanoseconds. Some 126 years at most, so that no sum of a date and a length of time leaves
/// the range of Time.
inline constexpr double kMostSeconds = 4e9;
Time seconds(const Place& place, double least = -kMostSeconds);

/// A moment of the years 1970 to 2099, as toJson writes it.
Time date(const Place& place);

/// The bytes of a text, its escapes undone.
std::string text(const Place& place);
std::string textOrEmpty(const Place& place);

template <typename Enum, std::size_t count> Enum oneOf(const Word<Enum> (&table)[count], const Place& place) {
    std::string known;
    for (const Word<Enum>& candidate : table) {
        if (place.value == candidate.word) {
            return candidate.value;
        }
        known.append(known.empty() ? "" : ", ").append(candidate.word);
    }
    place.refuse("must be one of: " + known);
}

} // namespace watch::jsonvalues
