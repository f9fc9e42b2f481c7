// Prints each access of the program to the internal memory map, one line each:
//
//     0.010000  write 32 bits at 0x10D50 PDATC        00000091
//     0.010000  read  16 bits at 0x01000              2000
//     0.010000  CP command                            08C10000
//
// The time in seconds, the width, the offset, the register's name in the manual, the value.
#pragma once

#include "chassis/bus/observer.h"
#include "chassis/bus/trace_file.h"

#include <functional>

class register_trace_t final : public chassis_observer_t {
  public:
    // `now`: the chassis's time in ticks of `brgclk`. Does not own the file.
    register_trace_t (FILE *file, uint32_t brgclk, std::function<uint64_t ()> now)
        : file_ (file, brgclk), now_ (std::move (now))
    {}

    void access (const access_t &access) override;
    void command (uint32_t word) override;

  private:
    trace_file_t file_;
    std::function<uint64_t ()> now_;
};
