// sleeps N: sleeps N times for the 10 ms between two looks at a transfer, and does nothing else.
#include <stdlib.h>
#include <unistd.h>

int main (int, char **argv)
{
    for (int i = atoi (argv[1]); i > 0; i--) {
        usleep (10000);
    }
    return 0;
}
