#include "tools/commands.h"

#include "tools/command/batch.h"
#include "tools/command/hold.h"
#include "tools/command/images.h"
#include "tools/command/inventory.h"
#include "tools/command/metrics.h"
#include "tools/command/snapshot.h"
#include "tools/command/watch.h"
#include "tools/parse/files.h"
#include "tools/parse/parse.h"
#include "tools/parse/types.h"
#include "tools/show/fetch_view.h"

#include <memory>

using texts_t = std::vector<std::string>;

// The words of one command, as they are typed; its work checks them.
struct words_t {
    std::string slot, command, first, second, rx, types, interval = "1", count = "0";
    std::string file = "-", other_file, commands = "51,73,83", names;
    texts_t bytes, tx, slots, hosts, images;
    bool full = false, present = false, raw = false;
};
using words_pointer_t = std::shared_ptr<words_t>;

static CLI::App *add (CLI::App &app, choice_t &choice, const std::string &name,
                      const std::string &description, std::function<report_t ()> work)
{
    CLI::App *command = app.add_subcommand (name, description)->group ("Commands");
    command->callback ([&choice, name, work] () { choice = {name, work, false}; });
    return command;
}

static CLI::App *add_for_daemon (CLI::App &app, choice_t &choice, const std::string &name,
                                 const std::string &description, std::function<report_t ()> work)
{
    CLI::App *command = add (app, choice, name, description, work);
    command->callback ([&choice, name, work] () { choice = {name, work, true}; });
    return command;
}

static std::string joined (const texts_t &texts)
{
    std::string text;
    for (const std::string &part : texts) {
        text += part + " ";
    }
    return text;
}

static q5_scan_request_t short_request_of (const words_t &words)
{
    return q5_scan_short_request (parse_slot (words.slot), parse_plain_byte ("FIRST", words.first),
                                  parse_plain_byte ("SECOND", words.second),
                                  parse_bytes ("BYTES", joined (words.bytes), Q5_SCAN_MAX_SHORT));
}

// Hex, or the contents of a file behind an @.
static bytes_t tx_of (const words_t &words)
{
    if (words.tx.size () != 1 || words.tx[0][0] != '@') {
        return parse_bytes ("--tx", joined (words.tx), Q5_SCAN_MAX_TX);
    }
    std::string file = read_file (words.tx[0].substr (1), Q5_SCAN_MAX_TX);
    return bytes_t (file.begin (), file.end ());
}

static q5_scan_request_t bus_request_of (const CLI::App &command, const words_t &words)
{
    q5_scan_request_t request;
    request.slot = parse_slot (words.slot);
    request.command = parse_word ("COMMAND", words.command);
    request.tx = tx_of (words);
    request.rxlen = command.count ("--rx") > 0 ? parse_number ("--rx", words.rx, 0, Q5_SCAN_MAX_RX)
                                               : usual_rxlen (request.command);
    return request;
}

static void add_run (CLI::App &app, const globals_t &globals, choice_t &choice)
{
    words_pointer_t w = std::make_shared<words_t> ();
    CLI::App *run = add_for_daemon (app, choice, "run", "run one request", [&globals, &app, w] () {
        q5_scan_request_t request = bus_request_of (*app.get_subcommand ("run"), *w);
        return w->raw ? run_raw (globals, request) : run_requests (globals, {request});
    });
    run->add_option ("SLOT", w->slot, "0 to 31")->required ();
    run->add_option ("COMMAND", w->command, "the card sees its low 8 bits; 1 claims, 2 releases")
        ->required ();
    run->add_option ("--tx", w->tx, "bytes to transmit, up to 4094: in hex, or @FILE for a file's")
        ->type_name ("HEX...");
    run->add_option ("--rx", w->rx, "bytes wanted back, up to 4096 (the default)")->type_name ("N");
    run->add_flag ("--raw", w->raw, "write the received bytes as they are, and nothing else");
}

