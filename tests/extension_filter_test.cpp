// The extension filter: which paths a filter lets through, odd filters included.
#include <gtest/gtest.h>

#include "../frame/extension_filter.h"
#include "support/host_fixture.h"

using testing_support::W;

namespace {

struct FilterCase {
    const char* filter;
    const char* path;
    bool matches;
};

const FilterCase kCases[] = {
    // One or several extensions, case folded.
    {".txt", "D:\\a\\b.txt", true},
    {".txt", "D:\\a\\b.TXT", true},
    {".TxT", "D:\\a\\b.txt", true},
    {".txt", "D:\\a\\b.text", false},
    {".jpg.png.gif", "D:\\p\\x.png", true},
    {".jpg.png.gif", "D:\\p\\x.gif", true},
    {".jpg.png.gif", "D:\\p\\x.bmp", false},
    // The path only has to end in the extension: a longer one holding it matches, a longer one does not.
    {".gz", "D:\\a.tar.gz", true},
    {".c", "D:\\x.c", true},
    {".c", "D:\\x.cpp", false},
    {".c", "D:\\abc", false},
    // Text before the first dot is ignored.
    {"*.txt", "D:\\notes.txt", true},
    {"txt.doc", "D:\\a.doc", true},
    {"txt.doc", "D:\\a.txt", false},
    // No dot at all: nothing matches, even a path ending in the same letters.
    {"txt", "D:\\a.txt", false},
    {"", "D:\\a.txt", false},
    // Everything after a dot belongs to that extension, separators and wildcards included.
    {".txt;*.doc", "D:\\a.txt", false},
    {".txt;*.doc", "D:\\a.txt;*", true},
    {".txt;*.doc", "D:\\a.doc", true},
    {".txt .doc", "D:\\a.txt", false},
    {".txt .doc", "D:\\a.txt ", true},
    // A dot with nothing after it stands for a lone dot, so it matches paths that end in one.
    {".txt.", "D:\\a.txt", true},
    {".", "D:\\a.txt", false},
    {".", "D:\\odd.", true},
    {"..txt", "D:\\a.txt", true},
    {"..", "D:\\a.txt", false},
    // The extension must fit inside the path.
    {".longextension", "D:\\a", false},
    {".ab", "b", false},
    {".a", "x.a", true},
    // Non-ASCII letters compare by value, as the CRT's "C" locale does.
    {".日本", "D:\\x.日本", true},
    {".é", "D:\\x.É", false},
};

TEST(ExtensionFilter, MatchesPathsAsTheFilterRulesSay) {
    for (const FilterCase& c : kCases) {
        EXPECT_EQ(MatchesExtensionFilter(W(c.path), W(c.filter)), c.matches) << "filter '" << c.filter << "' path '" << c.path << "'";
    }
}

TEST(ExtensionFilter, NullArgumentsMatchNothing) {
    EXPECT_FALSE(MatchesExtensionFilter(nullptr, _T(".txt")));
    EXPECT_FALSE(MatchesExtensionFilter(_T("D:\\a.txt"), nullptr));
}

}  // namespace
