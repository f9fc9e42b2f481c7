// The registers that the model knows, by offset: their widths and the manual's names.
#pragma once

#include <stdint.h>

struct known_register_t {
    uint32_t offset;
    uint32_t width; // bytes
    const char *name;
};

// The register that the offset lies in; null: none that is known.
const known_register_t *find_register (uint32_t offset);

// What an access of so many bytes does wrong; null: nothing. Dual-port RAM, with the parameter RAM
// in it, takes any width; a device register only its own.
const char *access_problem (uint32_t offset, uint32_t width);
