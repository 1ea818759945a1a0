#include "nqcore/string_trace_data.h"

#include "nqcore/atomic_op.h"

#include <iterator>

namespace nqcore {
namespace {

using SupportedHandler = bool (*)(std::ostream&);
using WriteHandler = void (*)(std::ostream&, StringTraceData::Ptr);

constinit SupportedHandler s_supported = nullptr;
constinit WriteHandler s_write = nullptr;

constexpr unsigned s_fileNumberShift = 48;
constexpr std::uint64_t s_offsetMask = (std::uint64_t{1} << s_fileNumberShift) - 1;

constexpr std::uint64_t file_part(unsigned fileNumber) noexcept {
    return std::uint64_t{fileNumber & 0xFFFFu} << s_fileNumberShift;
}

}  // namespace

StringTraceData::~StringTraceData() = default;

unsigned StringTraceData::max_trace_sink_count() noexcept { return 4; }

bool StringTraceData::supported_by_stream(std::ostream& stream) {
    const SupportedHandler supported = __atomic_load_n(&s_supported, __ATOMIC_ACQUIRE);
    return supported != nullptr && supported(stream);
}

void StringTraceData::write_to_stream(std::ostream& stream, const Ptr& data) {
    if (const WriteHandler write = __atomic_load_n(&s_write, __ATOMIC_ACQUIRE); write != nullptr) {
        write(stream, data);
    }
}

void set_string_trace_handlers(bool (*supported)(std::ostream& stream),
                               void (*write)(std::ostream& stream, StringTraceData::Ptr data)) noexcept {
    __atomic_store_n(&s_write, write, __ATOMIC_RELEASE);
    __atomic_store_n(&s_supported, supported, __ATOMIC_RELEASE);
}

namespace impl {

bool TraceFileOffsets::query(unsigned sink, unsigned fileNumber, std::uint64_t* offset) const noexcept {
    if (sink >= std::size(m_words)) {
        return false;
    }
    const std::uint64_t word = AtomicOp<unsigned long long>::read(&m_words[sink]);
    if ((word & s_offsetMask) == 0 || (word & ~s_offsetMask) != file_part(fileNumber)) {
        return false;
    }
    *offset = (word & s_offsetMask) - 1;
    return true;
}

void TraceFileOffsets::set(unsigned sink, unsigned fileNumber, std::uint64_t offset) noexcept {
    if (sink < std::size(m_words) && offset < s_offsetMask) {
        AtomicOp<unsigned long long>::write(&m_words[sink], file_part(fileNumber) | (offset + 1));
    }
}

}  // namespace impl
}  // namespace nqcore
