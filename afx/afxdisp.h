// COleDateTime: MFC's automation date and time, with MFC's valid range, status and comparison rules.
#pragma once

#include "afx.h"

// A DATE counts days from 1899-12-30 00:00; the fraction is the time of day, and before that day the
// fraction still runs forward from midnight (-1.25 is 1899-12-29 06:00), so negative values are not a
// straight line and are compared through their linear form.
class COleDateTime {
public:
    enum DateTimeStatus { error = -1, valid = 0, invalid = 1, null = 2 };

    COleDateTime() = default;
    COleDateTime(DATE date) : m_dt(date) {}  // NOLINT: MFC converts implicitly
    COleDateTime(int year, int month, int day, int hour, int minute, int second) {
        SetDateTime(year, month, day, hour, minute, second);
    }
    explicit COleDateTime(const SYSTEMTIME& time);

    // Valid when the moment exists between 100-01-01 00:00:00 and 9999-12-31 23:59:59; otherwise the
    // status becomes invalid (and the value 0). Returns 0 on success, as MFC does.
    int SetDateTime(int year, int month, int day, int hour, int minute, int second);
    int SetDate(int year, int month, int day) { return SetDateTime(year, month, day, 0, 0, 0); }
    int SetTime(int hour, int minute, int second) { return SetDateTime(1899, 12, 30, hour, minute, second); }

    DateTimeStatus GetStatus() const { return m_status; }
    void SetStatus(DateTimeStatus status) { m_status = status; }
    operator DATE() const { return m_dt; }  // NOLINT: MFC converts implicitly

    // Calendar fields, rounded to the nearest second; -1 when the value is not a valid date.
    bool GetAsSystemTime(SYSTEMTIME& time) const;
    int GetYear() const;
    int GetMonth() const;
    int GetDay() const;
    int GetHour() const;
    int GetMinute() const;
    int GetSecond() const;
    int GetDayOfWeek() const;  // 1 for Sunday
    int GetDayOfYear() const;

    // Equal when status and value are equal. An ordering holds only when the left value is valid and
    // both have the same status; with an invalid or null value on either side every ordering is false.
    bool operator==(const COleDateTime& other) const { return m_status == other.m_status && m_dt == other.m_dt; }
    bool operator!=(const COleDateTime& other) const { return !(*this == other); }
    bool operator<(const COleDateTime& other) const;
    bool operator>(const COleDateTime& other) const;
    bool operator<=(const COleDateTime& other) const;
    bool operator>=(const COleDateTime& other) const;

    DATE m_dt = 0;
    DateTimeStatus m_status = valid;
};
