// What the commands tell the user about entries an operation could not handle: the failures of the platform calls an export makes while a command runs, and the
// check that a copy's destination lies outside its source.
#pragma once

#include <string>
#include <vector>

#include "command.h"
#include "json.h"
#include "messages.h"

namespace cli {

// Watches the platform calls the exports make while it lives and keeps each one that failed, so that a
// command can name every entry an export passed over (the exports themselves go on silently, as their
// callers expect). What is watched: listing a folder; opening a file to read its data; copying a file.
class FailureWatch {
public:
    struct Failure {
        std::string what;  // "cannot list", "cannot reach", "cannot read", "cannot copy"
        std::string path;
        DWORD code;
    };
    enum Watched : unsigned { kListing = 1, kReading = 2, kCopying = 4 };

    explicit FailureWatch(unsigned watched);
    ~FailureWatch();
    FailureWatch(const FailureWatch&) = delete;
    FailureWatch& operator=(const FailureWatch&) = delete;

    const std::vector<Failure>& failures() const;
    // Prints one line per failure to standard error; false when there was any.
    bool Report(const Command& command) const;
    // The failures as the value of a JSON key: an array of {what, path, code, reason}.
    void WriteJson(JsonWriter& json) const;

private:
    struct Patches;
    Patches* patches_;
};

// Whether a FindFirstFileW pattern lists a folder (its last part holds a wildcard) rather than looking up
// one entry by its plain path, as the size and date lookups of the exports do for every file.
bool ListsFolder(LPCWSTR pattern);

// Whether destination is source or lies inside it, through links too: a copy there would copy into
// itself. Folders that do not exist yet are judged by the nearest one above them that does.
bool InsideSource(const CString& source, const CString& destination);

}  // namespace cli
