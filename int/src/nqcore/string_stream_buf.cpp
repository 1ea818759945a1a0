#include "nqcore/string_stream_buf.h"

#include "nqcore/string_util.h"

namespace nqcore::impl {

template <class Char>
BasicStringToStreamBuf<Char>::BasicStringToStreamBuf(const Char* text, unsigned length) {
    const std::basic_string_view<Char> range = measured_text(text, length);
    // The base class takes pointers to what it could write; nothing here writes.
    Char* const first = const_cast<Char*>(range.data());
    this->setg(first, first, first + range.size());
}

template <class Char>
BasicStringToStreamBuf<Char>::BasicStringToStreamBuf(const BasicStringToStreamBuf& other) = default;

template <class Char>
BasicStringToStreamBuf<Char>& BasicStringToStreamBuf<Char>::operator=(const BasicStringToStreamBuf& other) = default;

template <class Char>
BasicStringToStreamBuf<Char>::~BasicStringToStreamBuf() = default;

template <class Char>
auto BasicStringToStreamBuf<Char>::seekoff(off_type offset, std::ios_base::seekdir direction,
                                           std::ios_base::openmode which) -> pos_type {
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

template <class Char>
auto BasicStringToStreamBuf<Char>::seekpos(pos_type position, std::ios_base::openmode which) -> pos_type {
    return seekoff(off_type(position), std::ios_base::beg, which);
}

template <class Char>
std::streamsize BasicStringToStreamBuf<Char>::showmanyc() {
    return -1;
}

template class BasicStringToStreamBuf<char>;
template class BasicStringToStreamBuf<wchar_t>;

}  // namespace nqcore::impl
