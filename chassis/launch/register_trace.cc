#include "chassis/launch/register_trace.h"

void register_trace_t::access (const access_t &access)
{
    char line[80];
    snprintf (line, sizeof (line), "%s %2d bits at 0x%05X %-12s %0*X",
              access.is_write ? "write" : "read ", 8 * access.width,
              static_cast<unsigned> (access.offset), access.name, 2 * access.width,
              static_cast<unsigned> (access.value));
    file_.put (now_ (), line);
}

void register_trace_t::command (uint32_t word)
{
    char line[80];
    snprintf (line, sizeof (line), "CP command                            %08X",
              static_cast<unsigned> (word));
    file_.put (now_ (), line);
}
