// Layout of the records on the 32-bit target.
#include "net/exception.h"
#include "scan/q5_scan_reader.h"
#include "scan/q5_scan_server.h"
#include "scanp/scanp.h"

static_assert (sizeof (exception_t) == 204 && sizeof (scan_port_state_t) == 40);
static_assert (offsetof (exception_t, code) == 200 && offsetof (scan_port_state_t, rx_bds) == 24);
static_assert (sizeof (kp_literate_t) == 1001 && sizeof (kp_client_t) == 1308);
static_assert (sizeof (q5_scan_client_t) == 1312 && sizeof (q5_scan_reader_t) == 265528);
static_assert (sizeof (q5_scan_server_t) == 10808 && sizeof (q5_scan_command_t) == 28);
static_assert (offsetof (q5_scan_command_t, txbuf) == 16 && offsetof (scc_bd_t, pointer) == 4);