void add_bus_commands (CLI::App &app, const globals_t &globals, choice_t &choice)
{
    words_pointer_t w = std::make_shared<words_t> ();
    add_for_daemon (app, choice, "claim",
                    "take the bus: batches of other ids are dropped until the release",
                    [&globals] () { return run_claim (globals); });
    add_for_daemon (app, choice, "release", "give the bus back",
                    [&globals] () { return run_requests (globals, {q5_scan_release_request ()}); });

    CLI::App *holding = add_for_daemon (
        app, choice, "hold", "claim the bus, run a command that has it to itself, release the bus",
        [&globals] () { return hold (globals, globals.held_command); });
    holding->footer ("Usage: q5_scan hold [--] COMMAND...");

    CLI::App *send = add_for_daemon (
        app, choice, "send", "send the short message (command 147) to a slot",
        [&globals, w] () { return run_requests (globals, {short_request_of (*w)}); });
    send->add_option ("SLOT", w->slot, "0 to 31")->required ();
    send->add_option ("FIRST", w->first, "first byte, 0 to 255: a digit, or in 0x form")
        ->required ();
    send->add_option ("SECOND", w->second, "second byte, likewise")->required ();
    send->add_option ("BYTES", w->bytes, "up to 27 bytes more, in hex");

    add_run (app, globals, choice);

    CLI::App *batch = add_for_daemon (
        app, choice, "batch", "run many requests in one batch, one a line",
        [&globals, w] () { return run_requests (globals, read_batch_file (w->file)); });
    batch->add_option ("FILE", w->file,
                       "SLOT COMMAND [--tx HEX] [--rx N] a line; - or none: "
                       "standard input");
}

static q5_scan_types_t types_of (const CLI::App &command, const words_t &words)
{
    return command.count ("--types") > 0 ? parse_types (words.types) : q5_scan_usual_types ();
}

static void add_table_options (CLI::App &command, words_t &words)
{
    command.add_option ("SLOT", words.slots, "0 to 31, or 3-7,23; none: all slots");
    command
        .add_option ("--types", words.types,
                     "what the letters mean, LETTER[N]=TYPE[*SCALE][:NAME],...; types: byte, "
                     "sbyte, short, sshort, int, uint, string, rest, bytes:N (default: "
                     "b=byte,h=short,i=int,s=string,x=rest)")
        ->type_name ("TYPES");
    command.add_flag ("--full", words.full, "cut nothing in the table");
    command.add_flag ("--present", words.present, "leave out the slots without a card");
}

static report_t fetch (const globals_t &globals, const q5_scan_types_t &types, const words_t &words)
{
    fetch_view_t view ({words.full, words.present, !globals.as_json});
    interrupt_t interrupt;
    q5_scan_settings_t settings = globals.settings;
    settings.cancel_fd = interrupt.fd ();
    fetched_t fetched =
        fetch_slots (settings, parse_slots (words.slots), types,
                     [&view] (const std::vector<slot_report_t> &slots) { view.update (slots); });
    view.finish (fetched.slots);
    return report_of (fetched, !words.slots.empty (), words.present);
}

static report_t watch (const globals_t &globals, const q5_scan_types_t &types, const words_t &words)
{
    watch_options_t options;
    options.slots = parse_slots (words.slots);
    options.types = types;
    options.full = words.full;
    options.only_present = words.present;
    options.must_answer = !words.slots.empty ();
    options.interval = parse_seconds ("--interval", words.interval, 3600);
    options.count = parse_number ("--count", words.count, 0, INT32_MAX);
    return watch (globals, options);
}

