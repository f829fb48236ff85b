#include "drives/keyed_list.h"

namespace drives {

bool KeyedList::Add(std::string key, std::string value) {
    auto [it, inserted] = index_.try_emplace(std::move(key), values_.size());
    if (!inserted) return false;
    values_.push_back(std::move(value));
    return true;
}

std::optional<std::string> KeyedList::Item(std::string_view key) const {
    auto it = index_.find(std::string(key));
    if (it == index_.end()) return std::nullopt;
    return values_[it->second];
}

void KeyedList::Clear() {
    values_.clear();
    index_.clear();
}

} // namespace drives
