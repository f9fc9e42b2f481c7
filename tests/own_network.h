// A network of its own for a test: nobody else has its ports, whatever runs on the machine.
#pragma once

// Moves this process, which still has one thread, into a network namespace where just the loopback
// device is up; as a user without rights, through a user namespace. Where the machine allows
// neither, says so and waits until no other test holds the ports; they are this test's until its
// end. Does nothing below a program that has done it.
void enter_own_network ();
