// Draws the first transfer of a dump, as `q5_chassis --vcd` writes it: reads the dump from standard
// input, writes SVG to standard output. The stretch in which nothing happens before the poll is
// left out. The picture has its own ground, so that it can be read on a light page and on a dark
// one.
#include "docs/transfer.h"

#include <iostream>

// Pixels.
constexpr int width = 1200;
constexpr int height = 590;
constexpr int plot_left = 126;
constexpr int plot_right = 1172;
constexpr int gap = 40; // where time is left out
constexpr int code_top = 118, strobe_top = 178, txd3_top = 248, rxd3_top = 358;
constexpr int level_height = 34;
constexpr int axis_top = 456;
constexpr int64_t margin = 8000; // nanoseconds, on either side of what happens

static const char style[] = R"(<style>
text { font-family: "DejaVu Sans", Verdana, Helvetica, sans-serif; fill: #dfe7f1; font-size: 15px }
.title { font-size: 22px; font-weight: bold }
.soft { fill: #9fb0c5; font-size: 14px }
.role { fill: #9fb0c5; font-size: 13px }
.wire { font-size: 17px; font-weight: bold }
.byte { font-family: "DejaVu Sans Mono", Consolas, monospace; font-size: 17px; font-weight: bold }
.address { fill: #ffc857 }
.middle { text-anchor: middle }
.ground { fill: #101c2c }
.grid { stroke: #22344b; stroke-width: 1 }
.mark { stroke: #93a5bb; stroke-width: 1; stroke-dasharray: 3 4 }
.stretch { stroke: #93a5bb; stroke-width: 1.5 }
.number { fill: #dfe7f1 }
.dark { fill: #101c2c; font-weight: bold }
path { fill: none; stroke-width: 2; stroke-linejoin: round }
.code { stroke: #c3a6ff; fill: #c3a6ff; fill-opacity: 0.10 }
.strobe { stroke: #f28b6b }
.txd3 { stroke: #5cc8ff }
.rxd3 { stroke: #7be0a3 }
.cell { fill: #ffffff; fill-opacity: 0.06 }
.address_cell { fill: #ffc857; fill-opacity: 0.20 }
.address_bit { fill: #ffc857; fill-opacity: 0.45 }
</style>
)";

// One of the things that happen, in the picture and in words.
struct step_t {
    char digit;
    int64_t from;
    int64_t to;
    int left; // of the words
    const char *name;
    const char *words[2];
};

class picture_t {
  public:
    picture_t (std::ostream &out, const transfer_t &transfer);
    void draw ();

  private:
    std::ostream &out_;
    const transfer_t &transfer_;
    int64_t begin_, quiet_, again_, end_; // what is shown: two stretches

    std::string x (int64_t time) const;
    void text (const std::string &x, int y, const std::string &classes, const std::string &words);
    void box (int64_t from, int64_t to, int top, int bottom, const std::string &classes);
    void draw_head ();
    void draw_axis ();
    void draw_wire (const std::string &name, int top, const std::string &style);
    void draw_code ();
    void draw_characters (const std::vector<character_t> &characters, int top, bool request);
    void draw_step (const step_t &step);
    void draw_number (const std::string &x, int y, const std::string &digit);
};

picture_t::picture_t (std::ostream &out, const transfer_t &transfer)
    : out_ (out), transfer_ (transfer), begin_ (transfer.select - margin),
      quiet_ (transfer.answer.back ().end + margin), again_ (transfer.poll - margin),
      end_ (transfer.poll + margin)
{}

// In tenths of a pixel, so that every machine rounds alike.
std::string picture_t::x (int64_t time) const
{
    int64_t shown = quiet_ - begin_ + end_ - again_;
    int64_t elapsed = time <= quiet_ ? time - begin_ : quiet_ - begin_ + time - again_;
    int64_t tenths = plot_left * 10 + elapsed * (plot_right - plot_left - gap) * 10 / shown +
                     (time <= quiet_ ? 0 : gap * 10);
    return std::to_string (tenths / 10) + "." + std::to_string (tenths % 10);
}

void picture_t::text (const std::string &x, int y, const std::string &classes,
                      const std::string &words)
{
    out_ << "<text x=\"" << x << "\" y=\"" << y << "\" class=\"" << classes << "\">" << words
         << "</text>\n";
}

void picture_t::box (int64_t from, int64_t to, int top, int bottom, const std::string &classes)
{
    out_ << "<path class=\"" << classes << "\" d=\"M" << x (from) << " " << top << " H" << x (to)
         << " V" << bottom << " H" << x (from) << " Z\"/>\n";
}

void picture_t::draw_head ()
{
    out_ << "<svg xmlns=\"http://www.w3.org/2000/svg\" viewBox=\"0 0 " << width << " " << height
         << "\" role=\"img\">\n<title>One transfer on the scan bus</title>\n"
         << style << "<rect class=\"ground\" width=\"" << width << "\" height=\"" << height
         << "\" rx=\"14\"/>\n";
    text ("24", 42, "title", "One transfer on the scan bus");
    text ("24", 68, "soft",
          "as q5_chassis --vcd records it: " +
              std::to_string ((1000000 + transfer_.bit / 2) / transfer_.bit) +
              " kbit/s; a character is a start bit, eight data bits, the address bit (bright), a "
              "stop bit");
}

void picture_t::draw_axis ()
{
    constexpr int64_t step = 20000;
    for (int64_t time = transfer_.select; time <= quiet_; time += step) {
        int64_t micros = (time - transfer_.select) / 1000;
        out_ << "<path class=\"grid\" d=\"M" << x (time) << " 100 V" << axis_top << "\"/>\n";
        text (x (time), axis_top + 20, "soft middle", std::to_string (micros));
    }
    int64_t tenths = (transfer_.poll - transfer_.select + 50000) / 100000;
    text (x (transfer_.poll), axis_top + 20, "soft middle",
          std::to_string (tenths / 10) + "." + std::to_string (tenths % 10) + " ms");
    text ("24", axis_top + 20, "soft", "time, \u00b5s");
}

void picture_t::draw_wire (const std::string &name, int top, const std::string &style)
{
    const wire_t &wire = transfer_.wires.at (name);
    auto y = [=] (bool level) { return std::to_string (level ? top : top + level_height); };
    text ("24", top + 24, "wire", name);
    std::string d = "M" + x (begin_) + " " + y (wire.level_at (begin_));
    for (const change_t &change : wire.changes) {
        bool is_shown = change.time > begin_ && change.time < end_;
        d += is_shown ? " H" + x (change.time) + " V" + y (change.level) : "";
    }
    out_ << "<path class=\"" << style << "\" d=\"" << d << " H" << x (end_) << "\"/>\n";
}

// A lane for a number: it crosses over where the number changes.
void picture_t::draw_code ()
{
    int64_t change = transfer_.select;
    text ("24", code_top + 22, "wire", "slot code");
    box (begin_, change, code_top, code_top + level_height - 4, "code");
    box (change, end_, code_top, code_top + level_height - 4, "code");
    text (x (begin_ + (change - begin_) / 2), code_top + 21, "byte middle",
          std::to_string (transfer_.code_at (begin_)));
    text (x (change + 14 * transfer_.bit), code_top + 21, "byte middle",
          std::to_string (transfer_.code_at (change)));
}

static std::string hex (uint8_t value)
{
    const char *digits = "0123456789ABCDEF";
    return {digits[value >> 4], digits[value & 15]};
}

// What the character is there for.
static std::string role_of (const std::vector<character_t> &characters, size_t index, bool request)
{
    if (characters[index].address) {
        return index != 0 ? "closing" : request ? "command" : "address";
    }
    return request && index <= 2 ? "command" : "data";
}

void picture_t::draw_characters (const std::vector<character_t> &characters, int top, bool request)
{
    for (size_t i = 0; i < characters.size (); i++) {
        const character_t &c = characters[i];
        int64_t bit = transfer_.bit, middle = c.start + (c.end - c.start) / 2;
        box (c.start + bit / 6, c.end - bit / 6, top - 10, top + level_height + 48,
             c.address ? "address_cell" : "cell");
        if (c.address) {
            box (c.start + 9 * bit, c.start + 10 * bit, top - 10, top + level_height + 4,
                 "address_bit");
        }
        text (x (middle), top + level_height + 23,
              c.address ? "byte middle address" : "byte middle", hex (c.value));
        text (x (middle), top + level_height + 42, "role middle", role_of (characters, i, request));
    }
}

// A number over the moment or the stretch, and its words below.
void picture_t::draw_step (const step_t &step)
{
    std::string digit (1, step.digit), left = std::to_string (step.left);
    std::string middle = x (step.from + (step.to - step.from) / 2);
    if (step.from == step.to) {
        out_ << "<path class=\"mark\" d=\"M" << middle << " 92 V" << axis_top << "\"/>\n";
    } else {
        out_ << "<path class=\"stretch\" d=\"M" << x (step.from) << " 102 V92 H" << x (step.to)
             << " V102\"/>\n";
    }
    draw_number (middle, 92, digit);
    draw_number (std::to_string (step.left + 11), 519, digit);
    text (std::to_string (step.left + 30), 525, "wire", step.name);
    text (left, 551, "soft", step.words[0]);
    text (left, 571, "soft", step.words[1]);
}

void picture_t::draw_number (const std::string &x, int y, const std::string &digit)
{
    out_ << "<circle class=\"number\" cx=\"" << x << "\" cy=\"" << y << "\" r=\"11\"/>\n";
    text (x, y + 5, "dark middle", digit);
}

void picture_t::draw ()
{
    draw_head ();
    draw_axis ();
    draw_code ();
    draw_wire ("strobe", strobe_top, "strobe");
    draw_characters (transfer_.request, txd3_top, true);
    draw_characters (transfer_.answer, rxd3_top, false);
    draw_wire ("TXD3", txd3_top, "txd3");
    draw_wire ("RXD3", rxd3_top, "rxd3");
    box (quiet_, again_, 104, axis_top, "ground"); // the time that is left out
    const transfer_t &t = transfer_;
    draw_step ({'2',
                t.request.front ().start,
                t.request.back ().end,
                290,
                "Request",
                {"The command three times, the data,", "00; address characters are amber."}});
    draw_step ({'1',
                t.select,
                t.select,
                24,
                "Select",
                {"The slot's code goes on port C,", "the strobe falls."}});
    draw_step ({'3',
                t.answer.front ().start,
                t.answer.back ().end,
                592,
                "Answer",
                {"After the card's own delay:", "its address, its data, 00."}});
    draw_step ({'4',
                t.poll,
                t.poll,
                888,
                "Poll",
                {"The daemon looks every 10 ms: all", "is there, and the strobe rises."}});
    out_ << "</svg>\n";
}

int main ()
{
    try {
        transfer_t transfer = first_transfer (std::cin);
        picture_t (std::cout, transfer).draw ();
        return std::cout.flush () ? 0 : 1;
    } catch (const std::exception &error) {
        std::cerr << "draw_transfer: standard input: " << error.what () << "\n";
        return 1;
    }
}
