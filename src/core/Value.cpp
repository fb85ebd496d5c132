#include <quillhaven/Value.h>

#include <cmath>

namespace qh {

Dict::Dict(std::initializer_list<std::pair<std::string_view, Value>> entries) {
    for (const auto& entry : entries) set(entry.first, entry.second);
}

std::size_t Dict::position(std::string_view key) const {
    if (!index_.empty()) {
        auto it = index_.find(key);
        return it == index_.end() ? entries_.size() : it->second;
    }
    for (std::size_t i = 0; i < entries_.size(); ++i) {
        // Most keys differ from the one sought in their size or first byte:
        // the whole compare is left for the others.
        const std::string& name = entries_[i].first;
        if (name.size() == key.size() && (key.empty() || name.front() == key.front()) && name == key) return i;
    }
    return entries_.size();
}

void Dict::rebuildIndex() {
    index_.clear();
    if (entries_.size() <= kLinearLimit) return;
    index_.reserve(entries_.size());
    for (std::size_t i = 0; i < entries_.size(); ++i) index_.emplace(entries_[i].first, i);
}

void Dict::reserve(std::size_t count) { entries_.reserve(count); }

void Dict::set(std::string_view key, Value value) {
    const std::size_t at = position(key);
    if (at < entries_.size()) {
        entries_[at].second = std::move(value);
        return;
    }
    entries_.emplace_back(std::string(key), std::move(value));
    if (!index_.empty()) {
        index_.emplace(entries_.back().first, at);
    } else if (entries_.size() > kLinearLimit) {
        rebuildIndex();
    }
}

const Value* Dict::find(std::string_view key) const {
    const std::size_t at = position(key);
    return at < entries_.size() ? &entries_[at].second : nullptr;
}

Value* Dict::find(std::string_view key) {
    const std::size_t at = position(key);
    return at < entries_.size() ? &entries_[at].second : nullptr;
}

bool Dict::erase(std::string_view key) {
    const std::size_t at = position(key);
    if (at == entries_.size()) return false;
    entries_.erase(entries_.begin() + static_cast<std::ptrdiff_t>(at));
    rebuildIndex();
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
