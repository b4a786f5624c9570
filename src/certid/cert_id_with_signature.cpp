// CCertIdWithSignature: value semantics, DER codec and equality. The constructor that reads
// a certificate is in cert_id_hashing.cpp.
#include <pki/ocsp/cert_id_with_signature.h>

#include "certid/cert_id_traits.h"
#include "foundation/asn1_traits.h"
#include "foundation/codec_frame.h"
#include "trace/trace_guard.h"

namespace Velmor::PKI::OCSP {

using namespace Velmor::ASN1;

namespace {
CBlob BitsOf(const ASN1TDynBitStr& in) {
    CBlob value;
    ASN1TDynBitStr_traits::get(in, value);
    return value;
}

// The library's DER of a decoded Name.
CBlob NameDer(const ASN1T_Name& name) {
    CBlob der;
    ASN1T_Name_traits::get(name, der);
    return der;
}
} // namespace

void ASN1T_CertIdWithSignature_traits::set(ASN1CTXT* ctxt, ASN1T_CertIdWithSignature& out,
                                           const CCertIdWithSignature& value) {
    ASN1T_AlgorithmIdentifier_traits::set(ctxt, out.signatureAlgorithm,
                                          value.get_signatureAlgorithm());
    ASN1TDynBitStr_traits::set(ctxt, out.signatureValue, value.get_signatureValue());
    // The issuer blob is checked only now: one that is not a Name (an empty one included)
    // cannot be encoded.
    Codec::DecodeInto(ctxt, value.get_issuer(), out.issuer, asn1Copy_Name);
    ASN1TDynBigInt_traits::set(ctxt, out.serialNumber, value.get_serialNumber());
    ASN1TDynBitStr_traits::set(ctxt, out.tbsCertificateHash, value.get_tbsCertificateHash());
}

void ASN1T_CertIdWithSignature_traits::get(const ASN1T_CertIdWithSignature& in,
                                           CCertIdWithSignature& value) {
    CAlgorithmIdentifier signatureAlgorithm;
    ASN1T_AlgorithmIdentifier_traits::get(in.signatureAlgorithm, signatureAlgorithm);
    CBigInteger serialNumber;
    ASN1TDynBigInt_traits::get(in.serialNumber, serialNumber);
    value = CCertIdWithSignature(NameDer(in.issuer), serialNumber, BitsOf(in.tbsCertificateHash),
                                 signatureAlgorithm, BitsOf(in.signatureValue));
}

CCertIdWithSignature::CCertIdWithSignature() = default;

CCertIdWithSignature::CCertIdWithSignature(const CBlob& issuer, const CBigInteger& serialNumber,
                                           const CBlob& tbsCertificateHash,
                                           const CAlgorithmIdentifier& signatureAlgorithm,
                                           const CBlob& signatureValue)
    : m_issuer(issuer), m_serialNumber(serialNumber), m_tbsCertificateHash(tbsCertificateHash),
      m_signatureAlgorithm(signatureAlgorithm), m_signatureValue(signatureValue) {}

CCertIdWithSignature::CCertIdWithSignature(const CCertIdWithSignature& other) = default;

CCertIdWithSignature& CCertIdWithSignature::operator=(const CCertIdWithSignature& other) {
    if (this != &other) {
        m_issuer = other.m_issuer;
        m_serialNumber = other.m_serialNumber;
        m_tbsCertificateHash = other.m_tbsCertificateHash;
        m_signatureAlgorithm = other.m_signatureAlgorithm;
        m_signatureValue = other.m_signatureValue;
    }
    return *this;
}

CCertIdWithSignature::CCertIdWithSignature(CCertIdWithSignature&& other) noexcept = default;
CCertIdWithSignature&
CCertIdWithSignature::operator=(CCertIdWithSignature&& other) noexcept = default;

CCertIdWithSignature::~CCertIdWithSignature() = default;

CBlob CCertIdWithSignature::encode() const {
    return Trace::Guard("CCertIdWithSignature::encode",
                        [&] { return Codec::EncodeWith<ASN1T_CertIdWithSignature_traits>(*this); });
}

void CCertIdWithSignature::decode(const CBlob& encoded) {
    Trace::Guard("CCertIdWithSignature::decode", [&] {
        // The whole value is converted before any field changes.
        Codec::DecodeWith<ASN1T_CertIdWithSignature_traits>(encoded, *this);
    });
}

const CBlob& CCertIdWithSignature::get_issuer() const noexcept { return m_issuer; }
const CBigInteger& CCertIdWithSignature::get_serialNumber() const noexcept {
    return m_serialNumber;
}
const CBlob& CCertIdWithSignature::get_tbsCertificateHash() const noexcept {
    return m_tbsCertificateHash;
}
const CAlgorithmIdentifier& CCertIdWithSignature::get_signatureAlgorithm() const noexcept {
    return m_signatureAlgorithm;
}
const CBlob& CCertIdWithSignature::get_signatureValue() const noexcept { return m_signatureValue; }

void CCertIdWithSignature::put_issuer(const CBlob& issuer) { m_issuer = issuer; }
void CCertIdWithSignature::put_serialNumber(const CBigInteger& serialNumber) {
    m_serialNumber = serialNumber;
}
void CCertIdWithSignature::put_tbsCertificateHash(const CBlob& tbsCertificateHash) {
    m_tbsCertificateHash = tbsCertificateHash;
}
void CCertIdWithSignature::put_signatureAlgorithm(const CAlgorithmIdentifier& signatureAlgorithm) {
    m_signatureAlgorithm = signatureAlgorithm;
}
void CCertIdWithSignature::put_signatureValue(const CBlob& signatureValue) {
    m_signatureValue = signatureValue;
}

bool operator==(const CCertIdWithSignature& a, const CCertIdWithSignature& b) {
    return a.get_issuer() == b.get_issuer() && a.get_serialNumber() == b.get_serialNumber() &&
           a.get_tbsCertificateHash() == b.get_tbsCertificateHash() &&
           a.get_signatureAlgorithm() == b.get_signatureAlgorithm() &&
           a.get_signatureValue() == b.get_signatureValue();
}

bool operator!=(const CCertIdWithSignature& a, const CCertIdWithSignature& b) { return !(a == b); }

} // namespace Velmor::PKI::OCSP
