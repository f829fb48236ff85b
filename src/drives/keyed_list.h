#pragma once
// An ordered list of strings, each stored under a key unique within the list.
// The program adds under the decimal text of the count before the add, so an
// entry's key is its position counted from 0.
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace drives {

class KeyedList {
public:
    // Adds value under key; false (and nothing added) when the key is taken.
    bool Add(std::string key, std::string value);
    // Adds under the decimal text of the current count.
    bool Append(std::string value) { return Add(std::to_string(values_.size()), std::move(value)); }
    // The value under key, or nothing when there is none.
    std::optional<std::string> Item(std::string_view key) const;
    // The value under key, or "" when there is none.
    std::string ItemOrEmpty(std::string_view key) const { return Item(key).value_or(std::string{}); }
    std::int32_t Count() const { return static_cast<std::int32_t>(values_.size()); }
    void Clear();
    const std::vector<std::string>& Values() const { return values_; }

private:
    std::vector<std::string> values_;
    std::unordered_map<std::string, std::size_t> index_;
};

} // namespace drives
