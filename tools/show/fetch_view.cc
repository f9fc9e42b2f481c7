#include "tools/show/fetch_view.h"

#include <algorithm>
#include <stdio.h>

fetch_view_t::fetch_view_t (const table_style_t &style, bool has_rows)
    : style (style), has_rows (has_rows)
{}

// The widths are known of the slots that have answered; the others get what is usual.
void fetch_view_t::make_room (const std::vector<slot_report_t> &slots)
{
    bool has_unknown = false, has_open = false;
    for (const slot_report_t &slot : slots) {
        has_unknown |= !slot.typed_result;
        has_open |= !slot.is_whole ();
        if (slot.typed_result && is_shown (slot, style)) {
            table.widen (row_of (slot, style));
        }
    }
    const std::string longest_state (25, ' '), usual_fields (44, ' '), usual_raw (23, ' ');
    table.widen (chosen ({"", has_unknown ? longest_state : "", "", "",
                          has_unknown ? usual_fields : "", has_open ? usual_raw : "", ""},
                         style));
}

void fetch_view_t::show_row (const std::vector<slot_report_t> &slots, const slot_report_t &slot)
{
    make_room (slots);
    if (!has_heading) {
        table.widen (heading (style));
        fit (table, style);
        puts (table.line (heading (style)).c_str ());
        has_heading = true;
    }
    puts (table.line (row_of (slot, style)).c_str ());
}

void fetch_view_t::show_rows (const std::vector<slot_report_t> &slots, size_t end)
{
    if (!has_rows) {
        return;
    }
    for (; next < end; next++) {
        if (is_shown (slots[next], style)) {
            show_row (slots, slots[next]);
        }
    }
    fflush (stdout);
}

static size_t num_answered (const std::vector<slot_report_t> &slots)
{
    return std::count_if (slots.begin (), slots.end (), [] (const slot_report_t &slot) {
        return slot.typed_result.has_value ();
    });
}

void fetch_view_t::update (const std::vector<slot_report_t> &slots)
{
    auto open = std::find_if (slots.begin () + next, slots.end (),
                              [] (const slot_report_t &slot) { return !slot.is_whole (); });
    progress.hide ();
    show_rows (slots, open - slots.begin ());
    progress.show (num_answered (slots), slots.size ());
}

void fetch_view_t::finish (const std::vector<slot_report_t> &slots)
{
    progress.hide ();
    show_rows (slots, num_answered (slots) > 0 ? slots.size () : next);
}
