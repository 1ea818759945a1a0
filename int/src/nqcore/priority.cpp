#include "nqcore/priority.h"

#include "nqcore/error_code.h"
#include "nqcore/error_composer.h"
#include "nqcore/string_util.h"
#include "platform/thread_sched.h"
#include "source_id.h"
#include "system_failure.h"
#include "thread_id_impl.h"

#include <ace/Sched_Params.h>

#include <algorithm>
#include <cerrno>
#include <ostream>
#include <string>

namespace nqcore {

// Declared once more so that the Windows library exports them.
constexpr long ScopedThreadPriority::threadPriorityIdle;
constexpr long ScopedThreadPriority::threadPriorityLowest;
constexpr long ScopedThreadPriority::threadPriorityBelowNormal;
constexpr long ScopedThreadPriority::threadPriorityNormal;
constexpr long ScopedThreadPriority::threadPriorityAboveNormal;
constexpr long ScopedThreadPriority::threadPriorityHighest;
constexpr long ScopedThreadPriority::threadPriorityTimeCritical;
constexpr unsigned long ScopedPriorityClass::priorityClassIdle;
constexpr unsigned long ScopedPriorityClass::priorityClassBelowNormal;
constexpr unsigned long ScopedPriorityClass::priorityClassNormal;
constexpr unsigned long ScopedPriorityClass::priorityClassAboveNormal;
constexpr unsigned long ScopedPriorityClass::priorityClassHigh;
constexpr unsigned long ScopedPriorityClass::priorityClassRealtime;

namespace {

constexpr SourceId s_source("$Id: //nqcore/int/src/nqcore/priority.cpp#1 $");

constexpr ErrorTemplate s_threadNotRead{"GetThreadPriority({@threadHandle})", "threadHandle"};
// Has always lacked its closing parenthesis; logs are searched for it as it is.
constexpr ErrorTemplate s_threadNotSet{"SetThreadPriority({@threadHandle}, {@priority}", "threadHandle", "priority"};
constexpr ErrorTemplate s_unknownThreadLabel{"Unknown thread priority label: '{@label}'", "label"};
constexpr ErrorTemplate s_classNotRead{"GetPriorityClass({@processId})", "processId"};
constexpr ErrorTemplate s_classNotSet{"SetPriorityClass({@processId}, {@priority})", "processId", "priority"};
// The placeholder and the parameter deliberately differ: the message shows "{@priorityClass}", the record has the label.
constexpr auto s_unknownClassLabel =
    ErrorTemplate<1>::unchecked("Unknown process priority class label: '{@priorityClass}'", "label");

template <class Value>
struct LabelRow {
    std::string_view label;
    Value value;
};

// Searched in this order.
using Thread = ScopedThreadPriority;
constexpr LabelRow<long> s_threadLabels[] = {
    {"Idle", Thread::threadPriorityIdle},
    {"Lowest", Thread::threadPriorityLowest},
    {"BelowNormal", Thread::threadPriorityBelowNormal},
    {"Normal", Thread::threadPriorityNormal},
    {"AboveNormal", Thread::threadPriorityAboveNormal},
    {"Highest", Thread::threadPriorityHighest},
    {"TimeCritical", Thread::threadPriorityTimeCritical},
};

using Process = ScopedPriorityClass;
constexpr LabelRow<unsigned long> s_classLabels[] = {
    {"Idle", Process::priorityClassIdle},     {"BelowNormal", Process::priorityClassBelowNormal},
    {"Normal", Process::priorityClassNormal}, {"AboveNormal", Process::priorityClassAboveNormal},
    {"High", Process::priorityClassHigh},     {"Realtime", Process::priorityClassRealtime},
};

template <class Value, std::size_t Rows>
std::string_view label_of(const LabelRow<Value> (&rows)[Rows], Value value) noexcept {
    for (const LabelRow<Value>& row : rows) {
        if (row.value == value) {
            return row.label;
        }
    }
    return "";
}

template <class Value, std::size_t Rows>
const LabelRow<Value>* find_label(const LabelRow<Value> (&rows)[Rows], std::string_view label) noexcept {
    for (const LabelRow<Value>& row : rows) {
        if (string_equal_nocase_ascii(row.label, label)) {
            return &row;
        }
    }
    return nullptr;
}

template <class Value, std::size_t Rows>
void write_label(std::ostream& stream, const LabelRow<Value> (&rows)[Rows], Value value) {
    const std::string_view label = label_of(rows, value);
    if (!label.empty()) {
        stream << label;
        return;
    }
    std::string unknown("##UNKNOWN(");
    unknown.append(impl::ParamText(value).text()).append(")##");
    stream << unknown;
}

void check_thread(platform::SystemError error, long priority, const SourceLocation& location) {
    if (error != 0) {
        impl::throw_system_failure(s_threadNotSet.compose(platform::current_thread_number(), priority),
                                   error::nqcore_hardware_threadPriority, location, error);
    }
}

void check_class(platform::SystemError error, unsigned long priorityClass, const SourceLocation& location) {
    if (error != 0) {
        impl::throw_system_failure(s_classNotSet.compose(platform::current_process_number(), priorityClass),
                                   error::nqcore_hardware_priorityClass, location, error);
    }
}

}  // namespace

ScopedThreadPriority::ScopedThreadPriority(long newPriority) : ScopedThreadPriority(newPriority, ACE_Thread_ID()) {}

ScopedThreadPriority::ScopedThreadPriority(long newPriority, const ACE_Thread_ID& thread)
    : m_oldPriority(static_cast<std::int32_t>(get_current_thread_priority())), m_thread(impl::thread_id(thread)) {
    check_thread(platform::thread_priority_trap(newPriority), m_oldPriority,
                 s_source.here("nqcore::ScopedThreadPriority::ScopedThreadPriority()"));
    set_current_thread_priority(newPriority);
}

ScopedThreadPriority::~ScopedThreadPriority() noexcept { set_current_thread_priority(m_oldPriority); }

ACE_Thread_ID ScopedThreadPriority::thread() const { return impl::ace_thread_id(m_thread); }

long ScopedThreadPriority::get_current_thread_priority() {
    long priority = 0;
    if (const platform::SystemError error = platform::thread_priority(priority); error != 0) {
        impl::throw_system_failure(s_threadNotRead.compose(platform::current_thread_number()),
                                   error::nqcore_hardware_threadPriority,
                                   s_source.here("nqcore::ScopedThreadPriority::get_current_thread_priority()"), error);
    }
    return priority;
}

void ScopedThreadPriority::set_current_thread_priority(long priority) {
    check_thread(platform::set_thread_priority(priority), priority,
                 s_source.here("nqcore::ScopedThreadPriority::set_current_thread_priority()"));
}

std::string_view ScopedThreadPriority::thread_priority_as_string(long priority) noexcept {
    return label_of(s_threadLabels, priority);
}

long ScopedThreadPriority::thread_priority_from_string(const char* text, unsigned length) {
    return thread_priority_from_string(impl::measured_text(text, length));
}

long ScopedThreadPriority::thread_priority_from_string(std::string_view label) {
    const LabelRow<long>* const row = find_label(s_threadLabels, label);
    if (row == nullptr) {
        s_unknownThreadLabel.compose(label).throw_with_nested_errno(
            error::nqcore_hardware_threadPriority,
            s_source.here("nqcore::ScopedThreadPriority::thread_priority_from_string()"), EINVAL);
    }
    return row->value;
}

int ScopedThreadPriority::thread_priority_as_ace_priority(const long& priority) {
    const int lowest = ACE_Sched_Params::priority_min(ACE_SCHED_OTHER);
    const int highest = ACE_Sched_Params::priority_max(ACE_SCHED_OTHER);
    return static_cast<int>(std::clamp<long>(priority, lowest, highest));
}

ScopedPriorityClass::ScopedPriorityClass(unsigned long newClass)
    : m_oldClass(static_cast<std::uint32_t>(get_process_priority_class())) {
    check_class(platform::priority_class_trap(newClass), m_oldClass,
                s_source.here("nqcore::ScopedPriorityClass::ScopedPriorityClass()"));
    set_process_priority_class(newClass);
}

ScopedPriorityClass::~ScopedPriorityClass() noexcept { set_process_priority_class(m_oldClass); }

unsigned long ScopedPriorityClass::get_process_priority_class() {
    unsigned long priorityClass = 0;
    if (const platform::SystemError error = platform::priority_class(priorityClass); error != 0) {
        impl::throw_system_failure(s_classNotRead.compose(platform::current_process_number()),
                                   error::nqcore_hardware_priorityClass,
                                   s_source.here("nqcore::ScopedPriorityClass::get_process_priority_class()"), error);
    }
    return priorityClass;
}

void ScopedPriorityClass::set_process_priority_class(unsigned long priorityClass) {
    check_class(platform::set_priority_class(priorityClass), priorityClass,
                s_source.here("nqcore::ScopedPriorityClass::set_process_priority_class()"));
}

std::string_view ScopedPriorityClass::process_priority_class_as_string(unsigned long priorityClass) noexcept {
    return label_of(s_classLabels, priorityClass);
}

unsigned long ScopedPriorityClass::process_priority_class_from_string(const char* text, unsigned length) {
    return process_priority_class_from_string(impl::measured_text(text, length));
}

unsigned long ScopedPriorityClass::process_priority_class_from_string(std::string_view label) {
    const LabelRow<unsigned long>* const row = find_label(s_classLabels, label);
    if (row == nullptr) {
        s_unknownClassLabel.compose(label).throw_with_nested_errno(
            error::nqcore_hardware_priorityClass,
            s_source.here("nqcore::ScopedPriorityClass::process_priority_class_from_string()"), EINVAL);
    }
    return row->value;
}

void TraceThreadPriority::write_trace(std::ostream& stream) const { write_label(stream, s_threadLabels, m_priority); }

std::ostream& operator<<(std::ostream& stream, const TraceThreadPriority& item) {
    item.write_trace(stream);
    return stream;
}

void TracePriorityClass::write_trace(std::ostream& stream) const { write_label(stream, s_classLabels, m_class); }

std::ostream& operator<<(std::ostream& stream, const TracePriorityClass& item) {
    item.write_trace(stream);
    return stream;
}

}  // namespace nqcore
