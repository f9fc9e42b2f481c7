// Preloaded, with FAIL="CALL N ERRNO" in the environment: the Nth such call of the program since
// its start or last accept fails with this errno. With errno 0: with 1, 2, 3... after every second
// accept.
#include <dlfcn.h>
#include <errno.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/auxv.h>

static int num_calls, num_accepts;

static void *base_of (const void *code)
{
    Dl_info info = {};
    dladdr (code, &info);
    return info.dli_fbase;
}

static bool fails (const char *call, const void *caller)
{
    char failing[20];
    int n, error;
    if (base_of (caller) != base_of (reinterpret_cast<void *> (getauxval (AT_ENTRY))) ||
        sscanf (getenv ("FAIL"), "%19s %d %d", failing, &n, &error) != 3) {
        return false;
    }
    if (strcmp (call, "accept") == 0) {
        num_accepts++;
        num_calls = 0;
    }
    if (!strstr (call, failing) || ++num_calls != n || (error == 0 && num_accepts % 2 == 0)) {
        return false;
    }
    errno = error == 0 ? (num_accepts + 1) / 2 : error;
    return true;
}

// The arguments in registers, as every one of these calls has them.
#define MAY_FAIL(symbol)                                                                           \
    extern "C" long may_fail_##symbol (long a, long b, long c, long d, long e,                     \
                                       long f) __asm__(#symbol);                                   \
    long may_fail_##symbol (long a, long b, long c, long d, long e, long f)                        \
    {                                                                                              \
        static auto *next =                                                                        \
            reinterpret_cast<decltype (&may_fail_##symbol)> (dlsym (RTLD_NEXT, #symbol));          \
        return fails (#symbol, __builtin_return_address (0)) ? -1 : next (a, b, c, d, e, f);       \
    }
MAY_FAIL (open)
MAY_FAIL (__open_2) // counts as another
MAY_FAIL (ioctl)
MAY_FAIL (mmap)
MAY_FAIL (socket)
MAY_FAIL (bind)
MAY_FAIL (listen)
MAY_FAIL (accept)
MAY_FAIL (read)
MAY_FAIL (write)
