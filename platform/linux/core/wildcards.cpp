// The one wildcard matcher of every volume's FindFirstFileW: Windows' rules, where a pattern is first
// turned into the file system's expression (`?` into DOS_QM `>`, a `*` before a dot into DOS_STAR `<`, a
// dot before a wildcard or at the end into DOS_DOT `"`) and the expression is then matched against each
// name without regard to case. That is why a trailing dot means "no extension", why `*.*` finds names
// without a dot, and why `?` never matches a dot: callers' patterns find what they find on Windows.
#include <algorithm>
#include <vector>

#include "internal.h"

namespace vlx {

namespace {

constexpr WCHAR kDosStar = '<';  // any characters, but never past the name's last dot
constexpr WCHAR kDosQm = '>';    // one character, or nothing at a dot or at the end of the name
constexpr WCHAR kDosDot = '"';   // a dot, or nothing at the end of the name

bool IsWildcardUnit(WCHAR unit) { return unit == '*' || unit == '?' || IsDosWildcard(unit); }

// The pattern as the file system sees it.
WString Expression(const WString& pattern) {
    if (pattern == _T("*.*")) return _T("*");
    WString expression = pattern;
    for (size_t i = 0; i < pattern.size(); ++i) {
        const WCHAR next = i + 1 < pattern.size() ? pattern[i + 1] : 0;
        if (pattern[i] == '?') expression[i] = kDosQm;
        else if (pattern[i] == '*' && next == '.') expression[i] = kDosStar;
        else if (pattern[i] == '.' && (next == 0 || next == '?' || next == '*')) expression[i] = kDosDot;
    }
    return expression;
}

// Adds every position reachable from the ones in states without taking a character, given the character
// about to be read (0 at the end of the name).
void Close(const WString& expression, std::vector<bool>& states, WCHAR ahead, bool atEnd) {
    for (size_t at = 0; at < expression.size(); ++at) {
        if (!states[at]) continue;
        const WCHAR unit = expression[at];
        const bool skips = unit == '*' || unit == kDosStar || (unit == kDosQm && (atEnd || ahead == '.')) ||
                           (unit == kDosDot && atEnd);
        if (skips) states[at + 1] = true;  // later positions are visited in this same pass
    }
}

}  // namespace

bool IsDosWildcard(WCHAR unit) { return unit == kDosStar || unit == kDosQm || unit == kDosDot; }

bool HasWildcard(const WString& text) { return std::any_of(text.begin(), text.end(), IsWildcardUnit); }

bool MatchesPattern(const WString& pattern, const WString& name) {
    const WString expression = Expression(pattern);
    if (expression == _T("*")) return true;
    const size_t lastDot = name.rfind('.');
    // One pass over the name with the set of expression positions still alive: linear in both lengths,
    // whatever the pattern, so no pattern can make a listing slow.
    std::vector<bool> states(expression.size() + 1, false);
    std::vector<bool> next(expression.size() + 1, false);
    states[0] = true;
    for (size_t i = 0; i <= name.size(); ++i) {
        const bool atEnd = i == name.size();
        const WCHAR unit = atEnd ? 0 : name[i];
        Close(expression, states, unit, atEnd);
        if (atEnd) break;
        std::fill(next.begin(), next.end(), false);
        bool alive = false;
        for (size_t at = 0; at < expression.size(); ++at) {
            if (!states[at]) continue;
            const WCHAR wanted = expression[at];
            // A star stays where it is after taking a character; everything else moves on.
            const bool stays = wanted == '*' || wanted == kDosStar;
            bool takes;
            if (wanted == '*' || wanted == '?') takes = true;
            else if (wanted == kDosStar) takes = unit != '.' || i < lastDot;
            else if (wanted == kDosQm) takes = unit != '.';
            else if (wanted == kDosDot) takes = unit == '.';
            else takes = FoldUnit(wanted) == FoldUnit(unit);
            const size_t to = stays ? at : at + 1;
            if (takes) next[to] = alive = true;
        }
        if (!alive) return false;
        states.swap(next);
    }
    return states[expression.size()];
}

WString LastNameOf(LPCWSTR path) {
    if (path == nullptr) return {};
    const WString text = path;
    const size_t separator = text.find_last_of(_T("\\/"));
    if (separator != WString::npos) return text.substr(separator + 1);
    return text.size() >= 2 && text[1] == ':' ? text.substr(2) : text;
}

WString FindPatternOf(LPCWSTR typed, const WString& resolvedName) {
    WString name = LastNameOf(typed);
    // Path rules drop trailing dots and spaces from every name; in a pattern a dot among them still says
    // "no extension", so one dot is kept.
    size_t kept = name.size();
    while (kept > 0 && (name[kept - 1] == '.' || name[kept - 1] == ' ')) --kept;
    if (kept == 0 || name.compare(0, kept, resolvedName) != 0) return resolvedName;
    const bool endedInDot = name.find('.', kept) != WString::npos;
    name.resize(kept);
    if (endedInDot) name += '.';
    return name;
}

}  // namespace vlx
