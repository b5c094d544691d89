// CTime: conversions between FILETIME, calendar dates and seconds since 1970, all in UTC.
#include <ctime>

#include "../platform/api.h"
#include "afx.h"
#include "afxcalendar.h"

namespace {

constexpr LONGLONG kFileTimeTicksPerSecond = 10000000;
constexpr LONGLONG kFileTimeAt1970 = 116444736000000000;  // 100-ns ticks from 1601 to 1970

}  // namespace

LONGLONG AfxDaysFromCivil(LONGLONG year, unsigned month, unsigned day) {
    year -= month <= 2;
    const LONGLONG era = (year >= 0 ? year : year - 399) / 400;
    const unsigned yearOfEra = static_cast<unsigned>(year - era * 400);
    const unsigned dayOfYear = (153 * (month + (month > 2 ? -3 : 9)) + 2) / 5 + day - 1;
    const unsigned dayOfEra = yearOfEra * 365 + yearOfEra / 4 - yearOfEra / 100 + dayOfYear;
    return era * 146097 + static_cast<LONGLONG>(dayOfEra) - 719468;
}

AfxCivil AfxCivilFromTime(__time64_t time) {
    LONGLONG days = time / 86400;
    LONGLONG seconds = time % 86400;
    if (seconds < 0) {
        seconds += 86400;
        --days;
    }
    days += 719468;
    const LONGLONG era = (days >= 0 ? days : days - 146096) / 146097;
    const unsigned dayOfEra = static_cast<unsigned>(days - era * 146097);
    const unsigned yearOfEra = (dayOfEra - dayOfEra / 1460 + dayOfEra / 36524 - dayOfEra / 146096) / 365;
    const unsigned dayOfYear = dayOfEra - (365 * yearOfEra + yearOfEra / 4 - yearOfEra / 100);
    const unsigned mp = (5 * dayOfYear + 2) / 153;
    const unsigned day = dayOfYear - (153 * mp + 2) / 5 + 1;
    const unsigned month = mp < 10 ? mp + 3 : mp - 9;
    const LONGLONG year = static_cast<LONGLONG>(yearOfEra) + era * 400 + (month <= 2);
    return {year, month, day, static_cast<unsigned>(seconds / 3600), static_cast<unsigned>(seconds / 60 % 60),
            static_cast<unsigned>(seconds % 60)};
}

__time64_t AfxFileTimeToTime64(const FILETIME& fileTime) {
    const LONGLONG ticks = static_cast<LONGLONG>((static_cast<ULONGLONG>(fileTime.dwHighDateTime) << 32) | fileTime.dwLowDateTime);
    // FILETIME values above 0x7FFF... are invalid on Windows too; read them as the largest valid one.
    const LONGLONG since1970 = (ticks < 0 ? INT64_MAX : ticks) - kFileTimeAt1970;
    LONGLONG seconds = since1970 / kFileTimeTicksPerSecond;
    if (since1970 % kFileTimeTicksPerSecond < 0) --seconds;
    return seconds;
}

CTime::CTime(const FILETIME& fileTime, int /*dst*/) : m_time(AfxFileTimeToTime64(fileTime)) {}

CTime::CTime(int year, int month, int day, int hour, int minute, int second, int /*dst*/)
    : m_time(AfxDaysFromCivil(year, static_cast<unsigned>(month), static_cast<unsigned>(day)) * 86400 + hour * 3600LL +
             minute * 60LL + second) {}

CTime CTime::GetCurrentTime() { return CTime(static_cast<__time64_t>(std::time(nullptr))); }

int CTime::GetYear() const { return static_cast<int>(AfxCivilFromTime(m_time).year); }
int CTime::GetMonth() const { return static_cast<int>(AfxCivilFromTime(m_time).month); }
int CTime::GetDay() const { return static_cast<int>(AfxCivilFromTime(m_time).day); }
int CTime::GetHour() const { return static_cast<int>(AfxCivilFromTime(m_time).hour); }
int CTime::GetMinute() const { return static_cast<int>(AfxCivilFromTime(m_time).minute); }
int CTime::GetSecond() const { return static_cast<int>(AfxCivilFromTime(m_time).second); }
