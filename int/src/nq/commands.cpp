// The list of commands.
#include "command.h"

namespace nq {

namespace {

// In the order of the help text: the main job first.
constexpr const Command* s_commands[] = {
    &s_scrubCommand,  &s_timeCommand, &s_durationCommand, &s_utf8Command,  &s_encodeCommand,
    &s_decodeCommand, &s_dumpCommand, &s_uuidCommand,     &s_hashCommand,  &s_cpuCommand,
    &s_envCommand,    &s_runCommand,  &s_traceCommand,    &s_errorCommand,
};

}  // namespace

constinit const Command s_nqCommand{
    .name = "nq",
    .summary = "nqcore on the command line: clean logs, read times, encode and dump bytes, describe processors",
    .details =
        "Exit codes: 0 done, 1 bad data (or data that cannot be read or written), 2 bad usage.\n"
        "Failures are described on standard error, with all their fields; --brief makes that one line.\n",
    .children = s_commands,
};

}  // namespace nq
