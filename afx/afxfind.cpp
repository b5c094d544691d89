// CFileFind over the platform's FindFirstFileW/FindNextFileW/FindClose.
#include "../platform/api.h"
#include "afx.h"

BOOL CFileFind::FindFile(LPCTSTR name, DWORD /*unused*/) {
    Close();
    const LPCTSTR pattern = name != nullptr ? name : _T("*.*");
    HANDLE find = sys().FindFirstFileW(pattern, &m_next);
    if (find == INVALID_HANDLE_VALUE) return FALSE;
    m_context = find;
    // The root is the pattern's folder part, so GetFilePath gives a path the caller can open again. It is
    // cut straight from the caller's text: a lookup of one entry makes no other copy of its path.
    const size_t length = WStrLen(pattern);
    size_t folderEnd = length;
    while (folderEnd > 0 && pattern[folderEnd - 1] != _T('\\') && pattern[folderEnd - 1] != _T('/')) --folderEnd;
    if (folderEnd > 0) m_root = CString(pattern, static_cast<int>(folderEnd - 1));
    else if (length >= 2 && pattern[1] == _T(':')) m_root = CString(pattern, 2);
    else m_root.Empty();
    return TRUE;
}

BOOL CFileFind::FindNextFile() {
    if (m_context == nullptr) return FALSE;
    m_found = m_next;
    m_hasFound = true;
    return sys().FindNextFileW(m_context, &m_next);
}

void CFileFind::Close() {
    if (m_context != nullptr) {
        sys().FindClose(m_context);
        m_context = nullptr;
    }
    m_hasFound = false;
}

ULONGLONG CFileFind::GetLength() const {
    if (!m_hasFound) return 0;
    return (static_cast<ULONGLONG>(m_found.nFileSizeHigh) << 32) | m_found.nFileSizeLow;
}

CString CFileFind::GetFileName() const { return m_hasFound ? CString(m_found.cFileName) : CString(); }

CString CFileFind::GetFilePath() const {
    if (!m_hasFound) return CString();
    CString path = m_root;
    if (!path.IsEmpty() && path[path.GetLength() - 1] != _T('\\') && path[path.GetLength() - 1] != _T(':')) path += _T('\\');
    return path + m_found.cFileName;
}

BOOL CFileFind::GetCreationTime(CTime& time) const {
    if (!m_hasFound) return FALSE;
    time = CTime(m_found.ftCreationTime);
    return TRUE;
}

BOOL CFileFind::GetLastAccessTime(CTime& time) const {
    if (!m_hasFound) return FALSE;
    time = CTime(m_found.ftLastAccessTime);
    return TRUE;
}

BOOL CFileFind::GetLastWriteTime(CTime& time) const {
    if (!m_hasFound) return FALSE;
    time = CTime(m_found.ftLastWriteTime);
    return TRUE;
}

BOOL CFileFind::GetCreationTime(FILETIME* time) const {
    if (!m_hasFound || time == nullptr) return FALSE;
    *time = m_found.ftCreationTime;
    return TRUE;
}

BOOL CFileFind::GetLastAccessTime(FILETIME* time) const {
    if (!m_hasFound || time == nullptr) return FALSE;
    *time = m_found.ftLastAccessTime;
    return TRUE;
}

BOOL CFileFind::GetLastWriteTime(FILETIME* time) const {
    if (!m_hasFound || time == nullptr) return FALSE;
    *time = m_found.ftLastWriteTime;
    return TRUE;
}

BOOL CFileFind::MatchesMask(DWORD mask) const { return m_hasFound && (m_found.dwFileAttributes & mask) != 0; }

BOOL CFileFind::IsDots() const {
    if (!m_hasFound || !IsDirectory()) return FALSE;
    const WCHAR* name = m_found.cFileName;
    return name[0] == _T('.') && (name[1] == 0 || (name[1] == _T('.') && name[2] == 0));
}
