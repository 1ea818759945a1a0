#include "scrub_windows.h"

#include "errors.h"
#include "tool_test_support.h"

#include "nqcore/async_result.h"

#include <gtest/gtest.h>

#include <atomic>
#include <set>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>

namespace {

using namespace nq_test;
using nq::Piece;
using nqcore::ErrorInfo;
using nqcore::RelativeTime;
using Handler = nqcore::RefCountPtr<nqcore::AsyncResult<nq::ScrubReport>>;

constexpr const char* s_outName = "nq_scrub_windows_test.out";
constexpr std::size_t s_lineBytes = 64;

// A line that fills a piece; its number is in its first bytes.
std::string line(int number) {
    std::string text = std::to_string(number) + ' ';
    text.resize(s_lineBytes - 1, '.');
    return text + '\n';
}

std::string lines(int count) {
    std::string text;
    for (int number = 0; number < count; ++number) {
        text += line(number);
    }
    return text;
}

int number_of(const Piece& piece) { return std::stoi(std::string(piece.chunk.view())); }

struct Outcome {
    std::string text;
    nq::ScrubReport report;
    ErrorInfo::Ptr error;
};

Outcome scrub(nq::ChunkScrubber& workers, nq::ByteSource& source, RelativeTime time = RelativeTime::seconds(1)) {
    nq::Output out(s_outName);
    nq::Progress progress(out, false, 0, {});
    nq::ScrubWindows windows(workers, out, progress, {.pieces = 4, .time = time, .pieceBytes = s_lineBytes});
    Outcome outcome;
    try {
        outcome.report = windows.scrub(source);
    } catch (const nqcore::ErrorException& exception) {
        outcome.error = exception.error();
    }
    // Before the output goes: what has not been flushed is not there.
    outcome.text = content_of(s_outName);
    return outcome;
}

Outcome scrub_lines(int count, nq::ChunkScrubber& workers, RelativeTime time = RelativeTime::seconds(1)) {
    const std::string text = lines(count);
    TextSource source(text);
    return scrub(workers, source, time);
}

void expect_failure(const Outcome& outcome, const char* code, int linesBefore) {
    ASSERT_FALSE(outcome.error.is_null());
    EXPECT_TRUE(outcome.error->any_matches(code)) << outcome.error->code().value();
    EXPECT_EQ(outcome.text, lines(linesBefore));
}

TEST(ScrubWindows, OrderIsThatOfTheInput) {
    static std::atomic<int> done;
    done = 0;
    // Every even line waits until the one behind it is done.
    nq::ChunkWorkers workers(2, [](Piece& piece, nq::ScrubReport& report) {
        const int number = number_of(piece);
        const nqcore::AbsoluteTime deadline(RelativeTime::seconds(1));
        while (number % 2 == 0 && done <= number && nqcore::AbsoluteTime::now() < deadline) {
            std::this_thread::yield();
        }
        nq::ChunkWorkers::scrub_piece(piece, report);
        ++done;
    });
    const Outcome outcome = scrub_lines(50, workers);
    EXPECT_EQ(outcome.text, lines(50));
    EXPECT_EQ(outcome.report.lines(), 50u);
}

TEST(ScrubWindows, ErrorOfAWorkerIsTheErrorOfTheRun) {
    nq::ChunkWorkers workers(3, [](Piece& piece, nq::ScrubReport& report) {
        const int number = number_of(piece);
        number < 13 ? nq::ChunkWorkers::scrub_piece(piece, report)
                    : throw std::runtime_error("worker " + std::to_string(number));
    });
    const Outcome outcome = scrub_lines(40, workers);
    expect_failure(outcome, "error.exception", 13);
    EXPECT_NE(outcome.error->expanded_message().as_string().find("worker 13"), std::string::npos);
    // What is thrown need not be an exception that the worker knows: the handler goes with the task.
    nq::ChunkWorkers throwing(2, [](Piece& piece, nq::ScrubReport& report) {
        number_of(piece) == 6 ? throw 6 : nq::ChunkWorkers::scrub_piece(piece, report);
    });
    expect_failure(scrub_lines(40, throwing), "error.nqcore.result.notSignaled", 6);
}

// Answers at once, but for one line that it never answers.
class Forgetful final : public nq::ChunkScrubber {
public:
    explicit Forgetful(int forgotten) : m_forgotten(forgotten) {}

    nqcore::Result<nq::ScrubReport> scrub(const nqcore::RefCountPtr<Piece>& piece,
                                          nqcore::ResultControl<nq::ScrubReport>&& control) override {
        seen.insert(piece.get());
        if (number_of(*piece) == m_forgotten) {
            handler = control.create_async_handler();
            return handler->get_result();
        }
        nq::ScrubReport report;
        nq::ChunkWorkers::scrub_piece(*piece, report);
        return control.signal_result(std::move(report));
    }

    Handler handler;
    std::set<const Piece*> seen;

private:
    int m_forgotten;
};

TEST(ScrubWindows, DeadlineThatPassesIsAnError) {
    Forgetful workers(9);
    const Outcome outcome = scrub_lines(40, workers, RelativeTime::milliseconds(20));
    expect_failure(outcome, "error.nq.work", 8);  // the window that holds line 9 begins with line 8
    ASSERT_FALSE(outcome.error->nested().is_null());
    EXPECT_TRUE(outcome.error->nested()->matches("error.errno.ETIME"));
    EXPECT_TRUE(workers.handler->cancelled()) << "whoever still works on it is told to stop";
}

TEST(ScrubWindows, MemoryDoesNotGrowWithTheInput) {
    Forgetful workers(-1);
    EXPECT_EQ(scrub_lines(2000, workers).text, lines(2000));
    EXPECT_LE(workers.seen.size(), 2u * 4u + 1u);
}

// Fails where it should end.
class FailingSource final : public nq::ByteSource {
public:
    FailingSource(std::string_view text, std::size_t mostAtOnce) : m_good(text, mostAtOnce) {}
    std::size_t read(char* buffer, std::size_t capacity) override {
        const std::size_t count = m_good.read(buffer, capacity);
        if (count == 0) {
            nqcore::throw_error(nq::error::input, "fails", NQCORE_HERE);
        }
        return count;
    }

private:
    TextSource m_good;
};

TEST(ScrubWindows, WhatWasReadBeforeAFailureIsWritten) {
    nq::ChunkWorkers workers(3);
    const std::string text = lines(10);
    // Also when the failure comes while a piece is being filled.
    for (const std::size_t mostAtOnce : {s_lineBytes, s_lineBytes / 2, s_lineBytes / 2 + 1}) {
        FailingSource source(text, mostAtOnce);
        expect_failure(scrub(workers, source), "error.nq.input", 10);
    }
}

}  // namespace
