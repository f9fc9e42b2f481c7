// Where the faults of the program arrive.
#pragma once

// Installs the handler of SIGSEGV, and that of SIGBUS, at the first call; at each, looks up where
// the program's code is. Faults outside of trapped views go to the handler that was there before.
// Ends the process, with a message, if there can be none.
void install_fault_handler ();
