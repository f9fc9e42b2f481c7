#include "tools/parse/names.h"

#include "tools/parse/files.h"
#include "tools/parse/parse.h"
#include "tools/show/output.h"
#include "tools/show/report.h"

#include <charconv>
#include <math.h>
#include <sstream>

constexpr size_t most_text = 1 << 20;

[[noreturn]] static void line_failure (const std::string &what)
{
    usage_failure (what, "A line is: SLOT INDEX NAME [SCALE] [signed|unsigned], for example "
                         "7 3 outside_celsius 0.01 signed");
}

static bool take_scale (const std::string &word, name_t *name)
{
    const char *end = word.data () + word.size ();
    auto [stop, error] = std::from_chars (word.data (), end, name->scale);
    return error == std::errc () && stop == end && isfinite (name->scale);
}

static void add_line (std::istringstream &words, names_t *names)
{
    std::string slot, index;
    name_t name;
    if (!(words >> slot)) {
        return;
    }
    if (!(words >> index >> name.name)) {
        line_failure ("three words are expected at least");
    }
    std::string word;
    bool has_scale = words >> word && take_scale (word, &name);
    if (has_scale) {
        word.clear ();
        words >> word;
    }
    if (word == "signed" || word == "unsigned") {
        name.is_signed = word == "signed";
        word.clear ();
        words >> word;
    }
    if (!word.empty ()) {
        line_failure ("'" + printable (word) + "' is not expected here");
    }
    std::pair<int32_t, int32_t> place = {parse_slot (slot), parse_number ("index", index, 1, 127)};
    if (!names->emplace (place, name).second) {
        line_failure ("slot " + slot + " index " + index + " is named twice");
    }
}

names_t read_names (std::istream &text, const std::string &file)
{
    names_t names;
    int number = 0;
    for (std::string line; std::getline (text, line);) {
        number++;
        std::istringstream words (line.substr (0, line.find ('#')));
        try {
            add_line (words, &names);
        } catch (failure_t &failure) {
            failure.what = file + ":" + std::to_string (number) + ": " + failure.what;
            throw;
        }
    }
    return names;
}

names_t read_names_file (const std::string &path)
{
    if (path.empty ()) {
        return {};
    }
    std::istringstream text (read_file (path, most_text));
    return read_names (text, shown_name (path));
}

// The same bits under the other sign.
static int64_t with_sign (const q5_scan_field_t &field, bool is_signed)
{
    switch (field.type.kind) {
    case q5_scan_kind_t::byte_field:
    case q5_scan_kind_t::signed_byte_field:
        return is_signed ? int64_t (int8_t (field.number)) : uint8_t (field.number);
    case q5_scan_kind_t::short_field:
    case q5_scan_kind_t::signed_short_field:
        return is_signed ? int64_t (int16_t (field.number)) : uint16_t (field.number);
    default:
        return is_signed ? int64_t (int32_t (field.number)) : int64_t (uint32_t (field.number));
    }
}

double value_of (const q5_scan_field_t &field, const name_t *name)
{
    if (!name) {
        return static_cast<double> (field.number);
    }
    int64_t number = name->is_signed ? with_sign (field, *name->is_signed) : field.number;
    return static_cast<double> (number) * name->scale;
}
