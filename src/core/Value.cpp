#include "core/Value.h"

#include <cmath>
#include <ctime>

#include <nlohmann/json.hpp>

#include "core/Base64.h"

namespace qh {

Dict::Dict(std::initializer_list<Entry> entries) {
    for (const auto& entry : entries) set(entry.first, entry.second);
}

void Dict::set(std::string key, Value value) {
    auto it = index_.find(key);
    if (it != index_.end()) {
        entries_[it->second].second = std::move(value);
        return;
    }
    index_.emplace(key, entries_.size());
    entries_.emplace_back(std::move(key), std::move(value));
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

namespace {
std::string isoUtc(double unixSeconds) {
    if (!std::isfinite(unixSeconds)) unixSeconds = 0;
    // Keep within what gmtime can represent with a four-digit year.
    if (unixSeconds < -62135596800.0) unixSeconds = -62135596800.0;
    if (unixSeconds > 253402300799.0) unixSeconds = 253402300799.0;
    std::time_t t = static_cast<std::time_t>(std::floor(unixSeconds));
    std::tm tm{};
    gmtime_r(&t, &tm);
    char text[32];
    std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%SZ", &tm);
    return text;
}
}  // namespace

nlohmann::ordered_json Value::toJson() const {
    using json = nlohmann::ordered_json;
    struct Visitor {
        json operator()(std::monostate) const { return nullptr; }
        json operator()(const std::string& s) const { return s; }
        json operator()(std::int64_t i) const { return i; }
        json operator()(double d) const {
            if (std::isfinite(d) && d == std::floor(d) && std::fabs(d) < 9e15) return static_cast<std::int64_t>(d);
            if (!std::isfinite(d)) return nullptr;
            return d;
        }
        json operator()(bool b) const { return b; }
        json operator()(const Blob& b) const { return json{{"$base64", Base64::encode(b.view())}}; }
        json operator()(const Date& d) const { return json{{"$date", isoUtc(d.unixSeconds)}}; }
        json operator()(const Array& a) const {
            json out = json::array();
            for (const auto& v : a) out.push_back(v.toJson());
            return out;
        }
        json operator()(const Dict& d) const {
            json out = json::object();
            for (const auto& [k, v] : d) out[k] = v.toJson();
            return out;
        }
    };
    return std::visit(Visitor{}, v_);
}

std::string Value::toJsonText() const {
    // Texts read from hostile files may hold invalid UTF-8; replace rather than throw.
    return toJson().dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace);
}

}  // namespace qh
