// The bus for one program alone, for as long as an object lives.
//
//   q5_scan_claim_t claim (settings);
//   if (claim.held) {
//       q5_scan_exchange (claim.settings, requests); // nobody else's requests in between
//   }
#pragma once

#include "client/batch.h"

#include <stdint.h>

// A client id that nobody has picked by hand: random, more than 0, and not 2. Throws
// std::runtime_error on a system without random numbers.
int32_t q5_scan_fresh_id ();

// Takes the bus under a fresh id and gives it back at the end of its life, whatever happens in
// between. Batches that are to go through carry the id of its settings, from any thread.
class q5_scan_claim_t {
  public:
    q5_scan_settings_t settings; // those given, with the fresh id
    q5_scan_outcome_t outcome;   // of the claim, later of the release
    bool held = false;

    // Claims once, or for as long as settings.wait says while another id holds the bus. Throws what
    // q5_scan_exchange throws for settings that are wrong.
    explicit q5_scan_claim_t (const q5_scan_settings_t &given);

    // Releases, also a claim whose answer was not awaited to the end: the daemon may still come to
    // it. Never throws, and ends within 15 seconds.
    ~q5_scan_claim_t ();
    q5_scan_claim_t (const q5_scan_claim_t &) = delete;
    q5_scan_claim_t &operator= (const q5_scan_claim_t &) = delete;

    // Releases now, with up to three tries. Returns whether the bus is given back, or was never
    // taken; `outcome` tells why not. The daemon comes to a release that it has taken, but not
    // answered in time. The settings' time-outs hold, but none and longer ones are 2 seconds;
    // cancel_fd and wait do not count.
    bool release ();

  private:
    bool owed = false; // a release
};
