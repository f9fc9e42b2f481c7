// Exclusive use of the bus while an object lives, at most until its program ends.
//
//   q5_scan_claim_t claim (settings);
//   if (claim.held) {
//       q5_scan_exchange (claim.settings, requests); // no other client's requests in between
//   }
//
// Batches with its settings, q5_scan_exchange's and q5_scan_fetch's, are one conversation: each
// proves the claim before its requests run (q5_scan_settings_t::claims). A daemon that restarted
// meanwhile is claimed again; when another client has the bus the batch is dropped, and none of it
// runs.
//
// Taking a claim starts a guardian, a second process that does nothing but wait for the end of this
// one, be it by exit, a signal, an uncaught exception or SIGKILL, and then releases the bus. It
// costs a fork, a process that sleeps, one descriptor in the program (the end of a pipe, closed on
// exec) and no memory beyond the pages that the program writes afterwards. It is in a session of
// its own, ignores signals, keeps no file of the program open, is not a child that the program
// could wait for (taking a claim raises one SIGCHLD), and stops trying after three minutes without
// a daemon. A child that the program forks and that does not exec keeps the claim while it lives.
// What ends the guardian too, such as a stopped container or a power cut, leaves the bus claimed:
// releasing with the same id, or restarting the daemon, frees it.
#pragma once

#include "client/batch.h"

#include <stdint.h>
#include <string>
#include <sys/types.h>

// A client id that is unlikely to be in use: random, more than 0, and not 2. Throws
// std::runtime_error on a system without random numbers.
int32_t q5_scan_fresh_id ();

// Takes the bus, and gives it back at the end of its life.
class q5_scan_claim_t {
  public:
    q5_scan_settings_t settings; // those given, with the id of the claim; see above
    q5_scan_outcome_t outcome;   // of the claim, later of the release
    bool held = false;
    std::string problem; // why it is not held or not given back, with its id; "" when all is well

    // Claims under `id`; 0: a fresh one, which settings.id names. Tries once, or for as long as
    // given.wait says while another id holds the bus. Programs that choose the same id share one
    // claim, and the first release ends it. Throws what q5_scan_exchange throws for settings that
    // are wrong.
    explicit q5_scan_claim_t (const q5_scan_settings_t &given, int32_t id = 0);

    // Releases, even when the claim's reply never arrived: the daemon may still execute it. Never
    // throws, and ends within 15 seconds. Does nothing in a forked child.
    ~q5_scan_claim_t ();
    q5_scan_claim_t (const q5_scan_claim_t &) = delete;
    q5_scan_claim_t &operator= (const q5_scan_claim_t &) = delete;

    // Releases now, with up to three tries. Returns whether the bus is given back, or was never
    // taken; `problem` says why not. A release that was sent but not answered in time is still
    // executed. The timeouts of the settings apply, at most 2 seconds each; cancel_fd does not.
    // Wait for exchanges under way in other threads first: each begins with a claim.
    bool release ();

  private:
    bool owed = false;    // a release
    pid_t owner;          // the process that claimed
    int guardian_fd = -1; // a pipe to the guardian; open while it is on duty

    void start_guardian (class q5_scan_deadline_t total);
    void dismiss_guardian ();
};
