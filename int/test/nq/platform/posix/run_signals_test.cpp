// `nq run` among signals, groups of processes and inherited files, as a shell sees it.
#include "shell.h"

#include <gtest/gtest.h>
#include <string>

namespace {

struct ShellCase {
    const char* name;
    const char* script;  ///< $nq is the tool
    const char* answer;
};

constexpr ShellCase s_cases[] = {
    {"exit_code", "$nq run sh -c 'exit 7' 2>&1; echo $?", "[exit code: 7]\n7\n"},
    {"signal", "$nq run sh -c 'kill -KILL $$' 2>&1; echo $?", "[signal: 9 SIGKILL]\n137\n"},
    {"not_executable", "$nq run --brief / 2> /dev/null; echo $?", "126\n"},
    {"streams", "echo in | $nq run -q sh -c 'cat; echo err >&2' 2>&1", "in\nerr\n"},
    {"files", "[ $(ls /proc/self/fd | wc -l) = $($nq run -q -t 9s ls /proc/self/fd | wc -l) ] && echo same", "same\n"},
    {"broken_pipe", "$nq run sh -c 'yes 2> /dev/null; kill -l $?' 2> /dev/null | head -n 1", "y\n"},
    {"sigpipe_is_as_usual", "$nq run -q sh -c 'trap \"\" USR1; kill -PIPE $$; echo alive'; echo $?", "141\n"},
    {"ignored_ends_of_children", "(trap '' CHLD; exec $nq run sh -c 'exit 3') 2>&1; echo $?", "[exit code: 3]\n3\n"},
    {"passes_on",
     "$nq run sh -c 'trap \"echo got; exit 5\" TERM; echo ready > nq_ready; while :; do sleep 0.01; done' 2>&1 &\n"
     "while ! [ -s nq_ready ]; do sleep 0.01; done; rm nq_ready; kill -TERM $!; wait $!; echo $?",
     "got\n[exit code: 5]\n5\n"},
    {"limit_asks_first",
     "$nq run -q -t 100ms sh -c 'trap \"echo asked; exit\" TERM; while :; do sleep 0.01; done'; echo $?",
     "asked\n124\n"},
    {"limit_kills_later",
     "$nq run --json -t 50ms -k 50ms sh -c 'trap \"\" TERM; while :; do sleep 0.01; done' 2>&1; echo $?",
     "{\"command\":\"sh\",\"text\":\"[signal: 9 "
     "SIGKILL]\",\"exitCode\":null,\"signal\":\"SIGKILL\",\"overLimit\":true}\n"
     "124\n"},
    {"limit_ends_what_it_started",
     "pid=$($nq run -q -t 200ms sh -c '(trap \"\" TERM; exec sleep 60 > /dev/null) & echo $!; wait')\n"
     "for i in 1 2 3 4 5 6 7 8 9; do case $(cat /proc/$pid/stat 2> /dev/null) in *') Z '*|'') echo gone; exit;; esac; "
     "sleep 0.1; done",
     "gone\n"},
    {"limit_ends_stopped_ones", "$nq run -t 100ms -k 60s sh -c 'kill -STOP $$' 2>&1 | tail -n 1",
     "[signal: 15 SIGTERM]\n"},
    {"not_the_group_of_the_caller", "$nq run -q -t 50ms sleep 60; echo alive", "alive\n"},
};

TEST(RunSignals, ShellsSeeWhatTheyExpect) {
    for (const ShellCase& row : s_cases) {
        EXPECT_EQ(answer_of("export nq=" NQ_PROGRAM "\n" + std::string(row.script)), row.answer) << row.name;
    }
}

}  // namespace
