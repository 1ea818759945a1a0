#include "system_failure.h"

#include "platform/os_error.h"

namespace nqcore::impl {

void throw_system_failure(const ErrorComposer& composer, const ErrorCode& code, const SourceLocation& location,
                          unsigned long systemError) {
    if (platform::errno_numbering() == platform::ErrnoNumbering::Windows) {
        composer.throw_with_nested_winerror(code, location, systemError);
    }
    composer.throw_with_nested_errno(code, location, static_cast<int>(systemError));
}

}  // namespace nqcore::impl
