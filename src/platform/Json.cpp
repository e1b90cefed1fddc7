// JSON through nlohmann/json, with the guards its defaults lack.
#include "platform/Json.h"

#include <cmath>
#include <cstring>
#include <limits>
#include <unordered_set>
#include <utility>

namespace vorlo {
namespace {

// Bracket depth outside strings. nlohmann parses iteratively, but copying and destroying a value
// recurse, so depth must be bounded before a value is ever built.
bool nestsWithin(std::string_view text, std::size_t limit) {
    std::size_t depth = 0;
    bool inString = false;
    for (std::size_t i = 0; i < text.size(); ++i) {
        const char c = text[i];
        if (inString) {
            if (c == '\\') ++i;
            else if (c == '"') inString = false;
        } else if (c == '"') {
            inString = true;
        } else if (c == '[' || c == '{') {
            if (++depth > limit) return false;
        } else if ((c == ']' || c == '}') && depth > 0) {
            --depth;
        }
    }
    return true;
}

void appendHeaderEscaped(std::string& out, std::string_view text) {
    static constexpr char kHex[] = "0123456789abcdef";
    out += '"';
    for (const char ch : text) {
        const auto c = static_cast<unsigned char>(ch);
        switch (c) {
        case '"': out += "\\\""; break;
        case '\\': out += "\\\\"; break;
        case '/': out += "\\/"; break;
        case '\b': out += "\\b"; break;
        case '\f': out += "\\f"; break;
        case '\n': out += "\\n"; break;
        case '\r': out += "\\r"; break;
        case '\t': out += "\\t"; break;
        default:
            if (c < 0x20) {
                out += "\\u00";
                out += kHex[c >> 4];
                out += kHex[c & 0xF];
            } else {
                out += ch;
            }
        }
    }
    out += '"';
}

std::optional<Json> parseAny(std::string_view text) {
    if (std::memchr(text.data(), '\0', text.size()) != nullptr) return std::nullopt;
    if (!nestsWithin(text, kMaximumJsonNesting)) return std::nullopt;
    Json value = Json::parse(text.begin(), text.end(), nullptr, /*allow_exceptions=*/false);
    if (value.is_discarded()) return std::nullopt;
    return value;
}

} // namespace

std::optional<Json> parseJsonDocument(std::string_view text) {
    auto value = parseAny(text);
    if (!value || !(value->is_object() || value->is_array())) return std::nullopt;
    return value;
}

std::optional<std::string> writeCompactJson(const Json& value) {
    try {
        return value.dump();
    } catch (const Json::exception&) {
        return std::nullopt; // a string that is not UTF-8: the reply cannot be written
    }
}

std::string writePrettyJson(const Json& value) {
    try {
        return value.dump(2);
    } catch (const Json::exception&) {
        return "{}";
    }
}

std::string encodeHeaderJsonString(std::string_view text) {
    std::string out;
    out.reserve(text.size() + 2);
    appendHeaderEscaped(out, text);
    return out;
}

std::string encodeHeaderJsonStringArray(const std::vector<std::string>& strings) {
    std::string out = "[";
    for (std::size_t i = 0; i < strings.size(); ++i) {
        if (i > 0) out += ',';
        appendHeaderEscaped(out, strings[i]);
    }
    out += ']';
    return out;
}

std::optional<std::string> decodeJsonString(std::string_view text) {
    auto value = parseAny(text);
    if (!value || !value->is_string()) return std::nullopt;
    return value->get<std::string>();
}

std::optional<std::vector<std::string>> decodeJsonStringArray(std::string_view text) {
    auto value = parseAny(text);
    if (!value || !value->is_array()) return std::nullopt;
    std::vector<std::string> strings;
    strings.reserve(value->size());
    for (const auto& element : *value) {
        if (!element.is_string()) return std::nullopt;
        strings.push_back(element.get<std::string>());
    }
    return strings;
}

namespace {

// Accepts one array of strings and nothing else: any other value, or a nested one, stops the parse.
class DistinctStrings final : public nlohmann::json_sax<Json> {
  public:
    bool null() override { return false; }
    bool boolean(bool) override { return false; }
    bool number_integer(number_integer_t) override { return false; }
    bool number_unsigned(number_unsigned_t) override { return false; }
    bool number_float(number_float_t, const string_t&) override { return false; }
    bool binary(binary_t&) override { return false; }
    bool start_object(std::size_t) override { return false; }
    bool key(string_t&) override { return false; }
    bool end_object() override { return false; }
    bool start_array(std::size_t) override { return !std::exchange(opened_, true); }
    bool end_array() override { return true; }
    bool string(string_t& value) override {
        if (!opened_) return false;
        if (seen_.insert(value).second) strings_.push_back(value);
        return true;
    }
    bool parse_error(std::size_t, const std::string&, const nlohmann::detail::exception&) override {
        return false;
    }
    std::vector<std::string> take() { return std::move(strings_); }

  private:
    bool opened_ = false;
    std::unordered_set<std::string> seen_;
    std::vector<std::string> strings_;
};

} // namespace

std::optional<std::vector<std::string>> decodeDistinctJsonStringArray(std::string_view text) {
    if (std::memchr(text.data(), '\0', text.size()) != nullptr) return std::nullopt;
    DistinctStrings strings;
    if (!Json::sax_parse(text.begin(), text.end(), &strings)) return std::nullopt;
    return strings.take();
}

bool isNumberOrBoolean(const Json& value) { return value.is_number() || value.is_boolean(); }

long long integerValue(const Json& value) {
    if (value.is_boolean()) return value.get<bool>() ? 1 : 0;
    // nlohmann counts unsigned numbers as integers too, so they are told apart first.
    if (value.is_number_unsigned()) {
        const auto u = value.get<unsigned long long>();
        return u > static_cast<unsigned long long>(std::numeric_limits<long long>::max())
                   ? std::numeric_limits<long long>::max()
                   : static_cast<long long>(u);
    }
    if (value.is_number_integer()) return value.get<long long>();
    const double d = value.get<double>();
    if (std::isnan(d)) return 0;
    if (d >= 9.2233720368547758e18) return std::numeric_limits<long long>::max();
    if (d <= -9.2233720368547758e18) return std::numeric_limits<long long>::min();
    return static_cast<long long>(std::trunc(d));
}

} // namespace vorlo
