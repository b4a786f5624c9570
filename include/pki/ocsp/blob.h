// Velmor::CBlob, an owned byte buffer, and Velmor::CBlobList, a list of them.
#ifndef VELMOR_PKI_OCSP_BLOB_H
#define VELMOR_PKI_OCSP_BLOB_H

#include <cstdint>
#include <memory>
#include <pki/ocsp/config.h>
#include <pki/ocsp/dll_list.h>
#include <string_view>
#include <vector>

#if defined(__has_include)
#if __has_include(<version>)
#include <version>
#endif
#endif
#if defined(__cpp_lib_span)
#include <span>
#endif

namespace Velmor {

// An owned byte buffer: DER pieces, octet strings, signature values. Copies never share
// storage. Up to kInlineCapacity bytes are kept inside the object itself (hashes, serial
// numbers and algorithm parameters then cost no allocation); longer content is on the heap.
// The buffer keeps a capacity apart from its length: shrinking keeps the storage (and so the
// pointer pbData() gave), growing within the capacity reuses it; copies allocate only their
// length.
class VELMOR_OCSP_API CBlob {
  public:
    // An empty blob: length 0, pbData() null.
    CBlob() noexcept;
    // A blob of size bytes, all zero, to be filled through pbData().
    explicit CBlob(unsigned long size);
    // A copy of size bytes at data; data may be null only when size is 0 (E_INVALIDARG).
    CBlob(const unsigned char* data, unsigned long size);
    explicit CBlob(const std::vector<std::uint8_t>& bytes);
    explicit CBlob(std::string_view bytes);
#if defined(__cpp_lib_span)
    explicit CBlob(std::span<const std::uint8_t> bytes);
#endif
    static constexpr unsigned long kInlineCapacity = 32;

    CBlob(const CBlob& other);
    // Takes other's heap storage, or copies its inline content; other is left empty.
    CBlob(CBlob&& other) noexcept;
    CBlob& operator=(const CBlob& other);
    CBlob& operator=(CBlob&& other) noexcept;
    ~CBlob();

    // Replaces the content with a copy of size bytes at data, which may lie inside this blob.
    // data may be null only when size is 0 (E_INVALIDARG); on failure the blob is unchanged.
    void assign(const unsigned char* data, unsigned long size);
    // Sets the length to size, keeping the leading bytes and zero-filling any growth.
    void resize_to(unsigned long size);

    // The content, writable; null when the blob is empty.
    unsigned char* pbData() const noexcept;
    unsigned long cbData() const noexcept;
    // Reverses the byte order in place (little-endian signature to big-endian and back).
    void reverse() noexcept;

    // Standard-container spellings of pbData() and cbData(); begin() and end() bound the
    // content (both null when the blob is empty).
    unsigned char* data() const noexcept;
    unsigned long size() const noexcept;
    bool empty() const noexcept;
    unsigned char* begin() const noexcept;
    unsigned char* end() const noexcept;

    std::vector<std::uint8_t> to_vector() const;
    // A view of the bytes, valid until the blob changes.
    std::string_view to_string_view() const noexcept;
#if defined(__cpp_lib_span)
    std::span<const std::uint8_t> span() const noexcept;
#endif

  private:
    bool isInline() const noexcept { return m_data == m_inline; }
    // Gives up heap storage (if any) and returns to the empty inline buffer.
    void release() noexcept;
    // Moves other's content into this blob, which holds no heap storage.
    void takeFrom(CBlob& other) noexcept;
    // assign() once its source is known good.
    void copyFrom(const unsigned char* data, unsigned long size);

    unsigned char* m_data; // m_inline, or a heap block of m_capacity bytes
    unsigned long m_size;
    unsigned long m_capacity;
    unsigned char m_inline[kInlineCapacity];
};

// Same length and same bytes.
VELMOR_OCSP_API bool operator==(const CBlob& a, const CBlob& b) noexcept;
VELMOR_OCSP_API bool operator!=(const CBlob& a, const CBlob& b) noexcept;

extern template class VELMOR_OCSP_API CDllList<CBlob>;

// A list of blobs in insertion order (certificate chains).
class VELMOR_OCSP_API CBlobList : public CDllList<CBlob> {
  public:
    CBlobList();
    CBlobList(const CBlobList& other);
    CBlobList& operator=(const CBlobList& other);
    ~CBlobList();
};

} // namespace Velmor

#endif
