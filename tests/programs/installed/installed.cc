#include <scan/q5_scan_client.h>
#include <scan/q5_scan_reader.h>

#include <memory>
#include <stdio.h>

int main ()
{
    auto reader = std::make_unique<q5_scan_reader_t> ("127.0.0.1", Q5_SCAN_PORT);
    printf ("%d\n", reader->compare_dates ("Jan 12 2004 10:22:33", "Jan 12 2004 10:22:34"));
    try {
        reader->begin_message (Q5_SCAN_NUM_SLOTS);
    } catch (const exception_t &e) {
        e.print ();
    }
}
