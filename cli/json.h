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
    // The document, ended with a newline, printed on standard output; after PrintSoFar, the rest of it.
    void Print() const;
    // Prints what is written so far and lets it go, so that a long list need not be held whole before
    // its document ends; text() then holds only what was written after.
    void PrintSoFar();
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
