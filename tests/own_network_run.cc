// own_network COMMAND...: becomes the command, in a network of its own.
#include "tests/own_network.h"

#include <stdio.h>
#include <unistd.h>

int main (int argc, char **argv)
{
    if (argc < 2) {
        fputs ("usage: own_network COMMAND...\n", stderr);
        return 2;
    }
    enter_own_network ();
    execvp (argv[1], argv + 1);
    perror (argv[1]);
    return 127;
}
