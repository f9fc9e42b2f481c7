// A character device /dev/scanp in user space, for machines without the board: answers the driver's
// three requests, and goes when the program is killed. scanp [FUSE OPTION...]
#define FUSE_USE_VERSION 31
#include <cuse_lowlevel.h>
#include <stdint.h>
#include <stdio.h>

static void scanp_open (fuse_req_t request, struct fuse_file_info *file)
{
    fuse_reply_open (request, file);
}

static void scanp_ioctl (fuse_req_t request, int number, void *argument, struct fuse_file_info *file,
                         unsigned flags, const void *in, size_t in_size, size_t out_size)
{
    (void) argument, (void) file, (void) flags, (void) in, (void) in_size, (void) out_size;
    // The address of the buffers, where this machine has no memory, the offset of the dual-port RAM, and a command carried out.
    fuse_reply_ioctl (request, (number & 0xFF) == 1 ? 0x40000000 : 0, NULL, 0);
}

int main (int argc, char **argv)
{
    static const char *info[] = {"DEVNAME=scanp"};
    static const struct cuse_info device = {.dev_info_argc = 1, .dev_info_argv = info};
    static const struct cuse_lowlevel_ops operations = {.open = scanp_open, .ioctl = scanp_ioctl};
    return cuse_lowlevel_main (argc, argv, &device, &operations, NULL);
}
