// A program for the launcher to become: tells what reached it, then ends by the signal or with the
// status that its argument names. Built as the preload library is, sanitizers and all.
#include <initializer_list>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

int main (int, char **argv)
{
    for (const char *name :
         {"Q5_CHASSIS_FILE", "Q5_CHASSIS_TRACE", "Q5_CHASSIS_FAST", "LD_PRELOAD"}) {
        const char *value = getenv (name);
        printf ("%s,", value ? value : "unset");
    }
    printf ("%s\n", argv[1]);
    fflush (stdout);
    if (strcmp (argv[1], "--terminate") == 0) {
        raise (SIGTERM);
    }
    return atoi (argv[1]);
}
