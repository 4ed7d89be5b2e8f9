#include "docksim/json.h"

#include <cstdio>

namespace docksim {

const Json* Json::find(const std::string& key) const
{
    for (const auto& m : members_)
        if (m.first == key)
            return &m.second;
    return nullptr;
}

Json* Json::find(const std::string& key)
{
    return const_cast<Json*>(static_cast<const Json*>(this)->find(key));
}

Json& Json::set(const std::string& key, Json value)
{
    type_ = Type::Object;
    if (Json* existing = find(key))
        *existing = std::move(value);
    else
        members_.emplace_back(key, std::move(value));
    return *this;
}

bool Json::erase(const std::string& key)
{
    for (auto it = members_.begin(); it != members_.end(); ++it)
        if (it->first == key) {
            members_.erase(it);
            return true;
        }
    return false;
}

Json& Json::push(Json value)
{
    type_ = Type::Array;
    items_.push_back(std::move(value));
    return *this;
}

bool Json::operator==(const Json& other) const
{
    return type_ == other.type_ && int_ == other.int_ && text_ == other.text_ && items_ == other.items_ &&
           members_ == other.members_;
}

static void dumpString(const std::string& s, std::string& out)
{
    out += '"';
    for (unsigned char c : s) {
        switch (c) {
        case '"': out += "\\\""; break;
        case '\\': out += "\\\\"; break;
        case '\n': out += "\\n"; break;
        case '\r': out += "\\r"; break;
        case '\t': out += "\\t"; break;
        default:
            if (c < 0x20 || c == 0x7f) {
                char buf[8];
                std::snprintf(buf, sizeof buf, "\\u%04x", c);
                out += buf;
            } else {
                out += static_cast<char>(c);
            }
        }
    }
    out += '"';
}

void Json::dumpTo(std::string& out) const
{
    switch (type_) {
    case Type::Null: out += "null"; return;
    case Type::Bool: out += int_ ? "true" : "false"; return;
    case Type::Int: out += std::to_string(int_); return;
    case Type::String: dumpString(text_, out); return;
    case Type::Array:
        out += '[';
        for (std::size_t i = 0; i < items_.size(); ++i) {
            if (i)
                out += ',';
            items_[i].dumpTo(out);
        }
        out += ']';
        return;
    case Type::Object:
        out += '{';
        for (std::size_t i = 0; i < members_.size(); ++i) {
            if (i)
                out += ',';
            dumpString(members_[i].first, out);
            out += ':';
            members_[i].second.dumpTo(out);
        }
        out += '}';
        return;
    }
}

std::string Json::dump() const
{
    std::string out;
    dumpTo(out);
    return out;
}

// Recursive descent over the whole text; every failure names its offset.
class JsonParser {
public:
    explicit JsonParser(const std::string& text) : s_(text) {}

    bool parse(Json& out, std::string& error)
    {
        bool ok = value(out, 0);
        if (ok) {
            skipSpace();
            ok = pos_ == s_.size() || fail("text after the value");
        }
        if (!ok)
            error = error_ + " at offset " + std::to_string(pos_);
        return ok;
    }

private:
    static constexpr int kMaxDepth = 64;

    bool fail(const char* why)
    {
        if (error_.empty())
            error_ = why;
        return false;
    }
    void skipSpace()
    {
        while (pos_ < s_.size() && (s_[pos_] == ' ' || s_[pos_] == '\t' || s_[pos_] == '\n' || s_[pos_] == '\r'))
            ++pos_;
    }
    bool literal(const char* word)
    {
        const std::string w(word);
        if (s_.compare(pos_, w.size(), w) != 0)
            return fail("unknown literal");
        pos_ += w.size();
        return true;
    }

    bool value(Json& out, int depth)
    {
        if (depth > kMaxDepth)
            return fail("nesting too deep");
        skipSpace();
        if (pos_ >= s_.size())
            return fail("missing value");
        const char c = s_[pos_];
        if (c == '{')
            return object(out, depth);
        if (c == '[')
            return array(out, depth);
        if (c == '"') {
            out = Json(std::string());
            return string(out.text_);
        }
        if (c == 't' || c == 'f') {
            out = Json(c == 't');
            return literal(c == 't' ? "true" : "false");
        }
        if (c == 'n') {
            out = Json();
            return literal("null");
        }
        return number(out);
    }

    bool object(Json& out, int depth)
    {
        out = Json::object();
        ++pos_;
        skipSpace();
        if (pos_ < s_.size() && s_[pos_] == '}') {
            ++pos_;
            return true;
        }
        for (;;) {
            skipSpace();
            std::string key;
            if (pos_ >= s_.size() || s_[pos_] != '"')
                return fail("expected a key");
            if (!string(key))
                return false;
            if (out.find(key))
                return fail("duplicate key");
            skipSpace();
            if (pos_ >= s_.size() || s_[pos_++] != ':')
                return fail("expected ':'");
            Json member;
            if (!value(member, depth + 1))
                return false;
            out.members_.emplace_back(std::move(key), std::move(member));
            skipSpace();
            if (pos_ < s_.size() && s_[pos_] == ',') {
                ++pos_;
                continue;
            }
            if (pos_ < s_.size() && s_[pos_] == '}') {
                ++pos_;
                return true;
            }
            return fail("expected ',' or '}'");
        }
    }

