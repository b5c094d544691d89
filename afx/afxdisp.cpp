// COleDateTime: conversions between automation dates and calendar fields, and MFC's comparisons.
#include <cmath>

#include "afxcalendar.h"
#include "afxdisp.h"

namespace {

constexpr LONGLONG kSecondsPerDay = 86400;
// 1899-12-30, day 0 of an automation date, counted from 1970-01-01.
const LONGLONG kDaysAt1899 = AfxDaysFromCivil(1899, 12, 30);
// The dates MFC accepts: 100-01-01 to the last second of 9999-12-31.
constexpr double kMinDate = -657434.0;
constexpr double kMaxDate = 2958465.99999;

bool IsLeapYear(int year) { return (year % 4 == 0 && year % 100 != 0) || year % 400 == 0; }

int DaysInMonth(int year, int month) {
    static const int kDays[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
    return month == 2 && IsLeapYear(year) ? 29 : kDays[month - 1];
}

// The straight-line form of a DATE, in which earlier is always smaller.
double LinearDate(DATE date) {
    if (date >= 0) return date;
    const double day = std::ceil(date);
    return day - (date - day);
}

// Seconds since 1970 of a valid DATE, rounded to the nearest second.
bool SecondsFromDate(DATE date, __time64_t& seconds) {
    if (!(date >= kMinDate && date <= kMaxDate)) return false;  // also refuses NaN
    const double day = std::trunc(date);
    const LONGLONG secondOfDay = std::llround(std::fabs(date - day) * kSecondsPerDay);
    seconds = (kDaysAt1899 + static_cast<LONGLONG>(day)) * kSecondsPerDay + secondOfDay;
    return true;
}

}  // namespace

COleDateTime::COleDateTime(const SYSTEMTIME& time) {
    SetDateTime(time.wYear, time.wMonth, time.wDay, time.wHour, time.wMinute, time.wSecond);
}

int COleDateTime::SetDateTime(int year, int month, int day, int hour, int minute, int second) {
    const bool exists = year >= 100 && year <= 9999 && month >= 1 && month <= 12 && day >= 1 &&
                        day <= DaysInMonth(year, month) && hour >= 0 && hour <= 23 && minute >= 0 && minute <= 59 &&
                        second >= 0 && second <= 59;
    if (!exists) {
        m_dt = 0;
        m_status = invalid;
        return m_status;
    }
    const LONGLONG days = AfxDaysFromCivil(year, static_cast<unsigned>(month), static_cast<unsigned>(day)) - kDaysAt1899;
    const double fraction = static_cast<double>(hour * 3600 + minute * 60 + second) / kSecondsPerDay;
    m_dt = days >= 0 ? static_cast<double>(days) + fraction : static_cast<double>(days) - fraction;
    m_status = valid;
    return m_status;
}

bool COleDateTime::GetAsSystemTime(SYSTEMTIME& time) const {
    __time64_t seconds = 0;
    if (m_status != valid || !SecondsFromDate(m_dt, seconds)) return false;
    const AfxCivil civil = AfxCivilFromTime(seconds);
    LONGLONG days = seconds / kSecondsPerDay - (seconds % kSecondsPerDay < 0 ? 1 : 0);
    time = SYSTEMTIME{};
    time.wYear = static_cast<WORD>(civil.year);
    time.wMonth = static_cast<WORD>(civil.month);
    time.wDay = static_cast<WORD>(civil.day);
    time.wDayOfWeek = static_cast<WORD>(((days % 7) + 11) % 7);  // 1970-01-01 was a Thursday
    time.wHour = static_cast<WORD>(civil.hour);
    time.wMinute = static_cast<WORD>(civil.minute);
    time.wSecond = static_cast<WORD>(civil.second);
    return true;
}

namespace {

template <class Field>
int FieldOf(const COleDateTime& date, Field field) {
    SYSTEMTIME time{};
    return date.GetAsSystemTime(time) ? field(time) : -1;
}

}  // namespace

int COleDateTime::GetYear() const { return FieldOf(*this, [](const SYSTEMTIME& t) { return int{t.wYear}; }); }
int COleDateTime::GetMonth() const { return FieldOf(*this, [](const SYSTEMTIME& t) { return int{t.wMonth}; }); }
int COleDateTime::GetDay() const { return FieldOf(*this, [](const SYSTEMTIME& t) { return int{t.wDay}; }); }
int COleDateTime::GetHour() const { return FieldOf(*this, [](const SYSTEMTIME& t) { return int{t.wHour}; }); }
int COleDateTime::GetMinute() const { return FieldOf(*this, [](const SYSTEMTIME& t) { return int{t.wMinute}; }); }
int COleDateTime::GetSecond() const { return FieldOf(*this, [](const SYSTEMTIME& t) { return int{t.wSecond}; }); }
int COleDateTime::GetDayOfWeek() const { return FieldOf(*this, [](const SYSTEMTIME& t) { return t.wDayOfWeek + 1; }); }
int COleDateTime::GetDayOfYear() const {
    return FieldOf(*this, [](const SYSTEMTIME& t) {
        return static_cast<int>(AfxDaysFromCivil(t.wYear, t.wMonth, t.wDay) - AfxDaysFromCivil(t.wYear, 1, 1) + 1);
    });
}

bool COleDateTime::operator<(const COleDateTime& other) const {
    return m_status == valid && m_status == other.m_status && LinearDate(m_dt) < LinearDate(other.m_dt);
}
bool COleDateTime::operator>(const COleDateTime& other) const {
    return m_status == valid && m_status == other.m_status && LinearDate(m_dt) > LinearDate(other.m_dt);
}
bool COleDateTime::operator<=(const COleDateTime& other) const {
    return m_status == valid && m_status == other.m_status && LinearDate(m_dt) <= LinearDate(other.m_dt);
}
bool COleDateTime::operator>=(const COleDateTime& other) const {
    return m_status == valid && m_status == other.m_status && LinearDate(m_dt) >= LinearDate(other.m_dt);
}
