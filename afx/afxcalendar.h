// Proleptic Gregorian calendar arithmetic in UTC, shared by CTime and COleDateTime so that no host time
// zone or range limit takes part.
#pragma once

#include "../platform/win32.h"

// Days from 1970-01-01 to a date (Howard Hinnant's algorithm).
LONGLONG AfxDaysFromCivil(LONGLONG year, unsigned month, unsigned day);

struct AfxCivil {
    LONGLONG year;
    unsigned month, day, hour, minute, second;
};
// The calendar fields of a count of seconds since 1970-01-01 00:00:00.
AfxCivil AfxCivilFromTime(__time64_t time);
