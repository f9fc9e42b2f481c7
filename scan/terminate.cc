// Replaces the C++ runtime's terminate handler, which prints the exception's type and so links the
// demangler, half of the daemon's size. No exception but exception_t is ever expected.
#include <exception>
#include <stdio.h>
#include <stdlib.h>

namespace __gnu_cxx {
void __verbose_terminate_handler ()
{
    fputs ("q5_scand: aborted by an unexpected exception\n", stderr);
    abort ();
}
} // namespace __gnu_cxx
