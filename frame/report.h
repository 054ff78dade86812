// The out-of-memory report: one fixed wording for every allocation that we cannot do without.

#ifndef FRAME_REPORT_H
#define FRAME_REPORT_H

#include "frame/vestan.h"

// Ends the process after a failed allocation. `object` is a string literal and becomes part of the
// format; `line` is the allocation's place in the report, a literal that stays when code moves.
// Kept: the text says bytes, but `count` is the number of elements that were asked for.
#define DIE_OUT_OF_MEMORY(function, line, file, object, count)                                     \
  elog_die(1, "Out of memory in %s at line %d of '%s'\n\tCan't malloc %lu bytes for " object "\n", \
           function, line, file, static_cast<unsigned long>(count))

#endif
