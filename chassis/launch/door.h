// The program's way to the emulated board. Linked into a program or preloaded, it interposes on the
// C library's open, ioctl, mmap, usleep, nanosleep and bind: /dev/scanp, /dev/mem, sleeping and the
// daemon's port belong to the attached chassis; everything else passes through to the C library.
#pragma once

#include "chassis/board/chassis.h"

#include <netinet/in.h>

// Attaches the chassis that the devices belong to, which must live until it is detached; null
// detaches. Without one the door passes everything through.
void door_attach (chassis_t *chassis);

// What to call at the first open of a device while no chassis is attached; it returns the chassis
// to attach, or null. Called once.
void door_on_first_open (chassis_t *(*make) ());

// Whether the thread that attached the chassis, or opened a device last, only moves the chassis's
// time when it sleeps. Without that, and in other threads, it sleeps as well.
void door_set_fast (bool fast);

// Where the program listens from now on: binding a TCP socket to port 1971, or to any port but 0
// once a device was opened, binds it here instead. With port 0 any free one is taken, and printed
// on standard error: "q5_chassis: listening on ADDRESS:PORT".
void door_listen_at (const sockaddr_in &address);
