#include "kernels/transform_kernels.h"

#include "kernels/kernel_choice.h"

namespace nqcore::kernels {

const TransformKernel& transform_kernel(Transform transform) noexcept {
    // In the order of the enumeration.
    static const TransformKernel* const rows[] = {&best_usable(hex_kernels()), &best_usable(base64_kernels()),
                                                  &best_usable(base32_kernels())};
    return *rows[static_cast<unsigned>(transform)];
}

}  // namespace nqcore::kernels
