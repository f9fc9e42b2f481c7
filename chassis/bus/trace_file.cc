#include "chassis/bus/trace_file.h"

#include "chassis/bus/one_line.h"

#include <errno.h>
#include <stdio_ext.h>
#include <string.h>

void trace_file_t::put (uint64_t tick, const std::string &line)
{
    if (missing_ > 0) { // the last one may be incomplete
        fprintf (file_, "\n... %llu lines are missing here\n",
                 static_cast<unsigned long long> (missing_));
    }
    uint64_t micros = tick % brgclk_ * 1000000 / brgclk_;
    fprintf (file_, "%llu.%06llu  %s\n", static_cast<unsigned long long> (tick / brgclk_),
             static_cast<unsigned long long> (micros), line.c_str ());
    if (fflush (file_) == 0 && !ferror (file_)) {
        missing_ = 0;
        return;
    }
    if (!complained_) {
        complain (std::string ("the trace has a gap, it cannot be written: ") + strerror (errno));
    }
    complained_ = true;
    missing_++;
    __fpurge (file_);
    clearerr (file_);
}
