// The constructors that read certificates through CryptoAPI: CCertID from a certificate and
// its issuer, CCertIdWithSignature from one certificate.
#include "asn1/pkix_types.h"
#include "certid/algorithm_lookup.h"
#include "certid/crypt_calls.h"
#include "foundation/asn1_traits.h"
#include "foundation/codec_frame.h"
#include "platform/crypt_raii.h"
#include "trace/trace_guard.h"

#include <pki/ocsp/algorithm_identifier_ex.h>
#include <pki/ocsp/atl_exception.h>
#include <pki/ocsp/cert_id.h>
#include <pki/ocsp/cert_id_with_signature.h>

namespace Velmor::PKI::OCSP {

using namespace Velmor::ASN1;
using namespace Velmor::Win32;

namespace {

CBlob BlobOf(const CRYPT_INTEGER_BLOB& blob) { return CBlob(blob.pbData, blob.cbData); }

// CryptoAPI keeps a serial number little-endian; CryptEncodeObject turns it into a DER
// INTEGER, whose contents are the big integer.
CBigInteger SerialNumberOf(const CERT_INFO& info) {
    const CBlob der = QuerySized([&](BYTE* out, DWORD* size) {
        return CryptEncodeObject(kCertEncoding, X509_MULTI_BYTE_INTEGER, &info.SerialNumber, out,
                                 size);
    });
    return DerIntegerToBigInteger(der.pbData(), der.cbData());
}

// The certificate's outer signature octets in wire order: as many octets as its bit count
// needs.
CBlob SignatureOctets(const CBlob& certificate) {
    ASN1BERDecodeBuffer buffer(certificate.pbData(), certificate.cbData());
    ASN1T_Certificate decoded{};
    if (Codec::DecodeStatus(buffer, decoded) < 0) {
        // Reported like a CryptoAPI failure, as the last error, and not as an ASN.1 code.
        ATL::AtlThrowLastWin32();
    }
    const ASN1TDynBitStr& bits = decoded.signature;
    const OSUINT32 octets = bits.numbits == 0 ? 0 : (bits.numbits - 1) / 8 + 1;
    return CBlob(bits.data, octets);
}

CBlob ToBeSignedHash(const CBlob& certificate) {
    return QuerySized([&](BYTE* out, DWORD* size) {
        return CryptHashToBeSigned(0, kCertEncoding, certificate.pbData(), certificate.cbData(),
                                   out, size);
    });
}

} // namespace

CCertID::CCertID(const CAlgorithmIdentifierEx& hashAlgorithm, const CBlob& certificate,
                 const CBlob& issuerCertificate) {
    Trace::Guard("CCertID::CCertID", [&] {
        // The issuer is parsed first, so that a bad issuer is the error reported. Contexts
        // are released in reverse order: the certificate's, then the issuer's.
        const CScopedCertContext issuer(ParseCertificate(issuerCertificate));
        const CScopedCertContext subject(ParseCertificate(certificate));
        const CERT_INFO& issuerInfo = *issuer.get()->pCertInfo;
        const CERT_INFO& subjectInfo = *subject.get()->pCertInfo;

        // The OID and parameters only; the resolved ALG_ID stays in the caller's object.
        m_hashAlgorithm = hashAlgorithm;
        const CRYPT_BIT_BLOB& issuerKey = issuerInfo.SubjectPublicKeyInfo.PublicKey;
        m_issuerKeyHash =
            HashBlob(hashAlgorithm.get_algId(), CBlob(issuerKey.pbData, issuerKey.cbData));
        m_issuerNameHash = HashBlob(hashAlgorithm.get_algId(), BlobOf(subjectInfo.Issuer));
        m_serialNumber = SerialNumberOf(subjectInfo);
    });
}

CCertIdWithSignature::CCertIdWithSignature(const CBlob& certificate) {
    Trace::Guard("CCertIdWithSignature::CCertIdWithSignature", [&] {
        const CScopedCertContext context(ParseCertificate(certificate));
        const CERT_INFO& info = *context.get()->pCertInfo;
        m_issuer = BlobOf(info.Issuer);
        m_serialNumber = SerialNumberOf(info);
        m_signatureAlgorithm.put_algorithm(info.SignatureAlgorithm.pszObjId);
        m_signatureAlgorithm.put_parameters(BlobOf(info.SignatureAlgorithm.Parameters));
        m_signatureValue = SignatureOctets(certificate);
        m_tbsCertificateHash = ToBeSignedHash(certificate);
    });
}

} // namespace Velmor::PKI::OCSP
