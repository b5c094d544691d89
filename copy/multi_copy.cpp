// Multi-source copy: CopyFilesMultiEx prepares every source as CopyFilesEx prepares its one, and hands
// them all to one shell file operation.
#include <cstdlib>
#include <cstring>

#include "copy_internal.h"

namespace {

constexpr int kNoSources = -1;
constexpr int kNothingToCopy = -2;
constexpr int kFromListNotAllocated = -3;
constexpr int kToListNotAllocated = -4;
constexpr int kNoSourceAccepted = -7;

// Room for one typical entry: a path of MAX_PATH units and its NUL.
constexpr size_t kUnitsPerSource = MAX_PATH + 1;

// A shell list (entries each ended by a NUL, one more NUL at the end) in a zeroed malloc buffer. It starts
// with room for kUnitsPerSource units per source and grows to fit an entry that needs more, so that no
// entry is ever written past its end.
class ShellList {
public:
    ShellList() = default;
    ~ShellList() { std::free(units_); }
    ShellList(const ShellList&) = delete;
    ShellList& operator=(const ShellList&) = delete;

    bool Allocate(size_t sources) {
        capacity_ = sources * kUnitsPerSource;
        units_ = static_cast<WCHAR*>(std::calloc(capacity_, sizeof(WCHAR)));
        return units_ != nullptr;
    }
    // Appends text and its NUL, keeping room for the final NUL; false when the list cannot grow.
    bool Append(const CString& text) {
        const size_t length = static_cast<size_t>(text.GetLength());
        if (!Reserve(used_ + length + 2)) return false;
        std::memcpy(units_ + used_, text.GetString(), length * sizeof(WCHAR));
        used_ += length;
        units_[used_++] = 0;
        return true;
    }
    // Ends the list with its second NUL, for which Append always keeps room.
    void Close() { units_[used_] = 0; }
    LPCWSTR get() const { return units_; }

private:
    bool Reserve(size_t needed) {
        if (needed <= capacity_) return true;
        const size_t grown = needed > capacity_ * 2 ? needed : capacity_ * 2;
        auto* moved = static_cast<WCHAR*>(std::realloc(units_, grown * sizeof(WCHAR)));
        if (moved == nullptr) return false;
        std::memset(moved + capacity_, 0, (grown - capacity_) * sizeof(WCHAR));
        units_ = moved;
        capacity_ = grown;
        return true;
    }

    WCHAR* units_ = nullptr;
    size_t capacity_ = 0;
    size_t used_ = 0;
};

}  // namespace

BOOL CopyFilesMultiEx(CStringArray* sources, CString destination, BOOL silent, WORD extraFlags, BOOL withFolderName,
                      BOOL withFullPath, int* detailCode, HWND owner) {
    VELMORA_MANAGE_STATE();
    return VelmoraGuardedCall<BOOL>(FALSE, [&]() -> BOOL {
        if (sources == nullptr) return FinishWithCode(detailCode, kNoSources, FALSE);
        const INT_PTR count = sources->GetSize();
        if (count == 0 || destination.IsEmpty()) return FinishWithCode(detailCode, kNothingToCopy, FALSE);
        // A path with a NUL inside would add entries of its own to a list: not a usable argument.
        if (HasEmbeddedNul(destination)) return FinishWithCode(detailCode, kNothingToCopy, FALSE);
        for (INT_PTR i = 0; i < count; ++i) {
            if (HasEmbeddedNul(sources->GetAt(i))) return FinishWithCode(detailCode, kNothingToCopy, FALSE);
        }

        ShellList fromList;
        ShellList toList;
        if (!fromList.Allocate(static_cast<size_t>(count))) return FinishWithCode(detailCode, kFromListNotAllocated, FALSE);
        if (!toList.Allocate(static_cast<size_t>(count))) return FinishWithCode(detailCode, kToListNotAllocated, FALSE);

        int accepted = 0;
        for (INT_PTR i = 0; i < count; ++i) {
            CString entry = sources->GetAt(i);
            CString target = destination;
            const DWORD attributes = sys().GetFileAttributesW(entry);
            if (attributes == INVALID_FILE_ATTRIBUTES) continue;
            if (entry.ReverseFind(_T('\\')) < 0) continue;
            const CString namePart = NamePart(entry, withFullPath);
            if (attributes & FILE_ATTRIBUTE_DIRECTORY) {
                if (withFolderName == 1 || withFullPath == 1) {
                    target.TrimRight(_T('\\'));
                    target += namePart;
                }
                entry += _T("\\*.*");
            } else {
                // Unchanged: a destination ending in a backslash gives two before the name.
                target += namePart;
            }
            // A list that cannot grow for a long entry fails the call as an allocation at the start would.
            if (!fromList.Append(entry)) return FinishWithCode(detailCode, kFromListNotAllocated, FALSE);
            if (!toList.Append(target)) return FinishWithCode(detailCode, kToListNotAllocated, FALSE);
            ++accepted;
        }
        if (accepted == 0) return FinishWithCode(detailCode, kNoSourceAccepted, FALSE);
        fromList.Close();
        toList.Close();

        FILEOP_FLAGS flags = ShellCopyFlags(silent, extraFlags);
        // With one source the shell reads the to-entry as it reads CopyFiles' destination.
        if (accepted > 1) flags |= FOF_MULTIDESTFILES;
        SHFILEOPSTRUCTW operation = ShellCopyRecord(owner, fromList.get(), toList.get(), flags);
        const int result = sys().SHFileOperationW(&operation);
        return FinishWithCode(detailCode, result, result == 0 ? TRUE : FALSE);
    });
}
