// The build identity of every card, compared with firmware images.
#pragma once

#include "tools/session.h"

#include <stdint.h>
#include <string>
#include <vector>

// The command that a card answers with its identity text, unless the caller names another.
constexpr int32_t identity_command = 73;

struct inventory_options_t {
    std::vector<std::string> images; // files
    std::vector<int32_t> slots;
    int32_t command = identity_command;
    std::vector<std::string> hosts = {}; // HOST or HOST:PORT; none: that of the settings
};

// Asks the slots, and compares each card's build date with that of the newest image of the same
// type. Empty slots are left out. The status is status_failed when a card is older than its image,
// is damaged, or answers without an identity; that of the failure when a host failed, which does
// not keep the others from being reported. Throws failure_t, before anything is sent, for an image
// without an identity.
report_t inventory (const globals_t &globals, const inventory_options_t &options);
