// Errors, time conversions and threads.
#include <time.h>

#include <cstring>

#include "internal.h"
#include "table.h"

namespace vlx {

DWORD WINAPI GetLastError() { return LastError(); }
void WINAPI SetLastError(DWORD code) { SetLastErrorCode(code); }

namespace {

constexpr ULONGLONG kTicksPerMillisecond = 10000;
constexpr ULONGLONG kTicksPerDay = 864000000000ULL;

// Days from 1601-01-01 to a proleptic Gregorian date.
LONGLONG DaysFrom1601(int year, int month, int day) {
    const int y = month <= 2 ? year - 1 : year;
    const int era = y / 400;
    const int yearOfEra = y - era * 400;
    const int dayOfYear = (153 * (month + (month > 2 ? -3 : 9)) + 2) / 5 + day - 1;
    const int dayOfEra = yearOfEra * 365 + yearOfEra / 4 - yearOfEra / 100 + dayOfYear;
    return static_cast<LONGLONG>(era) * 146097 + dayOfEra - 584694;  // 584694: days from 0000-03-01 to 1601-01-01
}

}  // namespace

BOOL WINAPI FileTimeToSystemTime(const FILETIME* fileTime, LPSYSTEMTIME systemTime) {
    if (fileTime == nullptr || systemTime == nullptr) return Fail(ERROR_NOACCESS, FALSE);
    const ULONGLONG ticks = (static_cast<ULONGLONG>(fileTime->dwHighDateTime) << 32) | fileTime->dwLowDateTime;
    if (ticks >= 0x8000000000000000ULL) return Fail(ERROR_INVALID_PARAMETER, FALSE);
    const LONGLONG days = static_cast<LONGLONG>(ticks / kTicksPerDay);
    const ULONGLONG inDay = ticks % kTicksPerDay;
    // Civil date from days since 1601-01-01 (shifted to an era that starts on 0000-03-01).
    const LONGLONG z = days + 584694;
    const LONGLONG era = z / 146097;
    const LONGLONG dayOfEra = z - era * 146097;
    const LONGLONG yearOfEra = (dayOfEra - dayOfEra / 1460 + dayOfEra / 36524 - dayOfEra / 146096) / 365;
    const LONGLONG dayOfYear = dayOfEra - (365 * yearOfEra + yearOfEra / 4 - yearOfEra / 100);
    const LONGLONG mp = (5 * dayOfYear + 2) / 153;
    const LONGLONG day = dayOfYear - (153 * mp + 2) / 5 + 1;
    const LONGLONG month = mp < 10 ? mp + 3 : mp - 9;
    const LONGLONG year = yearOfEra + era * 400 + (month <= 2 ? 1 : 0);
    systemTime->wYear = static_cast<WORD>(year);
    systemTime->wMonth = static_cast<WORD>(month);
    systemTime->wDay = static_cast<WORD>(day);
    systemTime->wDayOfWeek = static_cast<WORD>((days + 1) % 7);  // 1601-01-01 was a Monday
    systemTime->wHour = static_cast<WORD>(inDay / (3600 * 1000 * kTicksPerMillisecond));
    systemTime->wMinute = static_cast<WORD>(inDay / (60 * 1000 * kTicksPerMillisecond) % 60);
    systemTime->wSecond = static_cast<WORD>(inDay / (1000 * kTicksPerMillisecond) % 60);
    systemTime->wMilliseconds = static_cast<WORD>(inDay / kTicksPerMillisecond % 1000);
    return TRUE;
}

BOOL WINAPI SystemTimeToFileTime(const SYSTEMTIME* systemTime, LPFILETIME fileTime) {
    if (systemTime == nullptr || fileTime == nullptr) return Fail(ERROR_NOACCESS, FALSE);
    const SYSTEMTIME& t = *systemTime;
    static const int kDaysInMonth[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
    const bool leap = (t.wYear % 4 == 0 && t.wYear % 100 != 0) || t.wYear % 400 == 0;
    if (t.wYear < 1601 || t.wYear > 30827 || t.wMonth < 1 || t.wMonth > 12 || t.wDay < 1 ||
        t.wDay > kDaysInMonth[t.wMonth - 1] + (t.wMonth == 2 && leap ? 1 : 0) || t.wHour > 23 || t.wMinute > 59 ||
        t.wSecond > 59 || t.wMilliseconds > 999)
        return Fail(ERROR_INVALID_PARAMETER, FALSE);
    const ULONGLONG days = static_cast<ULONGLONG>(DaysFrom1601(t.wYear, t.wMonth, t.wDay));
    const ULONGLONG ticks = days * kTicksPerDay +
                            ((static_cast<ULONGLONG>(t.wHour) * 60 + t.wMinute) * 60 + t.wSecond) * 1000 * kTicksPerMillisecond +
                            static_cast<ULONGLONG>(t.wMilliseconds) * kTicksPerMillisecond;
    fileTime->dwLowDateTime = static_cast<DWORD>(ticks);
    fileTime->dwHighDateTime = static_cast<DWORD>(ticks >> 32);
    return TRUE;
}

void WINAPI Sleep(DWORD milliseconds) {
    struct timespec delay {};
    delay.tv_sec = static_cast<time_t>(milliseconds / 1000);
    delay.tv_nsec = static_cast<long>(milliseconds % 1000) * 1000000L;
    while (nanosleep(&delay, &delay) != 0) {
    }
}

}  // namespace vlx
