// Feeds arbitrary bytes to the blob constructors of the extension classes with a typed value.
// The first byte chooses the class, the rest is the value. A value that is read must come
// back unchanged when its fields are written again and read again: the fields re-encoded
// from a value decode to the same fields and encode to the same bytes.
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <pki/ocsp/atl_exception.h>
#include <pki/ocsp/ocsp_extensions.h>
#include <stdexcept>

using Velmor::CBlob;
using Velmor::CDateTime;
using Velmor::CStringProxy;
using namespace Velmor::PKI::OCSP;

namespace {

void Require(bool condition) {
    if (!condition) {
        std::abort();
    }
}

bool SameText(const char* a, const char* b) {
    return (a == nullptr) == (b == nullptr) && (a == nullptr || std::strcmp(a, b) == 0);
}

template <class T> bool SameOptional(const T* a, const T* b) {
    return (a == nullptr) == (b == nullptr) && (a == nullptr || *a == *b);
}

template <class C> void CrlReference(const CBlob& value) {
    C read(value);
    read.put_crlNum(read.get_crlNum()); // writes every field
    const C again(read.get_value());
    Require(SameText(read.get_crlUrl(), again.get_crlUrl()) &&
            SameOptional(read.get_crlNum(), again.get_crlNum()) &&
            SameOptional(read.get_crlTime(), again.get_crlTime()));
    C rewritten(again);
    rewritten.put_crlUrl(rewritten.get_crlUrl());
    Require(rewritten.get_value() == read.get_value());
}

void ArchiveCutoff(const CBlob& value) {
    CExtArchiveCutoff read(value);
    read.put_archiveCutoff(read.get_archiveCutoff());
    const CExtArchiveCutoff again(read.get_value());
    Require(again.get_archiveCutoff() == read.get_archiveCutoff());
}

void AcceptableResponses(const CBlob& value) {
    CExtAcceptableResponses read(value);
    read.put_acceptableResponses(read.get_acceptableResponses());
    CExtAcceptableResponses again(read.get_value());
    Require(again.get_acceptableResponses().size() == read.get_acceptableResponses().size());
    auto other = again.get_acceptableResponses().begin();
    for (const CStringProxy& oid : read.get_acceptableResponses()) {
        Require(oid == *other++);
    }
    again.put_acceptableResponses(again.get_acceptableResponses());
    Require(again.get_value() == read.get_value());
}

// The value read is already the encoding of its fields: reading it again changes nothing.
void ServiceLocator(const CBlob& value) {
    const CExtServiceLocator read(value);
    const CExtServiceLocator again(read.get_value());
    Require(again.get_value() == read.get_value() && again.get_issuer() == read.get_issuer());
    Require((again.get_locator() == nullptr) ==
            (read.get_locator() == nullptr || read.get_locator()->empty()));
}

void CrlLocator(const CBlob& value) {
    CExtCRLLocator read(value);
    read.put_distributionPoints(read.get_distributionPoints());
    CExtCRLLocator again(read.get_value());
    again.put_distributionPoints(again.get_distributionPoints());
    Require(again.get_value() == read.get_value());
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size == 0) {
        return 0;
    }
    const CBlob value(data + 1, static_cast<unsigned long>(size - 1));
    try {
        switch (data[0] % 6) {
        case 0:
            CrlReference<CExtCrlID>(value);
            break;
        case 1:
            CrlReference<CExtHistoricalRequest>(value);
            break;
        case 2:
            ArchiveCutoff(value);
            break;
        case 3:
            AcceptableResponses(value);
            break;
        case 4:
            ServiceLocator(value);
            break;
        default:
            CrlLocator(value);
            break;
        }
    } catch (const ATL::CAtlException&) {
        // Refused input, or a decoded value that cannot be written again (a time before
        // year 0 or after 9999, an identifier of more than 128 arcs).
    } catch (const std::length_error&) {
    }
    return 0;
}
