#pragma once
// The message dictionary's value type: string, number, boolean, byte buffer,
// date, array or dictionary (and null, the marker some entry dictionaries hold
// where a stream could not be read). Dictionaries keep their keys in insertion
// order and compare them case-sensitively.
//
// Documented dictionary shapes built from these values:
//  - address record: {"Name": string, "Address": string}
//  - attachment item (MSG, TNEF): {"name": string, "data": bytes, "size": number,
//    "sizeString": string, optional "mimeType", "attachDisposition",
//    "attachmentMetaData" (bytes), "AttachContentLocation", "AttachContentID"}
//  - attachment item (EML): {"name", "data" (bytes or string), "size",
//    "sizeString", optional "ContentID"}
#include <cstdint>
#include <functional>
#include <initializer_list>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <variant>
#include <vector>

#include <quillhaven/Blob.h>

namespace qh {

// An absolute point in time: seconds since 1970-01-01 00:00:00 UTC.
struct Date {
    double unixSeconds = 0;
    friend bool operator==(const Date&, const Date&) = default;
};

class Value;
using Array = std::vector<Value>;

class Dict {
public:
    using Entry = std::pair<std::string, Value>;

    Dict() = default;
    // Keys by name (quillhaven/MessageKeys.h) or as text.
    Dict(std::initializer_list<std::pair<std::string_view, Value>> entries);

    // Replaces the value of an existing key in place (keeping its position) or appends.
    void set(std::string_view key, Value value);
    // Room for `count` keys, so that a record filled key by key is not moved as it grows.
    void reserve(std::size_t count);
    const Value* find(std::string_view key) const;
    Value* find(std::string_view key);
    bool contains(std::string_view key) const { return find(key) != nullptr; }
    bool erase(std::string_view key);
    // The string / bytes / array / dictionary under `key`, or null when absent or of another kind.
    const std::string* findString(std::string_view key) const;
    const Blob* findBytes(std::string_view key) const;
    const Array* findArray(std::string_view key) const;
    const Dict* findDict(std::string_view key) const;

    std::size_t size() const;
    bool empty() const;
    std::vector<Entry>::const_iterator begin() const;
    std::vector<Entry>::const_iterator end() const;
    std::vector<std::string> keys() const;

    friend bool operator==(const Dict& a, const Dict& b);

private:
    // A few keys are found fastest by looking at each; a dictionary with more
    // (a compound file's entries) keeps a hash index, so that building one
    // stays linear however many keys a file gives it.
    static constexpr std::size_t kLinearLimit = 16;
    struct KeyHash {
        using is_transparent = void;
        std::size_t operator()(std::string_view key) const noexcept { return std::hash<std::string_view>{}(key); }
    };
    std::size_t position(std::string_view key) const;  // size() when absent
    void rebuildIndex();

    std::vector<Entry> entries_;
    // Every key's position while there are more than kLinearLimit; else empty.
    std::unordered_map<std::string, std::size_t, KeyHash, std::equal_to<>> index_;
};

class Value {
public:
    using Storage = std::variant<std::monostate, std::string, std::int64_t, double, bool, Blob, Date, Array, Dict>;

    Value() = default;
    Value(std::string text) : v_(std::move(text)) {}
    Value(std::string_view text) : v_(std::string(text)) {}
    Value(const char* text) : v_(std::string(text)) {}
    Value(std::int64_t number) : v_(number) {}
    Value(int number) : v_(std::int64_t(number)) {}
    Value(unsigned number) : v_(std::int64_t(number)) {}
    Value(std::uint64_t number) : v_(static_cast<std::int64_t>(number)) {}
    Value(double number) : v_(number) {}
    Value(bool flag) : v_(flag) {}
    Value(Blob bytes) : v_(std::move(bytes)) {}
    Value(Bytes bytes) : v_(Blob(std::move(bytes))) {}
    Value(Date date) : v_(date) {}
    Value(Array array) : v_(std::move(array)) {}
    Value(Dict dict) : v_(std::move(dict)) {}

    bool isNull() const { return std::holds_alternative<std::monostate>(v_); }
    bool isString() const { return std::holds_alternative<std::string>(v_); }
    bool isNumber() const { return std::holds_alternative<std::int64_t>(v_) || std::holds_alternative<double>(v_); }
    bool isBool() const { return std::holds_alternative<bool>(v_); }
    bool isBytes() const { return std::holds_alternative<Blob>(v_); }
    bool isDate() const { return std::holds_alternative<Date>(v_); }
    bool isArray() const { return std::holds_alternative<Array>(v_); }
    bool isDict() const { return std::holds_alternative<Dict>(v_); }

    // Typed access: null when the value is of another kind.
    const std::string* string() const { return std::get_if<std::string>(&v_); }
    const Blob* bytes() const { return std::get_if<Blob>(&v_); }
    const Date* date() const { return std::get_if<Date>(&v_); }
    const Array* array() const { return std::get_if<Array>(&v_); }
    Array* array() { return std::get_if<Array>(&v_); }
    const Dict* dict() const { return std::get_if<Dict>(&v_); }
    Dict* dict() { return std::get_if<Dict>(&v_); }
    const bool* boolean() const { return std::get_if<bool>(&v_); }
    // The number as a double (integers converted); 0 for other kinds.
    double number() const;
    // The number as an integer (doubles truncated); 0 for other kinds.
    std::int64_t integer() const;

    const Storage& storage() const { return v_; }

    // JSON encoding of the command's contract, as one line of UTF-8 text (no
    // trailing line feed): bytes as {"$base64": ...}, dates as
    // {"$date": "YYYY-MM-DDTHH:MM:SSZ"}, dictionaries in key order, whole
    // numbers without a fraction, invalid UTF-8 replaced by U+FFFD.
    std::string toJsonText() const;
    // The same, appended to `out`.
    void appendJson(std::string& out) const;
    // `text` as a JSON string, appended to `out`.
    static void appendJsonString(std::string_view text, std::string& out);

    friend bool operator==(const Value& a, const Value& b) { return a.v_ == b.v_; }

private:
    Storage v_;
};

// Defined here, where Value is complete (some compilers instantiate the
// vector's members at the point of an inline definition).
inline std::size_t Dict::size() const { return entries_.size(); }
inline bool Dict::empty() const { return entries_.empty(); }
inline std::vector<Dict::Entry>::const_iterator Dict::begin() const { return entries_.begin(); }
inline std::vector<Dict::Entry>::const_iterator Dict::end() const { return entries_.end(); }

}  // namespace qh
