// The catalogue of the library's error codes: the one table from which the constants of nqcore::error and every lookup
// come.
//
// NQCORE_ERROR_CATALOGUE(ROW) writes ROW(constant, "code text") for each code. A constant drops "error." and writes "_"
// for "."; codes that stand for standard exceptions keep the standard's spelling in the text and take lowerCamelCase in
// the constant.
#pragma once

// clang-format off
#define NQCORE_ERROR_CATALOGUE_OWN(ROW) \
    ROW(nqcore, "error.nqcore") \
    ROW(nqcore_absoluteTime, "error.nqcore.absoluteTime") \
    ROW(nqcore_absoluteTime_invalidUtcString, "error.nqcore.absoluteTime.invalidUtcString") \
    ROW(nqcore_absoluteTime_range, "error.nqcore.absoluteTime.range") \
    ROW(nqcore_cast, "error.nqcore.cast") \
    ROW(nqcore_cast_negativeToUnsigned, "error.nqcore.cast.negativeToUnsigned") \
    ROW(nqcore_cast_valueTooBig, "error.nqcore.cast.valueTooBig") \
    ROW(nqcore_cast_valueTooBig_signReversal, "error.nqcore.cast.valueTooBig.signReversal") \
    ROW(nqcore_future, "error.nqcore.future") \
    ROW(nqcore_future_nullError, "error.nqcore.future.nullError") \
    ROW(nqcore_hardware, "error.nqcore.hardware") \
    ROW(nqcore_hardware_invalidCpuId, "error.nqcore.hardware.invalidCpuId") \
    ROW(nqcore_hardware_priorityClass, "error.nqcore.hardware.priorityClass") \
    ROW(nqcore_hardware_threadAffinity, "error.nqcore.hardware.threadAffinity") \
    ROW(nqcore_hardware_threadPriority, "error.nqcore.hardware.threadPriority") \
    ROW(nqcore_hardware_timeError, "error.nqcore.hardware.timeError") \
    ROW(nqcore_objectManager, "error.nqcore.objectManager") \
    ROW(nqcore_objectManager_closed, "error.nqcore.objectManager.closed") \
    ROW(nqcore_processPrivileges_osError, "error.nqcore.processPrivileges.osError") \
    ROW(nqcore_relativeTime, "error.nqcore.relativeTime") \
    ROW(nqcore_relativeTime_invalidTimeString, "error.nqcore.relativeTime.invalidTimeString") \
    ROW(nqcore_result, "error.nqcore.result") \
    ROW(nqcore_result_badParameter, "error.nqcore.result.badParameter") \
    ROW(nqcore_result_cancelled, "error.nqcore.result.cancelled") \
    ROW(nqcore_result_cancelled_innerOperation, "error.nqcore.result.cancelled.innerOperation") \
    ROW(nqcore_result_invalidAsyncSignalScope, "error.nqcore.result.invalidAsyncSignalScope") \
    ROW(nqcore_result_invalidAsynchrony, "error.nqcore.result.invalidAsynchrony") \
    ROW(nqcore_result_notSignaled, "error.nqcore.result.notSignaled") \
    ROW(nqcore_result_notWaitable, "error.nqcore.result.notWaitable") \
    ROW(nqcore_result_redundantSignal, "error.nqcore.result.redundantSignal") \
    ROW(nqcore_result_wrongThread, "error.nqcore.result.wrongThread") \
    ROW(nqcore_simpleDateTime, "error.nqcore.simpleDateTime") \
    ROW(nqcore_simpleDateTime_invalidString, "error.nqcore.simpleDateTime.invalidString") \
    ROW(nqcore_simpleDateTime_timezoneOffset, "error.nqcore.simpleDateTime.timezoneOffset") \
    ROW(nqcore_string, "error.nqcore.string") \
    ROW(nqcore_string_conversion, "error.nqcore.string.conversion") \
    ROW(nqcore_string_embeddedNul, "error.nqcore.string.embeddedNul") \
    ROW(nqcore_string_extraction, "error.nqcore.string.extraction") \
    ROW(nqcore_string_utf8, "error.nqcore.string.utf8") \
    ROW(nqcore_string_utf8_invalid, "error.nqcore.string.utf8.invalid") \
    ROW(nqcore_string_utf8_overlong, "error.nqcore.string.utf8.overlong") \
    ROW(nqcore_string_utf8_partial, "error.nqcore.string.utf8.partial") \
    ROW(nqcore_task, "error.nqcore.task") \
    ROW(nqcore_task_notExecuted, "error.nqcore.task.notExecuted") \
    ROW(nqcore_task_redundantExecution, "error.nqcore.task.redundantExecution") \
    ROW(nqcore_task_timeLimitExpired, "error.nqcore.task.timeLimitExpired") \
    ROW(nqcore_transforms, "error.nqcore.transforms") \
    ROW(nqcore_transforms_base32, "error.nqcore.transforms.base32") \
    ROW(nqcore_transforms_base32_invalid, "error.nqcore.transforms.base32.invalid") \
    ROW(nqcore_transforms_base32_padding, "error.nqcore.transforms.base32.padding") \
    ROW(nqcore_transforms_base32_truncated, "error.nqcore.transforms.base32.truncated") \
    ROW(nqcore_transforms_base64, "error.nqcore.transforms.base64") \
    ROW(nqcore_transforms_base64_invalid, "error.nqcore.transforms.base64.invalid") \
    ROW(nqcore_transforms_base64_padding, "error.nqcore.transforms.base64.padding") \
    ROW(nqcore_transforms_base64_truncated, "error.nqcore.transforms.base64.truncated") \
    ROW(nqcore_transforms_hex, "error.nqcore.transforms.hex") \
    ROW(nqcore_transforms_hex_invalid, "error.nqcore.transforms.hex.invalid") \
    ROW(nqcore_transforms_hex_truncated, "error.nqcore.transforms.hex.truncated") \
    ROW(nqcore_uuid, "error.nqcore.uuid") \
    ROW(nqcore_uuid_parse, "error.nqcore.uuid.parse")

