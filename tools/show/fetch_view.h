// A fetch in progress: rows as soon as they are whole, and on a terminal a line of progress.
#pragma once

#include "tools/command/fetch.h"
#include "tools/show/progress.h"

#include <string>
#include <vector>

// Rows go to standard output in the order of the slots, progress to standard error.
class fetch_view_t {
  public:
    // Without rows it is progress only.
    fetch_view_t (const table_style_t &style, bool has_rows);

    // One of the slots knows more than before.
    void update (const std::vector<slot_report_t> &slots);
    // The rest of the rows, whole or not, and the end of the progress.
    void finish (const std::vector<slot_report_t> &slots);

  private:
    const table_style_t style;
    const bool has_rows;
    progress_t progress;
    table_t table;
    size_t next = 0; // the first slot that is not shown
    bool has_heading = false;

    void show_row (const std::vector<slot_report_t> &slots, const slot_report_t &slot);
    void show_rows (const std::vector<slot_report_t> &slots, size_t end);
    void make_room (const std::vector<slot_report_t> &slots);
};
