// The JSON writer.
#include "json.h"

#include <cstdio>

namespace cli {

std::string JsonQuote(const std::string& utf8) {
    std::string out = "\"";
    for (const char c : utf8) {
        const auto unit = static_cast<unsigned char>(c);
        if (c == '"') out += "\\\"";
        else if (c == '\\') out += "\\\\";
        else if (c == '\n') out += "\\n";
        else if (c == '\t') out += "\\t";
        else if (c == '\r') out += "\\r";
        else if (unit < 0x20 || unit == 0x7F) {
            char escaped[8];
            std::snprintf(escaped, sizeof escaped, "\\u%04x", unit);
            out += escaped;
        } else {
            out += c;
        }
    }
    return out + "\"";
}

void JsonWriter::Separate() {
    if (afterKey_) {
        afterKey_ = false;
        return;
    }
    if (!first_.empty()) {
        if (!first_.back()) text_ += ',';
        first_.back() = false;
    }
}

JsonWriter& JsonWriter::BeginObject() {
    Separate();
    text_ += '{';
    first_.push_back(true);
    return *this;
}

JsonWriter& JsonWriter::EndObject() {
    first_.pop_back();
    text_ += '}';
    return *this;
}

JsonWriter& JsonWriter::BeginArray() {
    Separate();
    text_ += '[';
    first_.push_back(true);
    return *this;
}

JsonWriter& JsonWriter::EndArray() {
    first_.pop_back();
    text_ += ']';
    return *this;
}

JsonWriter& JsonWriter::Key(const std::string& name) {
    Separate();
    text_ += JsonQuote(name) + ':';
    afterKey_ = true;
    return *this;
}

JsonWriter& JsonWriter::String(const std::string& utf8) {
    Separate();
    text_ += JsonQuote(utf8);
    return *this;
}

JsonWriter& JsonWriter::Number(uint64_t value) {
    Separate();
    text_ += std::to_string(value);
    return *this;
}

JsonWriter& JsonWriter::Integer(int64_t value) {
    Separate();
    text_ += std::to_string(value);
    return *this;
}

JsonWriter& JsonWriter::Bool(bool value) {
    Separate();
    text_ += value ? "true" : "false";
    return *this;
}

JsonWriter& JsonWriter::Null() {
    Separate();
    text_ += "null";
    return *this;
}

void JsonWriter::Print() const { std::printf("%s\n", text_.c_str()); }

void JsonWriter::PrintSoFar() {
    std::fwrite(text_.data(), 1, text_.size(), stdout);
    text_.clear();
}

}  // namespace cli
