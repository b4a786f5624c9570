// CBlob and CBlobList.
#include <algorithm>
#include <cstring>
#include <pki/ocsp/atl_exception.h>
#include <pki/ocsp/blob.h>
#include <utility>

#include "foundation/dll_list_impl.h"
#include "foundation/record_pool.h"
#include "trace/trace_guard.h"

namespace Velmor {

namespace {

// Rejects a null source for a non-empty copy, as the public member named member.
void RequireSource(const void* data, unsigned long size, const char* member) {
    if (data == nullptr && size != 0) {
        Trace::ThrowFrom(member, Win32::E_INVALIDARG);
    }
}

// Heap storage of capacity octets. Small blocks (a signature, a short value) come from the
// thread's pool, as the library's records do; FreeStorage must be given the same capacity.
unsigned char* NewStorage(unsigned long capacity) {
    return static_cast<unsigned char*>(Detail::PoolAllocate(capacity));
}

void FreeStorage(unsigned char* data, unsigned long capacity) noexcept {
    Detail::PoolFree(data, capacity);
}

} // namespace

CBlob::CBlob() noexcept : m_data(m_inline), m_size(0), m_capacity(kInlineCapacity) {}

CBlob::CBlob(unsigned long size) : CBlob() { resize_to(size); }

CBlob::CBlob(const unsigned char* data, unsigned long size) : CBlob() {
    RequireSource(data, size, "CBlob::CBlob");
    copyFrom(data, size);
}

CBlob::CBlob(const std::vector<std::uint8_t>& bytes) : CBlob(bytes.data(), bytes.size()) {}

CBlob::CBlob(std::string_view bytes)
    : CBlob(reinterpret_cast<const unsigned char*>(bytes.data()), bytes.size()) {}

#if defined(__cpp_lib_span)
CBlob::CBlob(std::span<const std::uint8_t> bytes) : CBlob(bytes.data(), bytes.size()) {}
#endif

CBlob::CBlob(const CBlob& other) : CBlob() {
    if (other.isInline()) {
        // As in takeFrom: the whole inline buffer in a few moves.
        std::memcpy(m_inline, other.m_inline, kInlineCapacity);
        m_size = other.m_size;
    } else {
        copyFrom(other.m_data, other.m_size);
    }
}

CBlob::CBlob(CBlob&& other) noexcept : CBlob() { takeFrom(other); }

CBlob& CBlob::operator=(const CBlob& other) {
    assign(other.pbData(), other.cbData());
    return *this;
}

CBlob& CBlob::operator=(CBlob&& other) noexcept {
    if (&other != this) {
        release();
        takeFrom(other);
    }
    return *this;
}

CBlob::~CBlob() { release(); }

void CBlob::release() noexcept {
    if (!isInline()) {
        FreeStorage(m_data, m_capacity);
    }
    m_data = m_inline;
    m_size = 0;
    m_capacity = kInlineCapacity;
}

void CBlob::takeFrom(CBlob& other) noexcept {
    if (other.isInline()) {
        // The whole buffer, a fixed size the compiler copies in a few moves: cheaper than a
        // call for the exact size.
        std::memcpy(m_inline, other.m_inline, kInlineCapacity);
    } else {
        m_data = other.m_data;
        m_capacity = other.m_capacity;
        other.m_data = other.m_inline;
        other.m_capacity = kInlineCapacity;
    }
    m_size = std::exchange(other.m_size, 0);
}

void CBlob::assign(const unsigned char* data, unsigned long size) {
    RequireSource(data, size, "CBlob::assign");
    copyFrom(data, size);
}

void CBlob::copyFrom(const unsigned char* data, unsigned long size) {
    if (size <= m_capacity) {
        if (size != 0) {
            std::memmove(m_data, data, size);
        }
    } else {
        unsigned char* fresh = NewStorage(size);
        std::memcpy(fresh, data, size);
        release();
        m_data = fresh;
        m_capacity = size;
    }
    m_size = size;
}

void CBlob::resize_to(unsigned long size) {
    if (size > m_capacity) {
        unsigned char* fresh = NewStorage(size);
        const unsigned long kept = m_size;
        if (kept != 0) {
            std::memcpy(fresh, m_data, kept);
        }
        release();
        m_data = fresh;
        m_capacity = size;
        m_size = kept;
    }
    if (size > m_size) {
        std::memset(m_data + m_size, 0, size - m_size);
    }
    m_size = size;
}

unsigned char* CBlob::pbData() const noexcept { return m_size != 0 ? m_data : nullptr; }

unsigned long CBlob::cbData() const noexcept { return m_size; }

void CBlob::reverse() noexcept { std::reverse(begin(), end()); }

unsigned char* CBlob::data() const noexcept { return pbData(); }

unsigned long CBlob::size() const noexcept { return m_size; }

bool CBlob::empty() const noexcept { return m_size == 0; }

unsigned char* CBlob::begin() const noexcept { return pbData(); }

unsigned char* CBlob::end() const noexcept { return pbData() + m_size; }

std::vector<std::uint8_t> CBlob::to_vector() const { return {begin(), end()}; }

std::string_view CBlob::to_string_view() const noexcept {
    return {reinterpret_cast<const char*>(pbData()), m_size};
}

#if defined(__cpp_lib_span)
std::span<const std::uint8_t> CBlob::span() const noexcept { return {pbData(), m_size}; }
#endif

bool operator==(const CBlob& a, const CBlob& b) noexcept {
    return a.cbData() == b.cbData() && std::equal(a.begin(), a.end(), b.begin());
}

bool operator!=(const CBlob& a, const CBlob& b) noexcept { return !(a == b); }

template class CDllList<CBlob>;

CBlobList::CBlobList() = default;
CBlobList::CBlobList(const CBlobList& other) = default;
CBlobList& CBlobList::operator=(const CBlobList& other) = default;
CBlobList::~CBlobList() = default;

} // namespace Velmor
