// The life of the library in a process of its own, from the first user to what comes after the last.
#include "nqcore/lifetime.h"

#include "error_test_support.h"
#include "lifetime_state.h"
#include "nqcore/static_instance.h"

#include <gtest/gtest.h>
#include <stdexcept>
#include <string>
#include <thread>

namespace nqcore {
namespace {

using impl::StopState;

std::string s_log;

struct First {
    First() { s_log += "+first "; }
    ~First();
};
constinit StaticInstance<First> s_first;

struct Second {
    Second() {
        s_log += "+second ";
        s_first.get();  // complete before this one, so destroyed after it
        s_log += "second+ ";
    }
    ~Second() noexcept(false) {
        s_log += s_first.get_if_ready() != nullptr ? "-second " : "-second, too late ";
        throw std::runtime_error("a destructor that fails");
    }
};
constinit StaticInstance<Second> s_second;

StopState s_stateAtStop;
bool s_stopsHere, s_stopsElsewhere;

First::~First() {
    s_log += s_first.get_if_ready() == nullptr ? "-first " : "-first, still given away ";
    s_stateAtStop = impl::stop_state();
    s_stopsHere = impl::is_stop_thread();
    std::thread([] { s_stopsElsewhere = impl::is_stop_thread(); }).join();
}

struct Late {
    Late() { s_log += "+late "; }
    ~Late() { s_log += "-late "; }
};
constinit StaticInstance<Late> s_late;

template <class Instance>
ErrorInfo::Ptr failure_of(Instance& instance) {
    try {
        instance.get();
    } catch (const ErrorException& exception) {
        return exception.error();
    }
    return {};
}

TEST(Lifetime, FromTheFirstUserToTheLast) {
    const int started = nqcore_managed_init();
    EXPECT_TRUE(started == 0 || started == 1) << started;
    EXPECT_EQ(nqcore_managed_init(), 2);
    s_second.get();
    EXPECT_EQ(nqcore_managed_fini(), 2);
    EXPECT_EQ(impl::init_count(), 1);
    EXPECT_TRUE(impl::stop_state() == StopState::Running && !impl::is_stop_thread());
    EXPECT_EQ(s_log, "+second +first second+ ");

    EXPECT_EQ(nqcore_managed_fini(), 0);
    EXPECT_EQ(s_log, "+second +first second+ -second -first ");
    EXPECT_EQ(s_stateAtStop, StopState::Stopping);
    EXPECT_TRUE(s_stopsHere && !s_stopsElsewhere);
    EXPECT_EQ(impl::stop_state(), StopState::Stopped);
    EXPECT_EQ(impl::init_count(), 0);

    const ErrorInfo::Ptr destroyed = failure_of(s_first);
    EXPECT_THAT(
        destroyed,
        AllOf(HasCode("error.nqcore.objectManager.closed"),
              HasMessage(
                  "Attempt to access static that has already been destroyed through object manager.  If this error is "
                  "raised "
                  "during application startup, it may be due to an initialization order issue (static object is being "
                  "accessed before it has been constructed).")));
    EXPECT_EQ(destroyed->location(), SourceLocation("nqcore::impl::StaticInstanceBase::throw_destroyed_error()",
                                                    "$Id: //nqcore/int/src/nqcore/static_instance.cpp#1 $", 231));

    s_log.clear();
    for (int attempt = 0; attempt < 2; ++attempt) {
        const ErrorInfo::Ptr closed = failure_of(s_late);
        EXPECT_THAT(closed, HasCode("error.nqcore.objectManager.closed"));
        EXPECT_EQ(closed->location().line(), 96U);
    }
    EXPECT_EQ(s_log, "+late -late +late -late ") << "what cannot be cleaned up does not stay";

    EXPECT_EQ(nqcore_managed_fini(), 0) << "no user left";
    EXPECT_EQ(impl::init_count(), -1);
    EXPECT_EQ(impl::stop_state(), StopState::Stopped);
}

}  // namespace
}  // namespace nqcore
