// bench_parts.h - the parts of the date family's benchmark binary: each part
// (calendar and format models, datetime and interval types, time-zone
// lookups) registers its cases and names its pairs of ours and peer.
#ifndef KEL_BENCH_DATETIME_BENCH_PARTS_H
#define KEL_BENCH_DATETIME_BENCH_PARTS_H

#include "bench/support/ratio.h"

void report_calendar(kelbench::RatioReporter &rep);
void report_types(kelbench::RatioReporter &rep);
void report_timezone(kelbench::RatioReporter &rep);
// The time-zone image of this build (exits when it cannot be loaded).
const void *bench_image();

#endif