static void add_inventory (CLI::App &app, const globals_t &globals, choice_t &choice)
{
    words_pointer_t w = std::make_shared<words_t> ();
    CLI::App *asking =
        add_for_daemon (app, choice, "inventory",
                        "the build identity of every card, held against images", [&globals, w] () {
                            return inventory (globals, w->images, parse_slots (w->slots),
                                              parse_number ("--command", w->command, 3, 255));
                        });
    w->command = std::to_string (identity_command);
    asking->add_option ("IMAGE", w->images, "firmware images; the newest of each type counts");
    asking->add_option ("--slots", w->slots, "0 to 31, or 3-7,23 (default: all)")
        ->type_name ("LIST")
        ->expected (1);
    asking
        ->add_option ("--command", w->command, "what a card answers with its identity (default 73)")
        ->type_name ("N");
}

static void add_snapshot (CLI::App &app, const globals_t &globals, choice_t &choice)
{
    words_pointer_t w = std::make_shared<words_t> ();
    CLI::App *taking = add_for_daemon (
        app, choice, "snapshot", "what the chassis answers now, as a chassis file for q5_chassis",
        [&globals, w] () {
            return snapshot (globals, parse_slots (w->slots), parse_commands (w->commands));
        });
    taking->add_option ("SLOT", w->slots, "0 to 31, or 3-7,23; none: all slots");
    taking
        ->add_option ("--commands", w->commands,
                      "what to ask each card (default 51,73,83: message, identity, raw block)")
        ->type_name ("LIST");
}

static void add_metrics (CLI::App &app, const globals_t &globals, choice_t &choice)
{
    words_pointer_t w = std::make_shared<words_t> ();
    CLI::App *measuring =
        add_for_daemon (app, choice, "metrics", "what several chassis say, as text for Prometheus",
                        [&globals, w] () {
                            return metrics (globals, {w->hosts, parse_slots (w->slots),
                                                      read_names_file (w->names)});
                        });
    measuring->add_option ("HOST", w->hosts, "HOST or HOST:PORT, asked at the same time");
    measuring->add_option ("--slots", w->slots, "0 to 31, or 3-7,23 (default: all)")
        ->type_name ("LIST")
        ->expected (1);
    measuring
        ->add_option ("--names", w->names,
                      "a file of names: SLOT INDEX NAME [SCALE] [signed|unsigned] a line")
        ->type_name ("FILE");
}

void add_chassis_commands (CLI::App &app, const globals_t &globals, choice_t &choice)
{
    words_pointer_t w = std::make_shared<words_t> ();
    CLI::App *fetching = add_for_daemon (
        app, choice, "fetch", "show what the cards say, as a table", [&globals, &app, w] () {
            CLI::App *command = app.get_subcommand ("fetch");
            return fetch (globals, types_of (*command, *w), *w);
        });
    add_table_options (*fetching, *w);

    CLI::App *watching = add_for_daemon (
        app, choice, "watch", "show the same table again and again", [&globals, &app, w] () {
            CLI::App *command = app.get_subcommand ("watch");
            return watch (globals, types_of (*command, *w), *w);
        });
    add_table_options (*watching, *w);
    watching->add_option ("--interval", w->interval, "seconds between rounds (default 1)")
        ->type_name ("SECONDS");
    watching->add_option ("--count", w->count, "rounds (default 0: until Ctrl-C)")->type_name ("N");
    add_inventory (app, globals, choice);
    add_snapshot (app, globals, choice);
    add_metrics (app, globals, choice);
}

void add_image_commands (CLI::App &app, const globals_t &globals, choice_t &choice)
{
    words_pointer_t w = std::make_shared<words_t> ();
    CLI::App *identify = add (app, choice, "identity", "type and build date of a firmware image",
                              [w] () { return identity (w->file); });
    identify->add_option ("IMAGE", w->file)->required ();

    CLI::App *compare = add (app, choice, "newer", "which of two firmware images is newer",
                             [w] () { return newer (w->file, w->other_file); });
    compare->add_option ("IMAGE1", w->file)->required ();
    compare->add_option ("IMAGE2", w->other_file)->required ();

    CLI::App *show = add (app, choice, "dump", "a file in hex and characters",
                          [&globals, w] () { return dump (w->file, globals.as_json); });
    show->add_option ("FILE", w->file)->required ();
}