    bool array(Json& out, int depth)
    {
        out = Json::array();
        ++pos_;
        skipSpace();
        if (pos_ < s_.size() && s_[pos_] == ']') {
            ++pos_;
            return true;
        }
        for (;;) {
            Json item;
            if (!value(item, depth + 1))
                return false;
            out.items_.push_back(std::move(item));
            skipSpace();
            if (pos_ < s_.size() && s_[pos_] == ',') {
                ++pos_;
                continue;
            }
            if (pos_ < s_.size() && s_[pos_] == ']') {
                ++pos_;
                return true;
            }
            return fail("expected ',' or ']'");
        }
    }

    bool number(Json& out)
    {
        const bool negative = s_[pos_] == '-';
        if (negative)
            ++pos_;
        const std::size_t start = pos_;
        while (pos_ < s_.size() && s_[pos_] >= '0' && s_[pos_] <= '9')
            ++pos_;
        if (pos_ == start)
            return fail("not a value");
        if (s_[start] == '0' && pos_ - start > 1)
            return fail("leading zero");
        if (pos_ < s_.size() && (s_[pos_] == '.' || s_[pos_] == 'e' || s_[pos_] == 'E'))
            return fail("not an integer");
        // Accumulate towards the negative side, which holds one value more.
        int64_t v = 0;
        for (std::size_t i = start; i < pos_; ++i) {
            const int digit = s_[i] - '0';
            if (v < (INT64_MIN + digit) / 10)
                return fail("integer out of range");
            v = v * 10 - digit;
        }
        if (!negative && v == INT64_MIN)
            return fail("integer out of range");
        out = Json(negative ? v : -v);
        return true;
    }

    bool hex4(unsigned& v)
    {
        v = 0;
        for (int i = 0; i < 4; ++i, ++pos_) {
            if (pos_ >= s_.size())
                return fail("short \\u escape");
            const char c = s_[pos_];
            const int d = c >= '0' && c <= '9' ? c - '0' : c >= 'a' && c <= 'f' ? c - 'a' + 10
                        : c >= 'A' && c <= 'F' ? c - 'A' + 10 : -1;
            if (d < 0)
                return fail("bad \\u escape");
            v = v * 16 + static_cast<unsigned>(d);
        }
        return true;
    }

    static void appendUtf8(unsigned cp, std::string& out)
    {
        if (cp < 0x80) {
            out += static_cast<char>(cp);
        } else if (cp < 0x800) {
            out += static_cast<char>(0xC0 | (cp >> 6));
            out += static_cast<char>(0x80 | (cp & 0x3F));
        } else if (cp < 0x10000) {
            out += static_cast<char>(0xE0 | (cp >> 12));
            out += static_cast<char>(0x80 | ((cp >> 6) & 0x3F));
            out += static_cast<char>(0x80 | (cp & 0x3F));
        } else {
            out += static_cast<char>(0xF0 | (cp >> 18));
            out += static_cast<char>(0x80 | ((cp >> 12) & 0x3F));
            out += static_cast<char>(0x80 | ((cp >> 6) & 0x3F));
            out += static_cast<char>(0x80 | (cp & 0x3F));
        }
    }

    bool escape(std::string& out)
    {
        if (pos_ >= s_.size())
            return fail("unterminated string");
        const char c = s_[pos_++];
        static const std::pair<char, char> simple[] = {{'"', '"'}, {'\\', '\\'}, {'/', '/'}, {'b', '\b'},
                                                       {'f', '\f'}, {'n', '\n'}, {'r', '\r'}, {'t', '\t'}};
        for (const auto& e : simple)
            if (e.first == c) {
                out += e.second;
                return true;
            }
        if (c != 'u')
            return fail("bad escape");
        unsigned cp = 0;
        if (!hex4(cp))
            return false;
        if (cp >= 0xDC00 && cp <= 0xDFFF)
            return fail("lone low surrogate");
        if (cp >= 0xD800 && cp <= 0xDBFF) {
            unsigned low = 0;
            if (s_.compare(pos_, 2, "\\u") != 0)
                return fail("lone high surrogate");
            pos_ += 2;
            if (!hex4(low))
                return false;
            if (low < 0xDC00 || low > 0xDFFF)
                return fail("lone high surrogate");
            cp = 0x10000 + ((cp - 0xD800) << 10) + (low - 0xDC00);
        }
        appendUtf8(cp, out);
        return true;
    }

    bool string(std::string& out)
    {
        ++pos_; // the opening quote
        for (;;) {
            if (pos_ >= s_.size())
                return fail("unterminated string");
            const unsigned char c = static_cast<unsigned char>(s_[pos_++]);
            if (c == '"')
                return true;
            if (c < 0x20)
                return fail("control character in string");
            if (c == '\\') {
                if (!escape(out))
                    return false;
            } else {
                out += static_cast<char>(c);
            }
        }
    }

    const std::string& s_;
    std::size_t pos_ = 0;
    std::string error_;
};

bool Json::parse(const std::string& text, Json& out, std::string& error)
{
    JsonParser parser(text);
    Json value;
    if (!parser.parse(value, error))
        return false;
    out = std::move(value);
    return true;
}

} // namespace docksim
