// Allocation and release of shared string buffers.
#include "std/par/sharedstr.h"

#include <new>

#include "std/error.h"
#include "std/failfast.h"

namespace QZPAR {

SharedString::SharedString(std::wstring_view wstr)
{
    if (wstr.empty())
        return;
    // The length is kept in 32 bits; a longer text would wrap and read past the buffer.
    if (wstr.size() >= UINT32_MAX / sizeof(wchar_t))
        QZ_THROW_STD(QZSTD::Err::BAD_PARAM, "wstr");
    const size_t nBytes = sizeof(Header) + (wstr.size() + 1) * sizeof(wchar_t);
    void* pv = ::operator new(nBytes);
    Header* pHeader = new (pv) Header{LIVE_TAG, {1}, static_cast<uint32_t>(wstr.size())};
    wchar_t* pChars = reinterpret_cast<wchar_t*>(pHeader + 1);
    wstr.copy(pChars, wstr.size());
    pChars[wstr.size()] = L'\0';
    m_pHeader = pHeader;
    m_nLength = pHeader->nLength;
}

void SharedString::Release() noexcept
{
    Header* pHeader = m_pHeader;
    if (!pHeader)
        return;
    m_pHeader = nullptr;
    m_nLength = 0;
    // A buffer without its tag or already at zero owners was freed or overwritten: going on would
    // free it a second time or use foreign memory.
    if (pHeader->nTag != LIVE_TAG)
        QZSTD::FailFast("QZPAR: release of a corrupted shared string buffer");
    const int32_t nBefore = pHeader->nRef.fetch_sub(1, std::memory_order_acq_rel);
    if (nBefore <= 0)
        QZSTD::FailFast("QZPAR: shared string buffer released more often than it was referenced");
    if (nBefore == 1) {
        pHeader->nTag = 0;
        pHeader->~Header();
        ::operator delete(pHeader);
    }
}

}  // namespace QZPAR
