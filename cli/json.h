// The one JSON document a command prints with --json: a small writer that keeps commas and escapes right,
// so that each command states its facts and nothing else.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace cli {

class JsonWriter {
public:
    JsonWriter& BeginObject();
    JsonWriter& EndObject();
    JsonWriter& BeginArray();
    JsonWriter& EndArray();
    JsonWriter& Key(const std::string& name);
    JsonWriter& String(const std::string& utf8);
    JsonWriter& Number(uint64_t value);
    JsonWriter& Integer(int64_t value);
    JsonWriter& Bool(bool value);
    JsonWriter& Null();
    // The document, ended with a newline, printed on standard output.
    void Print() const;
    const std::string& text() const { return text_; }

private:
    void Separate();
    std::string text_;
    std::vector<bool> first_;  // per open object or array: nothing written in it yet
    bool afterKey_ = false;
};

// A UTF-8 text as a JSON string literal, quotes included.
std::string JsonQuote(const std::string& utf8);

}  // namespace cli
