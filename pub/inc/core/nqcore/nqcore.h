// Everything of the library that needs no further types, for programs that would rather not choose.
//
// Headers that bring heavier types along are included by name: ace_timeout.h (ACE), error_builder.h and
// string_stream_buf.h (streams), time_chrono.h (<chrono>), windows_types.h (system types),
// testing/error_matchers.h (GoogleTest).
#pragma once

#include "nqcore/abs_rel_time.h"
#include "nqcore/async_result.h"
#include "nqcore/atomic_op.h"
#include "nqcore/barrier.h"
#include "nqcore/error_code.h"
#include "nqcore/error_composer.h"
#include "nqcore/error_exception.h"
#include "nqcore/error_info.h"
#include "nqcore/error_or.h"
#include "nqcore/error_params.h"
#include "nqcore/fault_report.h"
#include "nqcore/future.h"
#include "nqcore/interface_ptr.h"
#include "nqcore/lifetime.h"
#include "nqcore/monotonic_time.h"
#include "nqcore/refcount_guard.h"
#include "nqcore/refcounted.h"
#include "nqcore/result.h"
#include "nqcore/result_auto_signal.h"
#include "nqcore/result_callback.h"
#include "nqcore/result_control.h"
#include "nqcore/result_errors.h"
#include "nqcore/result_inner.h"
#include "nqcore/result_value.h"
#include "nqcore/safe_cast.h"
#include "nqcore/scheduler.h"
#include "nqcore/source_location.h"
#include "nqcore/source_string.h"
#include "nqcore/static_instance.h"
#include "nqcore/string_range.h"
#include "nqcore/string_to.h"
#include "nqcore/string_trace_data.h"
#include "nqcore/string_util.h"
#include "nqcore/task.h"
#include "nqcore/thread_sync.h"
#include "nqcore/transfer_source.h"
#include "nqcore/ucsutil.h"
#include "nqcore/utc_text.h"
#include "nqcore/version.h"
#include "nqcore/weak_ref_ptr.h"

#include <string>
