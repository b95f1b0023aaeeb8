# shellcheck shell=sh
# Dates, without a process for each. No command, but a part that those which print dates read in.
# shellcheck disable=SC2034 # what is set here is for those that read it in

# In awk, the day of a number of days since 1970. Years begin with March here, so that a leap day is the last of
# its year; after 400 of them (146097 days) the calendar repeats.
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
