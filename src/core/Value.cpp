#include <quillhaven/Value.h>

#include <cmath>

namespace qh {

Dict::Dict(std::initializer_list<std::pair<std::string_view, Value>> entries) {
    for (const auto& entry : entries) set(entry.first, entry.second);
}

void Dict::set(std::string_view key, Value value) {
    if (Value* existing = find(key)) {
        *existing = std::move(value);
        return;
    }
    index_.emplace(std::string(key), entries_.size());
    entries_.emplace_back(std::string(key), std::move(value));
}

const Value* Dict::find(std::string_view key) const {
    auto it = index_.find(std::string(key));
    return it == index_.end() ? nullptr : &entries_[it->second].second;
}

Value* Dict::find(std::string_view key) {
    auto it = index_.find(std::string(key));
    return it == index_.end() ? nullptr : &entries_[it->second].second;
}

bool Dict::erase(std::string_view key) {
    auto it = index_.find(std::string(key));
    if (it == index_.end()) return false;
    entries_.erase(entries_.begin() + static_cast<std::ptrdiff_t>(it->second));
    index_.clear();
    for (std::size_t i = 0; i < entries_.size(); ++i) index_.emplace(entries_[i].first, i);
    return true;
}

const std::string* Dict::findString(std::string_view key) const {
    const Value* v = find(key);
    return v ? v->string() : nullptr;
}
const Blob* Dict::findBytes(std::string_view key) const {
    const Value* v = find(key);
    return v ? v->bytes() : nullptr;
}
const Array* Dict::findArray(std::string_view key) const {
    const Value* v = find(key);
    return v ? v->array() : nullptr;
}
const Dict* Dict::findDict(std::string_view key) const {
    const Value* v = find(key);
    return v ? v->dict() : nullptr;
}

std::vector<std::string> Dict::keys() const {
    std::vector<std::string> out;
    out.reserve(entries_.size());
    for (const auto& entry : entries_) out.push_back(entry.first);
    return out;
}

bool operator==(const Dict& a, const Dict& b) { return a.entries_ == b.entries_; }

double Value::number() const {
    if (auto* i = std::get_if<std::int64_t>(&v_)) return static_cast<double>(*i);
    if (auto* d = std::get_if<double>(&v_)) return *d;
    return 0;
}

std::int64_t Value::integer() const {
    if (auto* i = std::get_if<std::int64_t>(&v_)) return *i;
    if (auto* d = std::get_if<double>(&v_)) {
        if (!std::isfinite(*d) || *d > 9.2e18 || *d < -9.2e18) return 0;
        return static_cast<std::int64_t>(*d);
    }
    return 0;
}

}  // namespace qh
