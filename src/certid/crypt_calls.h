// The calling conventions of the CryptoAPI layer, turned into exceptions for the classes
// that use it: a FALSE result throws the last Win32 error as an HRESULT, sized outputs
// follow the size-query protocol, and certificates are parsed or the parse error thrown.
#ifndef VELMOR_SRC_CERTID_CRYPT_CALLS_H
#define VELMOR_SRC_CERTID_CRYPT_CALLS_H

#include "platform/crypt_api.h"

#include <pki/ocsp/atl_exception.h>
#include <pki/ocsp/blob.h>

namespace Velmor {

inline constexpr Win32::DWORD kCertEncoding = Win32::X509_ASN_ENCODING | Win32::PKCS_7_ASN_ENCODING;

inline void CheckWin32(Win32::BOOL ok) {
    if (!ok) {
        ATL::AtlThrowLastWin32();
    }
}

// The output of call(BYTE* buffer, DWORD* size): asked once without a buffer for its size,
// then again into a blob of that size, which is cut to the size the second call reports.
template <class Call> CBlob QuerySized(Call&& call) {
    Win32::DWORD size = 0;
    CheckWin32(call(nullptr, &size));
    CBlob output(size);
    CheckWin32(call(output.pbData(), &size));
    output.resize_to(size);
    return output;
}

// A parsed certificate for the caller to own (and free); one that CryptoAPI rejects throws
// its last error.
inline Win32::PCCERT_CONTEXT ParseCertificate(const CBlob& der) {
    Win32::PCCERT_CONTEXT context =
        Win32::CertCreateCertificateContext(kCertEncoding, der.pbData(), der.cbData());
    CheckWin32(context != nullptr);
    return context;
}

} // namespace Velmor

#endif
