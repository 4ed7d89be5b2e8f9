// A small, strict JSON value for the socket protocol: objects, arrays,
// strings, 64-bit integers, booleans and null. Numbers with a fraction or an
// exponent are refused, because nothing in the protocol carries one and a
// peer that sends one has a bug worth seeing.
#pragma once

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace docksim {

class Json {
public:
    enum class Type { Null, Bool, Int, String, Array, Object };

    Json() = default;
    Json(bool b) : type_(Type::Bool), int_(b ? 1 : 0) {}
    Json(int v) : type_(Type::Int), int_(v) {}
    Json(int64_t v) : type_(Type::Int), int_(v) {}
    Json(uint32_t v) : type_(Type::Int), int_(v) {}
    Json(std::string s) : type_(Type::String), text_(std::move(s)) {}
    Json(const char* s) : type_(Type::String), text_(s) {}

    static Json array() { return Json(Type::Array); }
    static Json object() { return Json(Type::Object); }

    Type type() const { return type_; }
    bool isInt() const { return type_ == Type::Int; }
    bool isString() const { return type_ == Type::String; }
    bool isArray() const { return type_ == Type::Array; }
    bool isObject() const { return type_ == Type::Object; }

    int64_t asInt() const { return int_; }
    bool asBool() const { return int_ != 0; }
    const std::string& asString() const { return text_; }
    const std::vector<Json>& items() const { return items_; }
    const std::vector<std::pair<std::string, Json>>& members() const { return members_; }

    // The member `key` of an object, or null when there is none.
    const Json* find(const std::string& key) const;
    Json* find(const std::string& key);
    // Replaces the member `key` or appends it; returns *this for chaining.
    Json& set(const std::string& key, Json value);
    bool erase(const std::string& key);
    Json& push(Json value);

    bool operator==(const Json& other) const;
    bool operator!=(const Json& other) const { return !(*this == other); }

    // Compact text on one line: no newline can appear inside it.
    std::string dump() const;

    // Parses a whole text holding exactly one value. False with `error` set
    // on anything that is not strict JSON, on a duplicate key, a number
    // outside the signed 64-bit range, or nesting deeper than 64.
    static bool parse(const std::string& text, Json& out, std::string& error);

private:
    explicit Json(Type t) : type_(t) {}
    void dumpTo(std::string& out) const;

    Type type_ = Type::Null;
    int64_t int_ = 0;
    std::string text_;
    std::vector<Json> items_;
    std::vector<std::pair<std::string, Json>> members_;

    friend class JsonParser;
};

} // namespace docksim
