# shellcheck shell=sh
# Dates, without starting a process for each. Not a command: the commands that print dates include it.
# shellcheck disable=SC2034 # the variables are for the commands that include this file

# An awk function: the date of a number of days since 1970. Years begin in March here, so that a leap day is the
# last day of its year; after 400 years (146097 days) the calendar repeats.
# shellcheck disable=SC2016
date_in_awk='
    function date_of(days,    era, rest, year, month) {
        days += 719468
        era = int(days / 146097)
        rest = days % 146097
        year = int((rest - int(rest / 1460) + int(rest / 36524) - int(rest / 146096)) / 365)
        rest -= 365 * year + int(year / 4) - int(year / 100)
        month = int((5 * rest + 2) / 153)
        rest -= int((153 * month + 2) / 5) - 1
        year += era * 400 + (month >= 10)
        return sprintf("%04d-%02d-%02d", year, month < 10 ? month + 3 : month - 9, rest)
    }'
