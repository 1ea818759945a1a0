// Stream buffers over text that lies elsewhere: standard stream extraction from a slice, without copying it.
//
//     nqcore::impl::StringToStreamBuf buffer(text + 4, 3);
//     std::istream stream(&buffer);
//     stream >> value;
#pragma once

#include "nqcore/config.h"
#include "nqcore/string_util.h"

#include <ios>
#include <streambuf>

namespace nqcore::impl {

/// A read-only stream buffer over characters that it does not own.
///
/// A copy reads the same characters from the place where the original stands. Writing and putting back a character
/// other than the one that was read fail.
///
/// Lifetime the characters must outlive the buffer.
template <class Char>
class NQCORE_TEMPLATE_API BasicStringToStreamBuf : public std::basic_streambuf<Char> {
public:
    using Base = std::basic_streambuf<Char>;
    using typename Base::off_type;
    using typename Base::pos_type;

    /// In       `length`: characters; 0xFFFFFFFF means "up to the NUL". A null `text` counts as empty.
    BasicStringToStreamBuf(const Char* text, unsigned length) {
        const std::basic_string_view<Char> range = measured_text(text, length);
        // The base class takes pointers to what it could write; nothing here writes.
        Char* const first = const_cast<Char*>(range.data());
        this->setg(first, first, first + range.size());
    }
    BasicStringToStreamBuf(const BasicStringToStreamBuf&) = default;
    BasicStringToStreamBuf& operator=(const BasicStringToStreamBuf&) = default;
    ~BasicStringToStreamBuf() override = default;

protected:
    /// Moves the reading position, counted from the start, the present position or the end.
    ///
    /// Returns  the new position from the start; -1, and nothing moves, for a place before the start or after the end,
    ///          or when `which` does not ask for reading.
    pos_type seekoff(off_type offset, std::ios_base::seekdir direction, std::ios_base::openmode which) override {
        const off_type length = this->egptr() - this->eback();
        off_type origin = 0;
        if (direction == std::ios_base::cur) {
            origin = this->gptr() - this->eback();
        } else if (direction == std::ios_base::end) {
            origin = length;
        }
        if ((which & std::ios_base::in) == 0 || offset < -origin || offset > length - origin) {
            return pos_type(off_type(-1));
        }
        this->setg(this->eback(), this->eback() + origin + offset, this->egptr());
        return pos_type(origin + offset);
    }
    pos_type seekpos(pos_type position, std::ios_base::openmode which) override {
        return seekoff(off_type(position), std::ios_base::beg, which);
    }
    /// Nothing comes after the end.
    std::streamsize showmanyc() override { return -1; }
};

using StringToStreamBuf = BasicStringToStreamBuf<char>;
using StringToStreamBufW = BasicStringToStreamBuf<wchar_t>;

}  // namespace nqcore::impl
