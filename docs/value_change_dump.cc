#include "docs/value_change_dump.h"

#include <sstream>
#include <stdexcept>

bool wire_t::level_at (int64_t time) const
{
    bool level = true;
    for (const change_t &change : changes) {
        if (change.time > time) {
            break;
        }
        level = change.level;
    }
    return level;
}

int64_t wire_t::next (bool level, int64_t time) const
{
    for (const change_t &change : changes) {
        if (change.time >= time && change.level == level) {
            return change.time;
        }
    }
    return -1;
}

// "$var wire 1 t TXD3 $end", with the bit of a vector as a word of its own.
static std::string name_of (std::istream &words)
{
    std::string name, bit;
    words >> name >> bit;
    return bit == "$end" ? name : name + bit;
}

std::map<std::string, wire_t> read_dump (std::istream &in)
{
    std::map<std::string, wire_t> wires;
    std::map<char, wire_t *> by_letter;
    int64_t now = 0;
    for (std::string line; std::getline (in, line);) {
        std::istringstream words (line);
        std::string word, type, width, letter;
        words >> word;
        if (word == "$var" && words >> type >> width >> letter) {
            by_letter[letter[0]] = &wires[name_of (words)];
        } else if (word == "$timescale" && line != "$timescale 1 ns $end") {
            throw std::runtime_error ("the timescale is not 1 ns");
        } else if (word[0] == '#') {
            now = std::stoll (word.substr (1));
        } else if ((word[0] == '0' || word[0] == '1') && by_letter.count (word[1])) {
            by_letter[word[1]]->changes.push_back ({now, word[0] == '1'});
        }
    }
    return wires;
}
