// Message signatures through CryptoAPI. CryptoAPI gives and takes signatures little-endian;
// the BIT STRINGs of the messages hold them big-endian, so they are reversed on the way.
#include "message/signed_part.h"

#include "certid/algorithm_lookup.h"
#include "certid/crypt_calls.h"
#include "foundation/value_record.h"
#include "platform/crypt_raii.h"

#include <pki/ocsp/atl_exception.h>
#include <pki/ocsp/crypt_provider.h>

namespace Velmor::PKI::OCSP {

using namespace Velmor::Win32;

namespace {

void HashInto(CScopedHash& hash, HCRYPTPROV provider, ALG_ID algId, const CBlob& data) {
    CheckWin32(CryptCreateHash(provider, algId, 0, 0, hash.put()));
    CheckWin32(CryptHashData(hash.get(), data.pbData(), data.cbData(), 0));
}

CBlob SignHash(HCRYPTHASH hash, DWORD keySpec) {
    return QuerySized([&](BYTE* out, DWORD* size) {
        return CryptSignHashW(hash, keySpec, nullptr, 0, out, size);
    });
}

} // namespace

SignedPart::SignedPart(const SignedPart& other)
    : algorithm(Detail::CopyOf(other.algorithm.get())),
      signature(Detail::CopyOf(other.signature.get())) {}

void SignedPart::Sign(std::uint64_t provider, unsigned long keySpec,
                      const ASN1::CAlgorithmIdentifierEx& newAlgorithm, ALG_ID hashAlgId,
                      const CBlob& tbs) {
    // Our own reference to the caller's provider for the time of the call. A failure to
    // take it is not reported: the hash creation below reports a bad handle.
    CScopedProvider reference;
    if (provider != 0 && CryptContextAddRef(provider, nullptr, 0)) {
        reference.reset(provider);
    }
    CScopedHash hash;
    HashInto(hash, provider, hashAlgId, tbs);
    CBlob value = SignHash(hash.get(), keySpec);
    value.reverse();
    if (reference) {
        CheckWin32(CryptReleaseContext(reference.detach(), 0));
    }
    auto storedAlgorithm = std::make_unique<ASN1::CAlgorithmIdentifierEx>(newAlgorithm);
    auto storedSignature = std::make_unique<CBlob>(std::move(value));
    algorithm = std::move(storedAlgorithm);
    signature = std::move(storedSignature);
}

bool SignedPart::VerifyData(const CBlob& signerCertificate, const CBlob& data) const {
    const CScopedCertContext certificate(ParseCertificate(signerCertificate));
    const CERT_PUBLIC_KEY_INFO& publicKey = certificate.get()->pCertInfo->SubjectPublicKeyInfo;
    const CScopedProvider provider(
        AcquireContextForAlgId(CertOIDToAlgId(publicKey.Algorithm.pszObjId)));
    if (!provider) {
        ATL::AtlThrowLastWin32();
    }
    CScopedHash hash;
    HashInto(hash, provider.get(), algorithm->get_algId(), data);
    CBlob reversed(*signature);
    reversed.reverse();
    CScopedKey key;
    CheckWin32(CryptImportPublicKeyInfo(provider.get(), kCertEncoding, &publicKey, key.put()));
    if (CryptVerifySignatureA(hash.get(), reversed.pbData(), reversed.cbData(), key.get(), nullptr,
                              0)) {
        return true;
    }
    if (GetLastError() == static_cast<DWORD>(NTE_BAD_SIGNATURE)) {
        return false;
    }
    ATL::AtlThrowLastWin32();
}

} // namespace Velmor::PKI::OCSP