#define NQCORE_ERROR_CATALOGUE_EXCEPTIONS(ROW) \
    ROW(exception, "error.exception") \
    ROW(exception_assert, "error.exception.assert") \
    ROW(exception_badAlloc, "error.exception.bad_alloc") \
    ROW(exception_badCast, "error.exception.bad_cast") \
    ROW(exception_badCast_badLexicalCast, "error.exception.bad_cast.bad_lexical_cast") \
    ROW(exception_fault, "error.exception.fault") \
    ROW(exception_fault_accessViolation, "error.exception.fault.accessViolation") \
    ROW(exception_fault_cppException, "error.exception.fault.cppException") \
    ROW(exception_logicError, "error.exception.logic_error") \
    ROW(exception_logicError_domainError, "error.exception.logic_error.domain_error") \
    ROW(exception_logicError_invalidArgument, "error.exception.logic_error.invalid_argument") \
    ROW(exception_logicError_lengthError, "error.exception.logic_error.length_error") \
    ROW(exception_logicError_outOfRange, "error.exception.logic_error.out_of_range") \
    ROW(exception_runtimeError, "error.exception.runtime_error") \
    ROW(exception_runtimeError_overflowError, "error.exception.runtime_error.overflow_error") \
    ROW(exception_runtimeError_rangeError, "error.exception.runtime_error.range_error") \
    ROW(exception_runtimeError_underflowError, "error.exception.runtime_error.underflow_error") \
    ROW(exception_unknown, "error.exception.unknown") \
    ROW(exception_weakRefPromoteException, "error.exception.weakRefPromoteException")

#define NQCORE_ERROR_CATALOGUE_ROOTS(ROW) \
    ROW(errno_, "error.errno") \
    ROW(os, "error.os") \
    ROW(os_windows, "error.os.windows")

