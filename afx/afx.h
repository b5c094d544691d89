// The core of the MFC subset: CString, CTime and CFileFind, with MFC's names and semantics.
#pragma once

#include "../platform/win32.h"
#include "afxstr.h"

// CTime: whole seconds since 1970-01-01 00:00:00 UTC.
//
// Built from a FILETIME, the fraction of a second is dropped by rounding toward the earlier second, so
// 1969-12-31 23:59:59.5 becomes -1. MFC goes through the local time and refuses dates before 1970 or
// after 3000 with an exception; no exception may leave an export, so here every FILETIME converts, to
// the count of whole seconds from 1970 it stands for: before 1970 a negative count, after 3000 a count
// past MFC's range. Both are exact, so a caller can still compare and print them.
class CTime {
public:
    CTime() = default;
    explicit CTime(__time64_t time) : m_time(time) {}
    explicit CTime(const FILETIME& fileTime, int dst = -1);
    CTime(int year, int month, int day, int hour, int minute, int second, int dst = -1);

    static CTime GetCurrentTime();
    __time64_t GetTime() const { return m_time; }

    // Parts of the time in UTC. MFC gives local time; the library never reads them, hosts print UTC.
    int GetYear() const;
    int GetMonth() const;
    int GetDay() const;
    int GetHour() const;
    int GetMinute() const;
    int GetSecond() const;

    friend bool operator==(const CTime&, const CTime&) = default;
    friend auto operator<=>(const CTime&, const CTime&) = default;

private:
    __time64_t m_time = 0;
};

// Seconds since 1970 for a FILETIME (100-nanosecond units since 1601), rounded toward the earlier second.
__time64_t AfxFileTimeToTime64(const FILETIME& fileTime);

// CFileFind: FindFile starts a search and keeps the first match as the next one; FindNextFile makes the
// next match current and looks for the one after it, returning 0 (last error ERROR_NO_MORE_FILES) when
// the match it made current was the last.
class CFileFind {
public:
    CFileFind() = default;
    ~CFileFind() { Close(); }
    CFileFind(const CFileFind&) = delete;
    CFileFind& operator=(const CFileFind&) = delete;

    BOOL FindFile(LPCTSTR name = nullptr, DWORD unused = 0);
    BOOL FindNextFile();
    void Close();

    ULONGLONG GetLength() const;
    CString GetFileName() const;
    CString GetFilePath() const;
    CString GetRoot() const { return m_root; }
    BOOL GetCreationTime(CTime& time) const;
    BOOL GetLastAccessTime(CTime& time) const;
    BOOL GetLastWriteTime(CTime& time) const;
    BOOL GetCreationTime(FILETIME* time) const;
    BOOL GetLastAccessTime(FILETIME* time) const;
    BOOL GetLastWriteTime(FILETIME* time) const;
    BOOL MatchesMask(DWORD mask) const;
    BOOL IsDots() const;
    BOOL IsDirectory() const { return MatchesMask(FILE_ATTRIBUTE_DIRECTORY); }
    BOOL IsReadOnly() const { return MatchesMask(FILE_ATTRIBUTE_READONLY); }
    BOOL IsHidden() const { return MatchesMask(FILE_ATTRIBUTE_HIDDEN); }
    BOOL IsSystem() const { return MatchesMask(FILE_ATTRIBUTE_SYSTEM); }
    BOOL IsArchived() const { return MatchesMask(FILE_ATTRIBUTE_ARCHIVE); }
    BOOL IsCompressed() const { return MatchesMask(FILE_ATTRIBUTE_COMPRESSED); }

private:
    HANDLE m_context = nullptr;
    bool m_hasFound = false;
    WIN32_FIND_DATAW m_found{};
    WIN32_FIND_DATAW m_next{};
    CString m_root;
};
