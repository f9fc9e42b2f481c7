// delayed_link MILLISECONDS COMMAND...: runs COMMAND in a network namespace of its own, at the far
// end of a link to this one, on which each packet takes MILLISECONDS either way. This end has the
// address 10.19.71.1, the far end 10.19.71.2. Ends with the status of COMMAND.
#include <array>
#include <chrono>
#include <deque>
#include <fcntl.h>
#include <linux/if.h>
#include <linux/if_tun.h>
#include <poll.h>
#include <sched.h>
#include <stdio.h>
#include <stdlib.h>
#include <string>
#include <sys/ioctl.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

using my_clock_t = std::chrono::steady_clock;

struct packet_t {
    my_clock_t::time_point due;
    std::vector<char> bytes;
};

// What went in at one end and is not yet out at the other.
struct direction_t {
    int from, to;
    std::deque<packet_t> under_way;
};

[[noreturn]] static void fail (const char *what)
{
    perror (what);
    exit (EXIT_FAILURE);
}

// A network device of this namespace whose packets the descriptor reads and writes.
static int open_end (const std::string &address)
{
    int fd = open ("/dev/net/tun", O_RDWR | O_CLOEXEC | O_NONBLOCK);
    ifreq request = {};
    request.ifr_flags = IFF_TUN | IFF_NO_PI;
    snprintf (request.ifr_name, sizeof (request.ifr_name), "q5_delayed");
    if (fd == -1 || ioctl (fd, TUNSETIFF, &request) == -1) {
        fail ("delayed_link: /dev/net/tun");
    }
    std::string set_up =
        "ip address add " + address + "/30 dev q5_delayed && ip link set q5_delayed up";
    if (system (set_up.c_str ()) != 0) {
        fprintf (stderr, "delayed_link: '%s' fails\n", set_up.c_str ());
        exit (EXIT_FAILURE);
    }
    return fd;
}

static void take (direction_t &direction, my_clock_t::duration delay)
{
    std::array<char, 65536> bytes;
    ssize_t length;
    while ((length = read (direction.from, bytes.data (), bytes.size ())) > 0) {
        direction.under_way.push_back (
            {my_clock_t::now () + delay, {bytes.data (), bytes.data () + length}});
    }
}

static void deliver (direction_t &direction)
{
    auto &queue = direction.under_way;
    for (; !queue.empty () && queue.front ().due <= my_clock_t::now (); queue.pop_front ()) {
        if (write (direction.to, queue.front ().bytes.data (), queue.front ().bytes.size ()) ==
            -1) {
            perror ("delayed_link: a packet is lost");
        }
    }
}

// Sleeps until a packet comes, or one is due, at most for a tenth of a second.
static void wait_for_packets (const std::array<direction_t, 2> &link)
{
    my_clock_t::duration left = std::chrono::milliseconds (100);
    for (const direction_t &direction : link) {
        if (!direction.under_way.empty ()) {
            left = std::min (left, direction.under_way.front ().due - my_clock_t::now ());
        }
    }
    left = std::max (left, my_clock_t::duration::zero ());
    timespec time = {0, static_cast<long> (std::chrono::nanoseconds (left).count ())};
    std::array<pollfd, 2> ends = {pollfd{link[0].from, POLLIN, 0}, pollfd{link[1].from, POLLIN, 0}};
    ppoll (ends.data (), ends.size (), &time, nullptr);
}

static pid_t start (char **command)
{
    pid_t child = fork ();
    if (child == 0) {
        execvp (command[0], command);
        fail (command[0]);
    }
    return child;
}

int main (int argc, char **argv)
{
    if (argc < 3) {
        fprintf (stderr, "usage: delayed_link MILLISECONDS COMMAND...\n");
        return EXIT_FAILURE;
    }
    const std::chrono::milliseconds delay (atoi (argv[1]));
    int near = open_end ("10.19.71.1");
    if (unshare (CLONE_NEWNET) == -1) {
        fail ("delayed_link: unshare");
    }
    int far = open_end ("10.19.71.2");
    pid_t child = start (argv + 2);

    std::array<direction_t, 2> link = {direction_t{near, far, {}}, direction_t{far, near, {}}};
    int status = 0;
    while (waitpid (child, &status, WNOHANG) == 0) {
        wait_for_packets (link);
        for (direction_t &direction : link) {
            take (direction, delay);
            deliver (direction);
        }
    }
    return WIFEXITED (status) ? WEXITSTATUS (status) : EXIT_FAILURE;
}
