#include "tools/command/samples.h"

#include <chrono>
#include <functional>
#include <future>

using std::chrono::duration;
using std::chrono::steady_clock;

static void take (sample_t &sample)
{
    steady_clock::time_point start = steady_clock::now ();
    sample.outcome = q5_scan_fetch (sample.settings, sample.selection, sample.replies);
    sample.seconds = duration<double> (steady_clock::now () - start).count ();
}

void take_samples (std::vector<sample_t> &samples)
{
    std::vector<std::future<void>> all;
    for (sample_t &sample : samples) { // where the system has no thread left: one by one
        all.push_back (std::async (take, std::ref (sample)));
    }
    for (std::future<void> &one : all) {
        one.get ();
    }
}
