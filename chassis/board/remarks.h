// Notes on what is not modelled, and refusals: the hardware's behaviour is unknown, or the program
// accesses what is not its own.
#pragma once

#include "chassis/bus/observer.h"

#include <functional>
#include <optional>
#include <set>

class remarks_t {
  public:
    // Gets each line, and whether it is the one at which the board stops.
    using listener_t = std::function<void (const std::string &line, bool refused)>;

    explicit remarks_t (listener_t listener) : listener_ (std::move (listener)) {}

    // What the program is doing: named in the lines that follow.
    void begins (const access_t &access);
    void begins_command (uint32_t word);
    void begins_call (const char *cause);

    // "WHAT is VALUE: WHY (what the program is doing)"; `width`: of the value, in bytes. A note is
    // made once for each `why`; nothing is said after the first refusal.
    void note (const char *what, uint32_t value, int width, const std::string &why);
    void refuse (const char *what, uint32_t value, int width, const std::string &why);
    bool refused () const
    {
        return refused_;
    }

  private:
    listener_t listener_;
    std::optional<access_t> access_;
    std::optional<uint32_t> command_;
    const char *call_ = "";
    std::set<std::string> noted_;
    bool refused_ = false;

    std::string cause () const;
    std::string line (const char *what, uint32_t value, int width, const std::string &why) const;
};

// "0x002A", for two bytes.
std::string hexadecimal (uint32_t value, int width);
