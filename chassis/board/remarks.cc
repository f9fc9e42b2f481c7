#include "chassis/board/remarks.h"

#include <stdio.h>

void remarks_t::begins (const access_t &access)
{
    access_ = access;
    command_.reset ();
}

void remarks_t::begins_command (uint32_t word)
{
    access_.reset ();
    command_ = word;
}

void remarks_t::begins_call (const char *cause)
{
    call_ = cause;
    access_.reset ();
    command_.reset ();
}

std::string hexadecimal (uint32_t value, int width)
{
    char text[16];
    value &= 0xFFFFFFFF >> (32 - 8 * width);
    snprintf (text, sizeof (text), "0x%0*X", 2 * width, static_cast<unsigned> (value));
    return text;
}

std::string remarks_t::cause () const
{
    if (command_) {
        return "CP command " + hexadecimal (*command_, 4);
    }
    if (!access_) {
        return call_;
    }
    char where[24];
    snprintf (where, sizeof (where), " at 0x%05X", static_cast<unsigned> (access_->offset));
    return (access_->is_write ? "write of " : "read of ") +
           hexadecimal (access_->value, access_->width) + where + (*access_->name ? ", " : "") +
           access_->name;
}

std::string remarks_t::line (const char *what, uint32_t value, int width,
                             const std::string &why) const
{
    return what + (" is " + hexadecimal (value, width)) + ": " + why + " (" + cause () + ")";
}

void remarks_t::note (const char *what, uint32_t value, int width, const std::string &why)
{
    if (!refused_ && noted_.insert (why).second) {
        listener_ (line (what, value, width, why), false);
    }
}

void remarks_t::refuse (const char *what, uint32_t value, int width, const std::string &why)
{
    if (!refused_) {
        refused_ = true;
        listener_ (line (what, value, width, why), true);
    }
}
