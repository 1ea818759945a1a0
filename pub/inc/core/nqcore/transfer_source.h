// TransferSource: the explicit-move token of the library's value types.
//
//     RefCountPtr<Widget> b(a.transfer());   // a is empty now, no count changed
//
// `x.transfer()` empties `x` into the token; a constructor or assignment that takes the token empties the
// token in turn. A token that nobody takes releases what it holds.
#pragma once

namespace nqcore {

/// Holds the value moved out of an `X` until another `X` takes it.
///
/// Threads  as for `X` itself: one thread at a time.
template <class X>
class TransferSource {
public:
    explicit TransferSource(X&& source) noexcept : m_value(static_cast<X&&>(source)) {}
    TransferSource(TransferSource&& other) noexcept : m_value(static_cast<X&&>(other.m_value)) {}
    TransferSource(const TransferSource&) = delete;
    TransferSource& operator=(const TransferSource&) = delete;

    /// The value, ready to be moved from.
    [[nodiscard]] X&& take() noexcept { return static_cast<X&&>(m_value); }

private:
    X m_value;
};

}  // namespace nqcore
