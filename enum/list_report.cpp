// Counting with list report: GetFileCountInFolderEx, the folder walk with date and size filters that
// reports every counted file as a row of the caller's list-view control.
#include "../frame/extension_filter.h"
#include "enum_internal.h"

namespace {

enum DateFilterMode { kNoDateFilter = 0, kDateBetween = 1, kDateNotBefore = 2, kDateNotAfter = 3 };
enum SizeFilterMode { kNoSizeFilter = 0, kSameKilobytes = 1, kSizeAtLeast = 2, kSizeAtMost = 3 };

constexpr ULONGLONG kKilobyte = 1024;

// The list-view columns of a report row after the path, which is the row's own text.
constexpr int kWrittenColumn = 1;
constexpr int kSizeColumn = 2;

// MFC's comparisons are false whenever either date is not valid, so an invalid bound or file date never
// excludes a file.
bool DateExcludes(int dateMode, const COleDateTime& fileDate, const COleDateTime& dateFrom, const COleDateTime& dateTo) {
    switch (dateMode) {
        case kDateBetween: return dateFrom > fileDate || dateTo < fileDate;
        case kDateNotBefore: return dateFrom > fileDate;
        case kDateNotAfter: return dateTo < fileDate;
        default: return false;
    }
}

bool SizeExcludes(int sizeMode, ULONGLONG size, ULONGLONG sizeLimit) {
    switch (sizeMode) {
        case kSameKilobytes: return size / kKilobyte != sizeLimit / kKilobyte;
        case kSizeAtLeast: return size < sizeLimit;
        case kSizeAtMost: return size > sizeLimit;
        default: return false;
    }
}

CString WrittenText(const SYSTEMTIME& written) {
    CString text;
    text.Format(_T("%04d/%02d/%02d %02d:%02d"), written.wYear, written.wMonth, written.wDay, written.wHour, written.wMinute);
    return text;
}

CString SizeText(ULONGLONG size) {
    CString text;
    if (size >= kKilobyte) text.Format(_T("%I64u KB"), size / kKilobyte);
    else text.Format(_T("%I64u バイト"), size);
    return text;
}

void ReportRow(CListCtrl& list, const CString& filePath, bool withDetails, const SYSTEMTIME& written, ULONGLONG size) {
    // Columns 1 and 2 are addressed by the count taken before the insertion, so the control is expected
    // to append in order rather than sort.
    const int row = static_cast<int>(sys().SendMessageW(list.GetSafeHwnd(), LVM_GETITEMCOUNT, 0, 0));
    list.InsertItem(LVIF_TEXT, row, filePath, 0, 0, 0, 0);
    if (!withDetails) return;
    list.SetItemText(row, kWrittenColumn, WrittenText(written));
    list.SetItemText(row, kSizeColumn, SizeText(size));
}

}  // namespace

VELMORA_EXPORT void GetFileCountInFolderEx(CString path, ULONGLONG* pFileCount, ULONGLONG* pFolderCount,
                                           ULONGLONG* pTotalSize, FileListNode* pListTail, CString extFilter,
                                           BOOL* pCancel, COleDateTime dateFrom, COleDateTime dateTo, int dateMode,
                                           ULONGLONG sizeLimit, int sizeMode, CListCtrl* pListCtrl) {
    VelmoraGuardedVoidCall([&] {
        WalkOneLevel(path, pListTail, extFilter.IsEmpty(), pFolderCount, pCancel,
                     [&](const CString& folder, FileListNode* tail) {
                         GetFileCountInFolderEx(CString(folder), pFileCount, pFolderCount, pTotalSize, tail,
                                                CString(extFilter), pCancel, COleDateTime(dateFrom),
                                                COleDateTime(dateTo), dateMode, sizeLimit, sizeMode, pListCtrl);
                     },
                     [&](const CString& filePath, const WIN32_FIND_DATAW& entry, FileListNode*& tail) {
                         if (!extFilter.IsEmpty() && !MatchesExtensionFilter(filePath, extFilter)) return;

                         // The file's day as UTC calendar fields, at midnight.
                         SYSTEMTIME written{};
                         COleDateTime fileDate;
                         if (sys().FileTimeToSystemTime(&entry.ftLastWriteTime, &written))
                             fileDate.SetDateTime(written.wYear, written.wMonth, written.wDay, 0, 0, 0);
                         else
                             fileDate.SetStatus(COleDateTime::invalid);
                         if (DateExcludes(dateMode, fileDate, dateFrom, dateTo)) return;

                         ULONGLONG size = 0;
                         if (GetFileLength(CString(filePath), &size) == 1) {
                             if (pTotalSize != nullptr) *pTotalSize += size;
                             if (SizeExcludes(sizeMode, size, sizeLimit)) return;
                         } else {
                             size = 0;
                         }

                         if (pFileCount != nullptr) ++*pFileCount;
                         if (tail != nullptr) AppendNode(tail, filePath);
                         if (pListCtrl != nullptr) ReportRow(*pListCtrl, filePath, pTotalSize != nullptr, written, size);
                     });
    });
}
