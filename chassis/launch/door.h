// The program's way to the emulated board. Linked into a program or preloaded, it stands before the
// C library's open, ioctl, mmap, usleep and nanosleep: /dev/scanp, /dev/mem and sleeping belong to
// the attached chassis, everything else passes through to the C library.
#pragma once

#include "chassis/board/chassis.h"

// The chassis behind the devices, which must outlive its being attached; null detaches. Without one
// the door passes everything through.
void door_attach (chassis_t *chassis);

// What to call at the first open of a device while no chassis is attached; it returns the chassis
// to attach, or null. Called once.
void door_on_first_open (chassis_t *(*make) ());

// Whether sleeping only moves the chassis's time, in no time at all. Otherwise it sleeps as well.
// It is the thread that opened a device last whose sleep moves the time: a chassis serves one.
void door_set_fast (bool fast);