#define NQCORE_ERROR_CATALOGUE_ERRNO(ROW) \
    ROW(errno_E2BIG, "error.errno.E2BIG") \
    ROW(errno_EACCES, "error.errno.EACCES") \
    ROW(errno_EADDRINUSE, "error.errno.EADDRINUSE") \
    ROW(errno_EADDRNOTAVAIL, "error.errno.EADDRNOTAVAIL") \
    ROW(errno_EAFNOSUPPORT, "error.errno.EAFNOSUPPORT") \
    ROW(errno_EAGAIN, "error.errno.EAGAIN") \
    ROW(errno_EALREADY, "error.errno.EALREADY") \
    ROW(errno_EBADF, "error.errno.EBADF") \
    ROW(errno_EBUSY, "error.errno.EBUSY") \
    ROW(errno_ECHILD, "error.errno.ECHILD") \
    ROW(errno_ECONNABORTED, "error.errno.ECONNABORTED") \
    ROW(errno_ECONNREFUSED, "error.errno.ECONNREFUSED") \
    ROW(errno_ECONNRESET, "error.errno.ECONNRESET") \
    ROW(errno_EDEADLK, "error.errno.EDEADLK") \
    ROW(errno_EDESTADDRREQ, "error.errno.EDESTADDRREQ") \
    ROW(errno_EDOM, "error.errno.EDOM") \
    ROW(errno_EDQUOT, "error.errno.EDQUOT") \
    ROW(errno_EEXIST, "error.errno.EEXIST") \
    ROW(errno_EFAULT, "error.errno.EFAULT") \
    ROW(errno_EFBIG, "error.errno.EFBIG") \
    ROW(errno_EHOSTDOWN, "error.errno.EHOSTDOWN") \
    ROW(errno_EHOSTUNREACH, "error.errno.EHOSTUNREACH") \
    ROW(errno_EILSEQ, "error.errno.EILSEQ") \
    ROW(errno_EINPROGRESS, "error.errno.EINPROGRESS") \
    ROW(errno_EINTR, "error.errno.EINTR") \
    ROW(errno_EINVAL, "error.errno.EINVAL") \
    ROW(errno_EIO, "error.errno.EIO") \
    ROW(errno_EISCONN, "error.errno.EISCONN") \
    ROW(errno_EISDIR, "error.errno.EISDIR") \
    ROW(errno_ELOOP, "error.errno.ELOOP") \
    ROW(errno_EMFILE, "error.errno.EMFILE") \
    ROW(errno_EMLINK, "error.errno.EMLINK") \
    ROW(errno_EMSGSIZE, "error.errno.EMSGSIZE") \
    ROW(errno_ENAMETOOLONG, "error.errno.ENAMETOOLONG") \
    ROW(errno_ENETDOWN, "error.errno.ENETDOWN") \
    ROW(errno_ENETRESET, "error.errno.ENETRESET") \
    ROW(errno_ENETUNREACH, "error.errno.ENETUNREACH") \
    ROW(errno_ENFILE, "error.errno.ENFILE") \
    ROW(errno_ENOBUFS, "error.errno.ENOBUFS") \
    ROW(errno_ENODEV, "error.errno.ENODEV") \
    ROW(errno_ENOENT, "error.errno.ENOENT") \
    ROW(errno_ENOEXEC, "error.errno.ENOEXEC") \
    ROW(errno_ENOLCK, "error.errno.ENOLCK") \
    ROW(errno_ENOMEM, "error.errno.ENOMEM") \
    ROW(errno_ENOPROTOOPT, "error.errno.ENOPROTOOPT") \
    ROW(errno_ENOSPC, "error.errno.ENOSPC") \
    ROW(errno_ENOSYS, "error.errno.ENOSYS") \
    ROW(errno_ENOTBLK, "error.errno.ENOTBLK") \
    ROW(errno_ENOTCONN, "error.errno.ENOTCONN") \
    ROW(errno_ENOTDIR, "error.errno.ENOTDIR") \
    ROW(errno_ENOTEMPTY, "error.errno.ENOTEMPTY") \
    ROW(errno_ENOTSOCK, "error.errno.ENOTSOCK") \
    ROW(errno_ENOTTY, "error.errno.ENOTTY") \
    ROW(errno_ENXIO, "error.errno.ENXIO") \
    ROW(errno_EOPNOTSUPP, "error.errno.EOPNOTSUPP") \
    ROW(errno_EPERM, "error.errno.EPERM") \
    ROW(errno_EPFNOSUPPORT, "error.errno.EPFNOSUPPORT") \
    ROW(errno_EPIPE, "error.errno.EPIPE") \
    ROW(errno_EPROCLIM, "error.errno.EPROCLIM") \
    ROW(errno_EPROTONOSUPPORT, "error.errno.EPROTONOSUPPORT") \
    ROW(errno_EPROTOTYPE, "error.errno.EPROTOTYPE") \
    ROW(errno_ERANGE, "error.errno.ERANGE") \
    ROW(errno_EREMOTE, "error.errno.EREMOTE") \
    ROW(errno_EROFS, "error.errno.EROFS") \
    ROW(errno_ESHUTDOWN, "error.errno.ESHUTDOWN") \
    ROW(errno_ESOCKTNOSUPPORT, "error.errno.ESOCKTNOSUPPORT") \
    ROW(errno_ESPIPE, "error.errno.ESPIPE") \
    ROW(errno_ESRCH, "error.errno.ESRCH") \
    ROW(errno_ESTALE, "error.errno.ESTALE") \
    ROW(errno_ETIME, "error.errno.ETIME") \
    ROW(errno_ETIMEDOUT, "error.errno.ETIMEDOUT") \
    ROW(errno_ETOOMANYREFS, "error.errno.ETOOMANYREFS") \
    ROW(errno_ETXTBSY, "error.errno.ETXTBSY") \
    ROW(errno_EUCLEAN, "error.errno.EUCLEAN") \
    ROW(errno_EUSERS, "error.errno.EUSERS") \
    ROW(errno_EXDEV, "error.errno.EXDEV")

#define NQCORE_ERROR_CATALOGUE(ROW) \
    NQCORE_ERROR_CATALOGUE_OWN(ROW) \
    NQCORE_ERROR_CATALOGUE_EXCEPTIONS(ROW) \
    NQCORE_ERROR_CATALOGUE_ROOTS(ROW) \
    NQCORE_ERROR_CATALOGUE_ERRNO(ROW)
// clang-format on
