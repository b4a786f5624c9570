// The optional list of certificates a message carries, and whether each of its blobs is
// known to be a certificate. Encoding must refuse a blob that is not one, which means
// decoding every certificate; a list that decode() read, or that an encoding has checked
// once, need not be read again, and is written from its octets as they stand.
#ifndef VELMOR_SRC_FOUNDATION_CERTIFICATE_LIST_H
#define VELMOR_SRC_FOUNDATION_CERTIFICATE_LIST_H

#include <atomic>
#include <memory>
#include <pki/ocsp/blob.h>

namespace Velmor {

class CertificateList {
  public:
    CertificateList() = default;
    // A copy holds the same octets, so it is as checked as the original.
    CertificateList(const CertificateList& other)
        : m_list(other.m_list ? std::make_unique<CBlobList>(*other.m_list) : nullptr),
          m_checked(other.checked()) {}
    CertificateList& operator=(const CertificateList&) = delete;

    // Null when the message carries no list.
    const CBlobList* get() const noexcept { return m_list.get(); }
    // A copy of list replaces the list (null removes it); it is checked when encoded.
    void put(const CBlobList* list) {
        std::unique_ptr<CBlobList> copy = list ? std::make_unique<CBlobList>(*list) : nullptr;
        m_list = std::move(copy);
        m_checked.store(false, std::memory_order_relaxed);
    }
    // A list that the decoder read as certificates.
    void putDecoded(std::unique_ptr<CBlobList> list) noexcept {
        m_list = std::move(list);
        m_checked.store(true, std::memory_order_relaxed);
    }
    void reset() noexcept { putDecoded(nullptr); }
    void swap(CertificateList& other) noexcept {
        m_list.swap(other.m_list);
        const bool mine = checked();
        m_checked.store(other.checked(), std::memory_order_relaxed);
        other.m_checked.store(mine, std::memory_order_relaxed);
    }

    // True when every blob is known to be a certificate. An encoding that checked them
    // marks the list, through a const object: encoding is const, and the mark changes no
    // value (concurrent encodings of one object may both check, and both mark).
    bool checked() const noexcept { return m_checked.load(std::memory_order_relaxed); }
    void markChecked() const noexcept { m_checked.store(true, std::memory_order_relaxed); }

  private:
    std::unique_ptr<CBlobList> m_list;
    mutable std::atomic<bool> m_checked{false};
};

} // namespace Velmor

#endif
