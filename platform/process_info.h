#pragma once
// When and where a log line is written: the local wall-clock time to the millisecond, and the
// ids of the process and the thread, as the system's own tools show them.

namespace qm {

struct LocalTime {
  int year;
  int month;   // 1..12
  int day;     // 1..31
  int hour;    // 0..23
  int minute;  // 0..59
  int second;  // 0..60, for a leap second
  int millisecond;  // 0..999
};

// The time now in the machine's time zone.
LocalTime localTimeNow();

long long processId();
long long threadId();

}  // namespace qm
