// One table of a TOML file, read key by key, every problem as one line that names file, line and
// key. Slow to compile: for the reader of the chassis file alone.
#pragma once

#include "chassis/file/chassis_file_error.h"
#include "chassis/file/typed_message.h"

#include <algorithm>
#include <optional>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

// A setting of the library: it asserts of any text that it makes sense (of "[[[a]]", that a key
// follows) before it reports that it does not.
#define TOML_ASSERT(expr) static_assert (true)
#include <toml++/toml.h>

using keys_t = std::vector<std::string>;
template <typename value_t> using choices_t = std::vector<std::pair<const char *, value_t>>;

inline std::string join (const keys_t &names)
{
    std::string list;
    for (const std::string &name : names) {
        list += (list.empty () ? "" : ", ") + name;
    }
    return list;
}

inline std::string found (const toml::node &node)
{
    if (const auto *text = node.as_string ()) {
        return "found " + quoted (text->get ());
    }
    if (node.is_table () || node.is_array ()) {
        return node.is_table () ? "found a table" : "found an array";
    }
    std::ostringstream out;
    out << "found " << toml::node_view<const toml::node> (node);
    return out.str ();
}

inline std::string whole_number (int64_t low, int64_t high)
{
    return "a whole number from " + std::to_string (low) + " to " + std::to_string (high);
}

// Every reading function leaves `value` alone when the key is not there, and
// throws chassis_file_error_t when its value is not valid.
class section_t {
  public:
    section_t (const toml::table &table, std::string path, const std::string &file,
               const keys_t &known)
        : table_ (table), path_ (std::move (path)), file_ (file)
    {
        for (const auto &[key, node] : table_) {
            std::string name (key.str ());
            if (std::find (known.begin (), known.end (), name) == known.end ()) {
                fail (key.source (), full (name), "unknown key, expected one of: " + join (known));
            }
        }
    }

    bool has (const std::string &key) const
    {
        return table_.contains (key);
    }

    [[noreturn]] void fail (const std::string &key, const std::string &why) const
    {
        fail (table_.get (key)->source (), full (key), why);
    }

    // For what is missing: the line is the section's own.
    [[noreturn]] void fail_whole (const std::string &key, const std::string &why) const
    {
        fail (table_.source (), full (key), why);
    }

    [[noreturn]] void fail_at (const toml::node &node, const std::string &key,
                               const std::string &why) const
    {
        fail (node.source (), full (key), why);
    }

    // `expected`: what the message asks for instead of the range.
    template <typename value_t>
    bool number (const char *key, int64_t low, int64_t high, value_t &value,
                 const std::string &expected = "") const
    {
        const toml::node *node = table_.get (key);
        if (!node) {
            return false;
        }
        const auto *integer = node->as_integer ();
        if (!integer || integer->get () < low || integer->get () > high) {
            fail (key, found (*node) + ", expected " +
                           (expected.empty () ? whole_number (low, high) : expected));
        }
        value = static_cast<value_t> (integer->get ());
        return true;
    }

    template <typename value_t>
    void number (const char *key, int64_t low, int64_t high, std::optional<value_t> &value) const
    {
        value_t given = 0;
        if (number (key, low, high, given)) {
            value = given;
        }
    }

    void boolean (const char *key, bool &value) const
    {
        if (const toml::node *node = table_.get (key)) {
            if (!node->is_boolean ()) {
                fail (key, found (*node) + ", expected true or false");
            }
            value = node->as_boolean ()->get ();
        }
    }

    // An empty text when the key is not there.
    std::string text (const char *key) const
    {
        const toml::node *node = table_.get (key);
        if (node && !node->is_string ()) {
            fail (key, found (*node) + ", expected a text in quotes");
        }
        return node ? node->as_string ()->get () : "";
    }

    template <typename value_t, typename target_t>
    void choice (const char *key, const choices_t<value_t> &choices, target_t &value) const
    {
        if (!has (key)) {
            return;
        }
        std::string given = text (key);
        keys_t names;
        for (const auto &[name, meaning] : choices) {
            if (given == name) {
                value = meaning;
                return;
            }
            names.push_back (name);
        }
        fail (key, found (*table_.get (key)) + ", expected one of: " + join (names));
    }

    // Null when the key is not there.
    const toml::array *array (const char *key, const char *expected) const
    {
        const toml::node *node = table_.get (key);
        if (node && !node->is_array ()) {
            fail (key, found (*node) + ", expected " + expected);
        }
        return node ? node->as_array () : nullptr;
    }

    std::vector<section_t> sections (const char *key, const keys_t &known) const
    {
        std::vector<section_t> list;
        const std::string expected = "[[" + full (key) + "]] sections";
        if (const toml::array *nodes = array (key, expected.c_str ())) {
            for (const toml::node &node : *nodes) {
                if (!node.is_table ()) {
                    fail_at (node, key, found (node) + ", expected " + expected);
                }
                list.emplace_back (*node.as_table (), full (key), file_, known);
            }
        }
        return list;
    }

    std::optional<section_t> section (const char *key, const keys_t &known) const
    {
        const toml::node *node = table_.get (key);
        if (!node) {
            return std::nullopt;
        }
        if (!node->is_table ()) {
            fail (key, found (*node) + ", expected one [" + full (key) + "] section");
        }
        return section_t (*node->as_table (), full (key), file_, known);
    }

  private:
    std::string full (const std::string &key) const
    {
        return path_.empty () || key.empty () ? path_ + key : path_ + "." + key;
    }

    [[noreturn]] void fail (const toml::source_region &where, const std::string &key,
                            const std::string &why) const
    {
        throw chassis_file_error_t (file_ + ":" + std::to_string (where.begin.line) + ": " + key +
                                    ": " + why);
    }

    const toml::table &table_;
    std::string path_;
    const std::string &file_;
};
