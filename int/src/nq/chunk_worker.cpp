#include "chunk_worker.h"

#include "errors.h"

#include "nqcore/async_result.h"
#include "nqcore/error_info.h"

#include <exception>
#include <utility>

namespace nq {

namespace {

using nqcore::ErrorInfo;
using nqcore::RefCountPtr;
using Handler = RefCountPtr<nqcore::AsyncResult<ScrubReport>>;

constexpr SourceFile s_source("$Id: //nqcore/int/src/nq/chunk_worker.cpp#1 $");

// Signals its handler, once. When it is dropped the handler goes with it, and that is an outcome too.
class ScrubTask final : public nqcore::ITask {
public:
    ScrubTask(ChunkWorkers::Work work, RefCountPtr<Piece> piece, Handler handler) noexcept
        : m_work(work), m_piece(std::move(piece)), m_handler(std::move(handler)) {}

    void execute() override {
        const auto location = s_source.here("nq::ScrubTask::execute()");
        const Handler handler = std::move(m_handler);
        const RefCountPtr<Piece> piece = std::move(m_piece);
        if (handler.is_null()) {
            nqcore::impl::throw_redundant_task_execution_error(this, location);
        }
        if (handler->cancelled()) {
            return;
        }
        ScrubReport report;
        try {
            m_work(*piece, report);
        } catch (const std::exception& exception) {
            handler->on_async_result_error(ErrorInfo::from_exception(exception, location));
            return;
        }
        handler->on_async_result_success(std::move(report));
    }

private:
    const ChunkWorkers::Work m_work;
    RefCountPtr<Piece> m_piece;
    Handler m_handler;
};

}  // namespace

nqcore::Result<ScrubReport> ChunkWorkers::scrub(const RefCountPtr<Piece>& piece,
                                                nqcore::ResultControl<ScrubReport>&& control) {
    Handler handler = control.create_async_handler();
    nqcore::Result<ScrubReport> result = handler->get_result();
    m_executor.post(RefCountPtr<nqcore::ITask>(new ScrubTask(m_work, piece, std::move(handler))));
    return result;
}

}  // namespace nq
