#include <net/kp_server.h>

int main ()
{
    kp_literate_t io;
    return io.puts (1, "%s\n", "net") == 4 ? 0 : 1;
}
