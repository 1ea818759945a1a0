#include "nqcore/priority.h"

#include "error_test_support.h"

#include <ace/OS_NS_Thread.h>
#include <ace/Sched_Params.h>
#include <optional>
#include <sstream>

namespace nqcore {
namespace {

using Thread = ScopedThreadPriority;
using Process = ScopedPriorityClass;

static_assert(sizeof(Process) == 4 && sizeof(Thread) == sizeof(void*) + sizeof(ACE_Thread_ID));

constexpr std::pair<const char*, long> s_threadRows[] = {
    {"Idle", -15},      {"Lowest", -2}, {"BelowNormal", -1},  {"Normal", 0},
    {"AboveNormal", 1}, {"Highest", 2}, {"TimeCritical", 15},
};
constexpr std::pair<const char*, unsigned long> s_classRows[] = {
    {"Idle", 0x40},          {"BelowNormal", 0x4000}, {"Normal", 0x20},
    {"AboveNormal", 0x8000}, {"High", 0x80},          {"Realtime", 0x100},
};
constexpr const char* s_threadCode = "error.nqcore.hardware.threadPriority";
constexpr const char* s_classCode = "error.nqcore.hardware.priorityClass";

template <class Value>
std::string trace(Value value) {
    std::ostringstream stream;
    stream << std::hex << value;
    return stream.str();
}

TEST(Priority, Labels) {
    for (const auto& [label, value] : s_threadRows) {
        EXPECT_EQ(Thread::thread_priority_as_string(value), label);
        EXPECT_EQ(Thread::thread_priority_from_string(label), value);
        EXPECT_EQ(trace(TraceThreadPriority(value)), label);
    }
    for (const auto& [label, value] : s_classRows) {
        EXPECT_EQ(Process::process_priority_class_as_string(value), label);
        EXPECT_EQ(Process::process_priority_class_from_string(label), value);
        EXPECT_EQ(trace(TracePriorityClass(value)), label);
    }
    for (const char* text : {"nOrMaL", "Normal, of course"}) {
        EXPECT_EQ(Thread::thread_priority_from_string(text, 6), Thread::threadPriorityNormal);
        EXPECT_EQ(Process::process_priority_class_from_string(text, 6), Process::priorityClassNormal);
    }
    EXPECT_EQ(Thread::thread_priority_as_string(3), "");
    EXPECT_EQ(trace(TraceThreadPriority(-77)), "##UNKNOWN(-77)##");
    EXPECT_EQ(Process::process_priority_class_as_string(0), "");
    EXPECT_EQ(trace(TracePriorityClass(65536)), "##UNKNOWN(65536)##");
    for (const std::string& label : {std::string("Norm"), std::string(), std::string("Idle\0", 5)}) {
        const auto error = [&](const char* code, const std::string& message) {
            return ThrowsError(
                AllOf(HasCode(code), HasParam("label", label), HasMessage(message), HasCause(HasParam("errno", "22"))));
        };
        EXPECT_THAT([&] { static_cast<void>(Thread::thread_priority_from_string(label)); },
                    error(s_threadCode, "Unknown thread priority label: '" + label + "'"));
        // The message keeps its placeholder: no parameter has that name.
        EXPECT_THAT([&] { static_cast<void>(Process::process_priority_class_from_string(label)); },
                    error(s_classCode, "Unknown process priority class label: '{@priorityClass}'"));
    }
}

// The guard, or none: linux favours nobody without a privilege, and says so.
template <class Guard, class Setting>
std::optional<Guard> made_or_refused(Setting setting) {
    constexpr bool s_isThread = std::is_same_v<Guard, Thread>;
    try {
        return std::optional<Guard>(std::in_place, setting);
    } catch (const ErrorException& exception) {
        EXPECT_THAT(exception, AllOf(HasCode(s_isThread ? s_threadCode : s_classCode),
                                     HasParam("priority", ::testing::_), HasCause(HasParam("errno", "13"))));
        return std::nullopt;
    }
}

TEST(Priority, GuardsSetAndRestore) {
    const unsigned long before = Process::get_process_priority_class();
    for (const auto& [label, priority] : s_threadRows) {
        if (const auto guard = made_or_refused<Thread>(priority)) {
            EXPECT_EQ(trace(TraceThreadPriority(*guard)), "Normal");
            EXPECT_EQ(guard->thread(), ACE_Thread_ID());
            EXPECT_EQ(Thread(priority).old_thread_priority(), priority);
            EXPECT_EQ(Thread::get_current_thread_priority(), priority);
        }
        EXPECT_EQ(Thread::get_current_thread_priority(), 0);
    }
    for (const auto& [label, value] : s_classRows) {
        if (const auto guard = made_or_refused<Process>(value)) {
            EXPECT_EQ(trace(TracePriorityClass(*guard)), trace(TracePriorityClass(before)));
            EXPECT_EQ(Thread::get_current_thread_priority(), 0);  // it is relative to the class
            for (const long priority : {Thread::threadPriorityBelowNormal, Thread::threadPriorityIdle}) {
                const auto thread = made_or_refused<Thread>(priority);
                EXPECT_EQ(Thread::get_current_thread_priority(), thread ? priority : 0);
                EXPECT_EQ(Process::get_process_priority_class(), value);
            }
        }
        EXPECT_EQ(Process::get_process_priority_class(), before);
    }
}

TEST(Priority, BadValuesAreErrors) {
    const auto error = [](const char* code, const char* start, const std::string& end, const std::string& value) {
        return ThrowsError(AllOf(HasCode(code),
                                 HasMessage(AllOf(::testing::StartsWith(start), ::testing::EndsWith(end))),
                                 HasParam("priority", value),
                                 HasCause(::testing::AnyOf(HasParam("errno", "22"), HasParam("winErrorCode", "87")))));
    };
    for (const long bad : {-16L, 16L}) {
        const std::string value = std::to_string(bad);  // the closing parenthesis is missing on purpose
        EXPECT_THAT([=] { const Thread guard(bad); }, error(s_threadCode, "SetThreadPriority(", ", " + value, value));
    }
    for (const unsigned long bad : {0ul, 3ul, 0xFFFFFFFFul}) {
        const std::string value = std::to_string(bad);
        EXPECT_THAT([=] { Process::set_process_priority_class(bad); },
                    error(s_classCode, "SetPriorityClass(", ", " + value + ")", value));
    }
}

TEST(Priority, OnTheScaleOfAce) {
    EXPECT_EQ(Thread::thread_priority_as_ace_priority(-15), ACE_Sched_Params::priority_min(ACE_SCHED_OTHER));
    EXPECT_EQ(Thread::thread_priority_as_ace_priority(0), ACE_THR_PRI_OTHER_DEF);
    EXPECT_EQ(Thread::thread_priority_as_ace_priority(15), ACE_Sched_Params::priority_max(ACE_SCHED_OTHER));
    for (const long priority : {-2, 0}) {  // ACE takes what it is given
        EXPECT_EQ(ACE_OS::thr_setprio(Thread::thread_priority_as_ace_priority(priority)), 0);
    }
}

}  // namespace
}  // namespace nqcore
